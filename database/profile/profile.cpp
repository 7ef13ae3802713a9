#include "database/profile/profile.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <set>

#include "rules/numbers.h"

namespace tavrik::profile {
namespace {

constexpr ListProfile kLists[] = {
    {"header_conditions", [](const rules::Rule &rule) { return rule.header_conditions.size(); }, 6526, 65, 139953},
    {"section_conditions", [](const rules::Rule &rule) { return rule.section_conditions.size(); }, 6057, 55, 43959},
    {"section_names", [](const rules::Rule &rule) { return rule.section_names.size(); }, 5098, 18, 14515},
    {"strings", [](const rules::Rule &rule) { return rule.strings.size(); }, 4608, 13, 13110},
    {"indexed_conditions", [](const rules::Rule &rule) { return rule.indexed_conditions.size(); }, 114, 12, 503},
    {"import_modules", [](const rules::Rule &rule) { return rule.import_modules.size(); }, 940, 11, 1509},
    {"import_functions", [](const rules::Rule &rule) { return rule.import_functions.size(); }, 731, 28, 2048},
    {"export_module_names", [](const rules::Rule &rule) { return rule.export_module_names.size(); }, 152, 1, 152},
    {"export_functions", [](const rules::Rule &rule) { return rule.export_functions.size(); }, 156, 11, 321},
    {"resource_entries", [](const rules::Rule &rule) { return rule.resource_entries.size(); }, 1071, 53, 3020},
    {"resource_type_entries", [](const rules::Rule &rule) { return rule.resource_type_entries.size(); }, 60, 6, 116},
    {"resource_strings", [](const rules::Rule &rule) { return rule.resource_strings.size(); }, 675, 11, 2005},
    {"measure_conditions", [](const rules::Rule &rule) { return rule.measure_conditions.size(); }, 2392, 12, 7663},
    {"secondary_conditions", [](const rules::Rule &rule) { return rule.secondary_conditions.size(); }, 102, 62, 1618},
    {"object_names", [](const rules::Rule &rule) { return rule.object_names.size(); }, 71, 9, 193},
    {"member_names", [](const rules::Rule &rule) { return rule.member_names.size(); }, 31, 15, 85},
};

namespace field = rules::header_field;

constexpr uint8_t kSectionCharacteristics = 9;
constexpr uint32_t kDllFlag = 0x2000;

// ---- How answers are written ---------------------------------------------------------------------------------------

std::string Count(std::size_t count) {
    return std::to_string(count);
}

std::string OutOf(std::size_t part, std::size_t whole) {
    return Count(part) + " of " + Count(whole);
}

std::string Hex(uint32_t value) {
    std::string text;
    do {
        text.insert(text.begin(), "0123456789ABCDEF"[value % 16]);
        value /= 16;
    } while (value != 0);
    return "0x" + text;
}

using Values = std::set<int64_t>;

// "0..3, 7": stretches of at least three are written as ranges.
std::string Text(const Values &values) {
    std::string text;
    for (auto begin = values.begin(); begin != values.end();) {
        auto last = begin;
        std::size_t length = 1;
        while (std::next(last) != values.end() && *std::next(last) == *last + 1) {
            ++last;
            ++length;
        }
        if (length < 3)
            last = begin;
        text += (text.empty() ? "" : ", ") + std::to_string(*begin);
        if (last != begin)
            text += ".." + std::to_string(*last);
        begin = std::next(last);
    }
    return text;
}

std::string Bounds(const Values &values) {
    return values.empty() ? "none" : std::to_string(*values.begin()) + ".." + std::to_string(*values.rbegin());
}

// More than half.
std::string Most(std::size_t part, std::size_t whole) {
    return part * 2 > whole ? "most" : OutOf(part, whole);
}

// Some, but at most one in a hundred.
std::string Rare(std::size_t part, std::size_t whole) {
    return part > 0 && part * 100 <= whole ? "rare" : OutOf(part, whole);
}

// At least one, but not most.
std::string Some(std::size_t part, std::size_t whole) {
    return part > 0 && part * 2 < whole ? "some" : OutOf(part, whole);
}

std::string Present(bool present) {
    return present ? "present" : "absent";
}

// The values by falling frequency, at most `limit` of them.
std::string ByFrequency(const std::map<uint32_t, std::size_t> &counts, std::size_t limit) {
    std::vector<std::pair<std::size_t, uint32_t>> order;
    for (const auto &[value, count] : counts)
        order.emplace_back(count, value);
    std::sort(order.rbegin(), order.rend());
    std::string text;
    for (std::size_t i = 0; i < std::min(limit, order.size()); ++i)
        text += (text.empty() ? "" : ", ") + Count(order[i].second);
    return text;
}

// ---- Walking through all elements ----------------------------------------------------------------------------------

template <typename Element, typename Visit>
void Each(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list, Visit visit) {
    for (const rules::Rule &rule : set.rules)
        for (const Element &element : rule.*list)
            visit(element);
}

template <typename Element, typename Matches>
std::size_t CountOf(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list, Matches matches) {
    std::size_t count = 0;
    Each(set, list, [&](const Element &element) { count += matches(element) ? 1U : 0U; });
    return count;
}

template <typename Element>
std::size_t CountAll(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list) {
    return CountOf(set, list, [](const Element &) { return true; });
}

template <typename Element, typename Get>
Values ValuesOf(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list, Get get) {
    Values values;
    Each(set, list, [&](const Element &element) { values.insert(static_cast<int64_t>(get(element))); });
    return values;
}

template <typename Get>
Values ValuesOfRules(const rules::RuleSet &set, Get get) {
    Values values;
    for (const rules::Rule &rule : set.rules)
        values.insert(static_cast<int64_t>(get(rule)));
    return values;
}

template <typename Matches>
std::size_t CountRules(const rules::RuleSet &set, Matches matches) {
    return static_cast<std::size_t>(std::count_if(set.rules.begin(), set.rules.end(), matches));
}

template <typename Element>
bool HasName(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list, std::string_view name) {
    return CountOf(set, list, [&](const Element &element) { return element.name == name; }) > 0;
}

template <typename Element>
Values OperatorsOf(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list) {
    return ValuesOf(set, list, [](const Element &element) { return static_cast<int>(element.op); });
}

// Calls visit(op) for the operator of every element of every list that has one.
template <typename Visit>
void EachOperator(const rules::RuleSet &set, Visit visit) {
    const auto elements = [&](auto list) { Each(set, list, [&](const auto &element) { visit(element.op); }); };
    elements(&rules::Rule::header_conditions);
    elements(&rules::Rule::section_conditions);
    elements(&rules::Rule::section_names);
    elements(&rules::Rule::indexed_conditions);
    elements(&rules::Rule::import_modules);
    elements(&rules::Rule::import_functions);
    elements(&rules::Rule::export_module_names);
    elements(&rules::Rule::export_functions);
    elements(&rules::Rule::measure_conditions);
    elements(&rules::Rule::secondary_conditions);
    elements(&rules::Rule::object_names);
    elements(&rules::Rule::member_names);
}

Values AllOperators(const rules::RuleSet &set) {
    Values values;
    EachOperator(set, [&](rules::Operator op) { values.insert(static_cast<int64_t>(op)); });
    return values;
}

Values NameOperators(const rules::RuleSet &set) {
    Values values = OperatorsOf(set, &rules::Rule::section_names);
    values.merge(OperatorsOf(set, &rules::Rule::import_modules));
    values.merge(OperatorsOf(set, &rules::Rule::import_functions));
    values.merge(OperatorsOf(set, &rules::Rule::export_module_names));
    values.merge(OperatorsOf(set, &rules::Rule::export_functions));
    values.merge(OperatorsOf(set, &rules::Rule::object_names));
    values.merge(OperatorsOf(set, &rules::Rule::member_names));
    return values;
}

// ---- Pairs of bounds -----------------------------------------------------------------------------------------------

// A bound of a value within one rule. The key says which value; `amount` orders like the value itself.
struct Bound {
    std::array<uint64_t, 4> key;
    rules::Operator op;
    uint64_t amount;
};

// Bounds of one list that do not stand as a lower one directly before a higher one on the same value, once a value.
std::size_t UnpairedBounds(const std::vector<Bound> &bounds) {
    std::size_t unpaired = 0;
    std::set<std::array<uint64_t, 4>> seen;
    for (std::size_t i = 0; i < bounds.size(); ++i) {
        if (bounds[i].op != rules::Operator::AtLeast && bounds[i].op != rules::Operator::AtMost)
            continue;
        const bool is_pair = bounds[i].op == rules::Operator::AtLeast && i + 1 < bounds.size() &&
                             bounds[i + 1].op == rules::Operator::AtMost && bounds[i + 1].key == bounds[i].key &&
                             bounds[i].amount < bounds[i + 1].amount && seen.insert(bounds[i].key).second;
        if (is_pair)
            ++i;
        else
            ++unpaired;
    }
    return unpaired;
}

template <typename Element, typename ToBound>
std::size_t UnpairedBounds(const std::vector<Element> &list, ToBound to_bound) {
    std::vector<Bound> bounds;
    std::transform(list.begin(), list.end(), std::back_inserter(bounds), to_bound);
    return UnpairedBounds(bounds);
}

std::size_t UnpairedBounds(const rules::Rule &rule) {
    std::size_t count = UnpairedBounds(rule.header_conditions, [](const rules::HeaderCondition &condition) {
        return Bound{{condition.field}, condition.op, condition.value};
    });
    count += UnpairedBounds(rule.section_conditions, [](const rules::SectionCondition &condition) {
        return Bound{{condition.section, condition.field}, condition.op, condition.value};
    });
    count += UnpairedBounds(rule.indexed_conditions, [](const rules::IndexedCondition &condition) {
        return Bound{{condition.index, condition.field}, condition.op, condition.value};
    });
    count += UnpairedBounds(rule.secondary_conditions, [](const rules::SecondaryCondition &condition) {
        return Bound{{condition.index, condition.field}, condition.op, condition.value};
    });
    // The bits of doubles that are not negative order like the doubles.
    count += UnpairedBounds(rule.measure_conditions, [](const rules::MeasureCondition &condition) {
        return Bound{{condition.region, static_cast<uint64_t>(condition.measure), condition.length, condition.index},
                     condition.op,
                     condition.bits};
    });
    return count;
}

// ---- Particular facts ----------------------------------------------------------------------------------------------

std::string IdDescents(const rules::RuleSet &set) {
    std::size_t descents = 0;
    for (std::size_t i = 1; i < set.rules.size(); ++i)
        descents += set.rules[i].rule_id <= set.rules[i - 1].rule_id ? 1U : 0U;
    return Count(descents);
}

std::string IdsBehindGreater(const rules::RuleSet &set) {
    std::size_t count = 0;
    uint32_t greatest = 0;
    for (const rules::Rule &rule : set.rules) {
        count += rule.rule_id <= greatest ? 1U : 0U;
        greatest = std::max(greatest, rule.rule_id);
    }
    return Count(count);
}

std::string RepeatedIds(const rules::RuleSet &set) {
    std::map<uint32_t, std::size_t> carriers;
    for (const rules::Rule &rule : set.rules)
        ++carriers[rule.rule_id];
    std::string text;
    for (const auto &[id, count] : carriers)
        if (count > 1)
            text += (text.empty() ? "" : ", ") + Count(id) + " by " + Count(count);
    return text;
}

std::string NameOfRule(const rules::RuleSet &set, uint32_t id) {
    const auto found = std::ranges::find(set.rules, id, &rules::Rule::rule_id);
    return found != set.rules.end() ? found->detection_name : "absent";
}

bool IsPrintable(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) { return c > ' ' && c <= '~'; });
}

bool IsAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool TestsCharacteristics(const rules::Rule &rule, bool with_dll_flag) {
    bool tests = false;
    for (const rules::HeaderCondition &condition : rule.header_conditions) {
        if (condition.field != field::kCharacteristics)
            continue;
        if (((condition.value & kDllFlag) != 0) != with_dll_flag)
            return false;
        tests = true;
    }
    return tests;
}

bool MentionsCharacteristics(const rules::Rule &rule, bool with_dll_flag) {
    return std::ranges::any_of(rule.header_conditions, [&](const rules::HeaderCondition &condition) {
        return condition.field == field::kCharacteristics && ((condition.value & kDllFlag) != 0) == with_dll_flag;
    });
}

std::string FieldValue(const rules::RuleSet &set, uint16_t field, uint32_t value) {
    const auto tests = [&](const rules::HeaderCondition &condition) { return condition.field == field; };
    return OutOf(
        CountOf(set, &rules::Rule::header_conditions,
                [&](const rules::HeaderCondition &condition) { return tests(condition) && condition.value == value; }),
        CountOf(set, &rules::Rule::header_conditions, tests));
}

std::map<uint32_t, std::size_t> HeaderValues(const rules::RuleSet &set, uint16_t field) {
    std::map<uint32_t, std::size_t> counts;
    Each(set, &rules::Rule::header_conditions, [&](const rules::HeaderCondition &condition) {
        if (condition.field == field)
            ++counts[condition.value];
    });
    return counts;
}

std::size_t Operators(const rules::RuleSet &set, Values codes) {
    std::size_t count = 0;
    EachOperator(set, [&](rules::Operator op) { count += codes.count(static_cast<int64_t>(op)); });
    return count;
}

// Flag tests on values that are no flag words: Characteristics of files and sections, DllCharacteristics, ObjectType.
std::size_t OddFlagTests(const rules::RuleSet &set) {
    const auto has = [](const auto &condition) { return condition.op == rules::Operator::HasBits; };
    return CountOf(set, &rules::Rule::header_conditions,
                   [&](const rules::HeaderCondition &condition) {
                       return has(condition) && condition.field != field::kCharacteristics &&
                              condition.field != field::kDllCharacteristics;
                   }) +
           CountOf(set, &rules::Rule::section_conditions,
                   [&](const rules::SectionCondition &condition) {
                       return has(condition) && condition.field != kSectionCharacteristics;
                   }) +
           CountOf(set, &rules::Rule::indexed_conditions, has);
}

bool IsNamedKind(const rules::StringFeature &string) {
    return rules::ForwardKind(string.kind) == static_cast<uint8_t>(rules::StringKind::NamedSection);
}

bool IsIndexedKind(const rules::StringFeature &string) {
    return rules::ForwardKind(string.kind) == static_cast<uint8_t>(rules::StringKind::IndexedSection);
}

bool MaskFits(const rules::StringFeature &string) {
    for (std::size_t i = string.bytes.size(); i < rules::kMaxStringLength; ++i)
        if (string.mask[i])
            return false;
    return true;
}

bool IsBlockMultiple(uint16_t value) {
    return value % 256 == 0;
}

std::size_t StringCount(const rules::RuleSet &set, bool (*matches)(const rules::StringFeature &)) {
    return CountOf(set, &rules::Rule::strings, matches);
}

std::size_t StringElements(const rules::RuleSet &set) {
    return CountAll(set, &rules::Rule::strings);
}

// Reads one operand of an expression and leaves `text` behind it; false when it is not well formed. Blanks may stand
// between tokens. `letters` collects the letters in the order of their use.
bool ReadOperand(std::string_view &text, std::string &letters) {
    const auto take = [&] {
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        const char c = text.empty() ? '\0' : text.front();
        text.remove_prefix(text.empty() ? 0 : 1);
        return c;
    };
    const char first = take();
    if (first >= 'A' && first <= 'Z') {
        letters += first;
        return true;
    }
    if (first != '(' || !ReadOperand(text, letters))
        return false;
    const char op = take();
    return (op == '&' || op == '|') && ReadOperand(text, letters) && take() == ')';
}

// The letters of a well-formed expression, sorted, each once; empty when it is malformed.
std::string ExpressionLetters(std::string_view text) {
    std::string letters;
    if (!ReadOperand(text, letters) || text.find_first_not_of(' ') != std::string_view::npos)
        return {};
    std::ranges::sort(letters);
    letters.erase(std::unique(letters.begin(), letters.end()), letters.end());
    return letters;
}

bool HasExpression(const rules::Rule &rule) {
    return !rule.expression.empty();
}

bool IsGapless(std::string_view letters) {
    for (std::size_t i = 0; i < letters.size(); ++i)
        if (letters[i] != static_cast<char>('A' + i))
            return false;
    return !letters.empty();
}

std::set<std::string> DistinctExpressions(const rules::RuleSet &set) {
    std::set<std::string> distinct;
    for (const rules::Rule &rule : set.rules)
        if (HasExpression(rule))
            distinct.insert(rule.expression);
    return distinct;
}

std::string Examples(const rules::RuleSet &set, std::initializer_list<std::string_view> expressions) {
    const std::set<std::string> distinct = DistinctExpressions(set);
    return Present(
        std::ranges::all_of(expressions, [&](std::string_view text) { return distinct.contains(std::string(text)); }));
}

std::string LargestLetter(const rules::RuleSet &set) {
    char largest = ' ';
    for (const std::string &expression : DistinctExpressions(set))
        for (const char c : expression)
            if (c >= 'A' && c <= 'Z')
                largest = std::max(largest, c);
    return std::string(1, largest);
}

// Elements of all lists whose name or text is `name`.
std::size_t Named(const rules::RuleSet &set, std::string_view name) {
    const auto count = [&](auto list) {
        return CountOf(set, list, [&](const auto &element) { return element.name == name; });
    };
    return count(&rules::Rule::import_modules) + count(&rules::Rule::import_functions) +
           count(&rules::Rule::export_module_names) + count(&rules::Rule::export_functions) +
           count(&rules::Rule::object_names) + count(&rules::Rule::member_names) +
           CountOf(set, &rules::Rule::resource_strings,
                   [&](const rules::ResourceString &element) { return element.text == name; });
}

template <typename Element, typename Get>
std::map<uint32_t, std::size_t> Frequencies(const rules::RuleSet &set, std::vector<Element> rules::Rule::*list,
                                            Get get) {
    std::map<uint32_t, std::size_t> counts;
    Each(set, list, [&](const Element &element) { ++counts[get(element)]; });
    return counts;
}

std::size_t OddMeasures(const rules::RuleSet &set) {
    constexpr double kGreatestEntropy = 8.0;
    return CountOf(set, &rules::Rule::measure_conditions, [](const rules::MeasureCondition &condition) {
        if (condition.measure == rules::Measure::Crc32)
            return condition.bits > UINT32_MAX;
        const double entropy = rules::MeasureEntropy(condition);
        return !(entropy > 0 && entropy < kGreatestEntropy);
    });
}

std::size_t MembersWithoutObject(const rules::RuleSet &set) {
    std::size_t count = 0;
    for (const rules::Rule &rule : set.rules)
        for (const rules::MemberName &member : rule.member_names)
            count += member.index >= rule.object_names.size() ? 1U : 0U;
    return count;
}

std::size_t LongestName(const rules::RuleSet &set, std::size_t (*length)(const rules::Rule &)) {
    std::size_t longest = 0;
    for (const rules::Rule &rule : set.rules)
        longest = std::max(longest, length(rule));
    return longest;
}

// ---- The table -----------------------------------------------------------------------------------------------------

struct Fact {
    std::string_view name;
    std::string_view expected;
    std::string (*actual)(const rules::RuleSet &);
};

constexpr Fact kFacts[] = {
    {"rules", "6528", [](const rules::RuleSet &set) { return Count(set.rules.size()); }},
    {"rule_id: range", "1..9531",
     [](const rules::RuleSet &set) { return Bounds(ValuesOfRules(set, [](const rules::Rule &rule) { return rule.rule_id; })); }},
    {"rule_id: not above the one before", "5", IdDescents},
    {"rule_id: below an earlier one", "5", IdsBehindGreater},
    {"rule_id: carried by several rules", "4192 by 2, 5072 by 2", RepeatedIds},
    {"detection_name of rule 147", "TrojanPWS.Lolyda.AT5", [](const rules::RuleSet &set) { return NameOfRule(set, 147); }},
    {"detection_name of rule 173", "Worm.Autorun.LD4", [](const rules::RuleSet &set) { return NameOfRule(set, 173); }},
    {"detection_name of rule 175", "TrojanDownloader.VB.ac3", [](const rules::RuleSet &set) { return NameOfRule(set, 175); }},
    {"detection_name: longest", "29",
     [](const rules::RuleSet &set) {
         return Count(LongestName(set, [](const rules::Rule &rule) { return rule.detection_name.size(); }));
     }},
    {"detection_name: empty or not printable ASCII", "0",
     [](const rules::RuleSet &set) {
         return Count(CountRules(set, [](const rules::Rule &rule) { return !IsPrintable(rule.detection_name); }));
     }},
    {"feature_flags: stored unlike computed", "1924",
     [](const rules::RuleSet &set) {
         return Count(
             CountRules(set, [](const rules::Rule &rule) { return rule.stored_flags != rules::ComputeFeatureFlags(rule); }));
     }},
    {"attribute_a: values", "0..5, 8, 24, 72, 80, 144, 192",
     [](const rules::RuleSet &set) { return Text(ValuesOfRules(set, [](const rules::Rule &rule) { return rule.attribute_a; })); }},
    {"attribute_a 1", "5606",
     [](const rules::RuleSet &set) { return Count(CountRules(set, [](const rules::Rule &rule) { return rule.attribute_a == 1; })); }},
    {"attribute_a 1: some Characteristics without the DLL flag", "5062",
     [](const rules::RuleSet &set) {
         return Count(CountRules(
             set, [](const rules::Rule &rule) { return rule.attribute_a == 1 && MentionsCharacteristics(rule, false); }));
     }},
    {"attribute_a 1: all Characteristics without the DLL flag", "5062",
     [](const rules::RuleSet &set) {
         return Count(CountRules(
             set, [](const rules::Rule &rule) { return rule.attribute_a == 1 && TestsCharacteristics(rule, false); }));
     }},
    {"attribute_a 0", "771",
     [](const rules::RuleSet &set) { return Count(CountRules(set, [](const rules::Rule &rule) { return rule.attribute_a == 0; })); }},
    {"attribute_a 0: some Characteristics with the DLL flag", "734",
     [](const rules::RuleSet &set) {
         return Count(CountRules(
             set, [](const rules::Rule &rule) { return rule.attribute_a == 0 && MentionsCharacteristics(rule, true); }));
     }},
    {"attribute_a 0: all Characteristics with the DLL flag", "734",
     [](const rules::RuleSet &set) {
         return Count(CountRules(
             set, [](const rules::Rule &rule) { return rule.attribute_a == 0 && TestsCharacteristics(rule, true); }));
     }},
    {"attribute_b: values", "0..2, 4, 10, 16..18, 20, 32, 34, 36, 64, 192",
     [](const rules::RuleSet &set) { return Text(ValuesOfRules(set, [](const rules::Rule &rule) { return rule.attribute_b; })); }},
    {"reserved: values", "0",
     [](const rules::RuleSet &set) { return Text(ValuesOfRules(set, [](const rules::Rule &rule) { return rule.reserved; })); }},

    {"op: values", "1..7", [](const rules::RuleSet &set) { return Text(AllOperators(set)); }},
    {"op: values with names", "1", [](const rules::RuleSet &set) { return Text(NameOperators(set)); }},
    {"op 1", "most",
     [](const rules::RuleSet &set) { return Most(Operators(set, {1}), Operators(set, {1, 2, 3, 4, 5, 6, 7})); }},
    {"op 2, 3 and 4", "rare",
     [](const rules::RuleSet &set) { return Rare(Operators(set, {2, 3, 4}), Operators(set, {1, 2, 3, 4, 5, 6, 7})); }},
    {"op 6 and 5: not a lower bound before a higher one", "0",
     [](const rules::RuleSet &set) {
         std::size_t count = 0;
         for (const rules::Rule &rule : set.rules)
             count += UnpairedBounds(rule);
         return Count(count);
     }},
    {"op 7: on other values than flag words", "0", [](const rules::RuleSet &set) { return Count(OddFlagTests(set)); }},
    {"op 7 with 0x10F on Characteristics", "present",
     [](const rules::RuleSet &set) {
         return Present(CountOf(set, &rules::Rule::header_conditions, [](const rules::HeaderCondition &condition) {
                            return condition.field == field::kCharacteristics && condition.op == rules::Operator::HasBits &&
                                   condition.value == 0x10F;
                        }) > 0);
     }},
    {"op 7 with 0x60000020 on section Characteristics", "present",
     [](const rules::RuleSet &set) {
         return Present(CountOf(set, &rules::Rule::section_conditions, [](const rules::SectionCondition &condition) {
                            return condition.field == kSectionCharacteristics && condition.op == rules::Operator::HasBits &&
                                   condition.value == 0x60000020;
                        }) > 0);
     }},

    {"header_conditions: fields", "0..263",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::header_conditions, [](const rules::HeaderCondition &c) { return c.field; }));
     }},
    {"header_conditions: values of field 119", "0x21354256",
     [](const rules::RuleSet &set) {
         std::string text;
         for (const auto &[value, count] : HeaderValues(set, 119))
             text += (text.empty() ? "" : ", ") + Hex(value);
         return text;
     }},
    {"header_conditions: most frequent value of field 122", "1033",
     [](const rules::RuleSet &set) { return ByFrequency(HeaderValues(set, 122), 1); }},
    {"header_conditions: field 129 with value 1", "603 of 616",
     [](const rules::RuleSet &set) { return FieldValue(set, 129, 1); }},
    {"header_conditions: field 140 with value 500", "23 of 27",
     [](const rules::RuleSet &set) { return FieldValue(set, 140, 500); }},

    {"section_conditions: selectors", "0..33, 600..610",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::section_conditions, [](const rules::SectionCondition &c) { return c.section; }));
     }},
    {"section_conditions: fields", "1..9",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::section_conditions, [](const rules::SectionCondition &c) { return c.field; }));
     }},
    {"section_conditions: fields 5 to 8", "rare",
     [](const rules::RuleSet &set) {
         return Rare(CountOf(set, &rules::Rule::section_conditions,
                             [](const rules::SectionCondition &c) { return c.field >= 5 && c.field <= 8; }),
                     CountAll(set, &rules::Rule::section_conditions));
     }},
    {"section_names: selectors", "0..33, 505..507, 600..610",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::section_names, [](const rules::SectionNameCondition &c) { return c.section; }));
     }},
    {"section_names: lengths", "0..8",
     [](const rules::RuleSet &set) {
         return Bounds(ValuesOf(set, &rules::Rule::section_names, [](const rules::SectionNameCondition &c) { return c.name.size(); }));
     }},
    {"section_names: empty", "91",
     [](const rules::RuleSet &set) {
         return Count(CountOf(set, &rules::Rule::section_names, [](const rules::SectionNameCondition &c) { return c.name.empty(); }));
     }},
    {"section_names: not ASCII", "0",
     [](const rules::RuleSet &set) {
         return Count(
             CountOf(set, &rules::Rule::section_names, [](const rules::SectionNameCondition &c) { return !IsAscii(c.name); }));
     }},
    {"section_names: .text, .rsrc, UPX0", "present",
     [](const rules::RuleSet &set) {
         return Present(HasName(set, &rules::Rule::section_names, ".text") && HasName(set, &rules::Rule::section_names, ".rsrc") &&
                        HasName(set, &rules::Rule::section_names, "UPX0"));
     }},

    {"strings: length", "1..128",
     [](const rules::RuleSet &set) {
         return Bounds(ValuesOf(set, &rules::Rule::strings, [](const rules::StringFeature &s) { return s.bytes.size(); }));
     }},
    {"strings: mask bits at or beyond the length", "0",
     [](const rules::RuleSet &set) {
         return Count(StringCount(set, [](const rules::StringFeature &s) { return !MaskFits(s); }));
     }},
    {"strings: with mask bits", "some",
     [](const rules::RuleSet &set) {
         return Some(StringCount(set, [](const rules::StringFeature &s) { return s.mask.any(); }), StringElements(set));
     }},
    {"strings: param_a at or beyond the length", "0",
     [](const rules::RuleSet &set) {
         return Count(StringCount(set, [](const rules::StringFeature &s) { return s.anchor >= s.bytes.size(); }));
     }},
    {"strings: param_b 0 or a multiple of 256", "most",
     [](const rules::RuleSet &set) {
         return Most(StringCount(set, [](const rules::StringFeature &s) { return IsBlockMultiple(s.window_start); }),
                     StringElements(set));
     }},
    {"strings: param_b neither", "some",
     [](const rules::RuleSet &set) {
         return Some(StringCount(set, [](const rules::StringFeature &s) { return !IsBlockMultiple(s.window_start); }),
                     StringElements(set));
     }},
    {"strings: param_b", "0..65520",
     [](const rules::RuleSet &set) {
         return Bounds(ValuesOf(set, &rules::Rule::strings, [](const rules::StringFeature &s) { return s.window_start; }));
     }},
    {"strings: string_kind", "1..32",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::strings, [](const rules::StringFeature &s) { return s.kind; }));
     }},
    {"strings: string_kind 17", "most",
     [](const rules::RuleSet &set) {
         return Most(StringCount(set, [](const rules::StringFeature &s) { return s.kind == 17; }), StringElements(set));
     }},
    {"strings: param_d", "0..20",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::strings, [](const rules::StringFeature &s) { return s.index; }));
     }},
    {"strings: param_d not 0 outside kinds 17, 18 and 23", "0",
     [](const rules::RuleSet &set) {
         return Count(StringCount(
             set, [](const rules::StringFeature &s) { return s.index != 0 && !IsIndexedKind(s) && s.kind != 23; }));
     }},
    {"strings: param_d not 0 in kind 23", "1",
     [](const rules::RuleSet &set) {
         return Count(StringCount(set, [](const rules::StringFeature &s) { return s.index != 0 && s.kind == 23; }));
     }},
    {"strings: with a string_section", "507 of 13110",
     [](const rules::RuleSet &set) {
         return OutOf(StringCount(set, [](const rules::StringFeature &s) { return !s.section_name.empty(); }),
                      StringElements(set));
     }},
    {"strings: string_section in other kinds than 15 and 16, or missing there", "0",
     [](const rules::RuleSet &set) {
         return Count(
             StringCount(set, [](const rules::StringFeature &s) { return s.section_name.empty() == IsNamedKind(s); }));
     }},
    {"strings: string_section_length", "0, 4..8",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::strings, [](const rules::StringFeature &s) { return s.section_name.size(); }));
     }},
    {"strings: string_section with bytes after the name", "3",
     [](const rules::RuleSet &set) {
         return Count(StringCount(set, [](const rules::StringFeature &s) { return !s.section_tail.empty(); }));
     }},
    {"strings: string_section \".data\"", "present",
     [](const rules::RuleSet &set) {
         return Present(StringCount(set, [](const rules::StringFeature &s) { return s.section_name == ".data"; }) > 0);
     }},
    {"strings: param_e", "0..3",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::strings, [](const rules::StringFeature &s) { return s.options; }));
     }},
    {"strings: param_f", "0..4096",
     [](const rules::RuleSet &set) {
         return Bounds(ValuesOf(set, &rules::Rule::strings, [](const rules::StringFeature &s) { return s.drift; }));
     }},
    {"strings: param_f multiple of 256", "most",
     [](const rules::RuleSet &set) {
         return Most(StringCount(set, [](const rules::StringFeature &s) { return IsBlockMultiple(s.drift); }),
                     StringElements(set));
     }},
    {"strings: param_f above 0 and multiple of 256", "most",
     [](const rules::RuleSet &set) {
         return Most(
             StringCount(set, [](const rules::StringFeature &s) { return s.drift != 0 && IsBlockMultiple(s.drift); }),
             StringCount(set, [](const rules::StringFeature &s) { return s.drift != 0; }));
     }},

    {"expression: rules with one", "772", [](const rules::RuleSet &set) { return Count(CountRules(set, HasExpression)); }},
    {"expression: rules without", "5756",
     [](const rules::RuleSet &set) { return Count(set.rules.size() - CountRules(set, HasExpression)); }},
    {"expression: distinct", "186", [](const rules::RuleSet &set) { return Count(DistinctExpressions(set).size()); }},
    {"expression: longest", "49",
     [](const rules::RuleSet &set) {
         return Count(LongestName(set, [](const rules::Rule &rule) { return rule.expression.size(); }));
     }},
    {"expression: malformed, or with a gap in its letters", "0",
     [](const rules::RuleSet &set) {
         return Count(CountRules(set, [](const rules::Rule &rule) {
             return HasExpression(rule) && !IsGapless(ExpressionLetters(rule.expression));
         }));
     }},
    {"expression: largest letter", "M", LargestLetter},
    {"expression: as many letters as strings", "769",
     [](const rules::RuleSet &set) {
         return Count(CountRules(set, [](const rules::Rule &rule) {
             return HasExpression(rule) && ExpressionLetters(rule.expression).size() == rule.strings.size();
         }));
     }},
    {"expression: more letters than strings", "0",
     [](const rules::RuleSet &set) {
         return Count(CountRules(set, [](const rules::Rule &rule) {
             return ExpressionLetters(rule.expression).size() > rule.strings.size();
         }));
     }},
    {"expression: the examples", "present",
     [](const rules::RuleSet &set) {
         return Examples(set, {"((A|B)&C)", "(A&(B|C))", "((A|B)&(C|D))", "(((A|B)&(C|D))&(E|F))"});
     }},
    {"expression: the short form and the spaced one", "present",
     [](const rules::RuleSet &set) { return Examples(set, {"(A|B)", "(A &((B|C)|D))"}); }},

    {"indexed_conditions: index", "0..10",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::indexed_conditions, [](const rules::IndexedCondition &c) { return c.index; }));
     }},
    {"indexed_conditions: field", "0..4",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::indexed_conditions, [](const rules::IndexedCondition &c) { return c.field; }));
     }},
    {"import_modules: index", "-1..20",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::import_modules, [](const rules::ImportModule &m) { return m.index; }));
     }},
    {"import_modules: option", "0, 1",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::import_modules, [](const rules::ImportModule &m) { return m.option; }));
     }},
    {"import_modules named KERNEL32.dll", "306",
     [](const rules::RuleSet &set) {
         return Count(CountOf(set, &rules::Rule::import_modules,
                              [](const rules::ImportModule &m) { return m.name == profile::kKernelName; }));
     }},
    {"elements named KERNEL32.dll", "306",
     [](const rules::RuleSet &set) { return Count(Named(set, profile::kKernelName)); }},
    {"import_modules: MSVBVM60.DLL", "present",
     [](const rules::RuleSet &set) { return Present(HasName(set, &rules::Rule::import_modules, "MSVBVM60.DLL")); }},
    {"import_functions: index", "0..10",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::import_functions, [](const rules::ImportFunction &f) { return f.index; }));
     }},
    {"import_functions: IsDebuggerPresent", "present",
     [](const rules::RuleSet &set) { return Present(HasName(set, &rules::Rule::import_functions, "IsDebuggerPresent")); }},
    {"export_module_names: lpk.dll", "present",
     [](const rules::RuleSet &set) { return Present(HasName(set, &rules::Rule::export_module_names, "lpk.dll")); }},
    {"export_functions: DllGetClassObject, ServiceMain", "present",
     [](const rules::RuleSet &set) {
         return Present(HasName(set, &rules::Rule::export_functions, "DllGetClassObject") &&
                        HasName(set, &rules::Rule::export_functions, "ServiceMain"));
     }},

    {"resource_entries: most frequent types", "3, 14, 2, 10, 5, 1",
     [](const rules::RuleSet &set) {
         return ByFrequency(Frequencies(set, &rules::Rule::resource_entries, [](const rules::ResourceEntry &e) { return e.type; }),
                            6);
     }},
    {"resource_entries: id 0xFFFFFFFF", "some",
     [](const rules::RuleSet &set) {
         return Some(CountOf(set, &rules::Rule::resource_entries, [](const rules::ResourceEntry &e) { return e.id == rules::kAnyResource; }),
                     CountAll(set, &rules::Rule::resource_entries));
     }},
    {"resource_entries: name empty", "most",
     [](const rules::RuleSet &set) {
         return Most(CountOf(set, &rules::Rule::resource_entries, [](const rules::ResourceEntry &e) { return e.name.empty(); }),
                     CountAll(set, &rules::Rule::resource_entries));
     }},
    {"resource_entries: named", "some",
     [](const rules::RuleSet &set) {
         return Some(CountOf(set, &rules::Rule::resource_entries, [](const rules::ResourceEntry &e) { return !e.name.empty(); }),
                     CountAll(set, &rules::Rule::resource_entries));
     }},
    {"resource_entries: most frequent languages", "1033, 0",
     [](const rules::RuleSet &set) {
         return ByFrequency(
             Frequencies(set, &rules::Rule::resource_entries, [](const rules::ResourceEntry &e) { return uint32_t{e.language}; }), 2);
     }},
    {"resource_type_entries: type 0xFFFFFFFF", "77 of 116",
     [](const rules::RuleSet &set) {
         return OutOf(CountOf(set, &rules::Rule::resource_type_entries,
                              [](const rules::ResourceTypeEntry &e) { return e.number == rules::kAnyResource; }),
                      CountAll(set, &rules::Rule::resource_type_entries));
     }},
    {"resource_type_entries: types 1, 101 and 777", "present",
     [](const rules::RuleSet &set) {
         const Values types =
             ValuesOf(set, &rules::Rule::resource_type_entries, [](const rules::ResourceTypeEntry &e) { return e.number; });
         return Present(types.contains(1) && types.contains(101) && types.contains(777));
     }},
    {"resource_type_entries: param_a", "1, 2",
     [](const rules::RuleSet &set) {
         return Text(
             ValuesOf(set, &rules::Rule::resource_type_entries, [](const rules::ResourceTypeEntry &e) { return e.level; }));
     }},
    {"resource_type_entries: param_b", "0, 1",
     [](const rules::RuleSet &set) {
         return Text(
             ValuesOf(set, &rules::Rule::resource_type_entries, [](const rules::ResourceTypeEntry &e) { return e.absent; }));
     }},
    {"resource_strings: types by frequency", "16, 24, 6",
     [](const rules::RuleSet &set) {
         return ByFrequency(Frequencies(set, &rules::Rule::resource_strings, [](const rules::ResourceString &s) { return s.type; }),
                            SIZE_MAX);
     }},
    {"resource_strings: key below 36", "1953 of 2005",
     [](const rules::RuleSet &set) {
         return OutOf(CountOf(set, &rules::Rule::resource_strings,
                              [](const rules::ResourceString &s) { return s.key < profile::kNamedStringKeyLimit; }),
                      CountAll(set, &rules::Rule::resource_strings));
     }},

    {"measure_conditions: param_a 60", "6796 of 7663",
     [](const rules::RuleSet &set) {
         return OutOf(CountOf(set, &rules::Rule::measure_conditions, [](const rules::MeasureCondition &m) { return m.region == 60; }),
                      CountAll(set, &rules::Rule::measure_conditions));
     }},
    {"measure_conditions: value_kind", "1, 2",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::measure_conditions,
                              [](const rules::MeasureCondition &m) { return static_cast<int>(m.measure); }));
     }},
    {"measure_conditions: op", "1, 4..6",
     [](const rules::RuleSet &set) { return Text(OperatorsOf(set, &rules::Rule::measure_conditions)); }},
    {"measure_conditions: values out of range", "0", [](const rules::RuleSet &set) { return Count(OddMeasures(set)); }},

    {"secondary_conditions: index", "0..39",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::secondary_conditions, [](const rules::SecondaryCondition &c) { return c.index; }));
     }},
    {"secondary_conditions: field", "0..43",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::secondary_conditions, [](const rules::SecondaryCondition &c) { return c.field; }));
     }},
    {"secondary_conditions: op", "1, 5, 6",
     [](const rules::RuleSet &set) { return Text(OperatorsOf(set, &rules::Rule::secondary_conditions)); }},
    {"object_names: index", "0..24",
     [](const rules::RuleSet &set) {
         return Bounds(ValuesOf(set, &rules::Rule::object_names, [](const rules::ObjectName &o) { return o.index; }));
     }},
    {"object_names: option", "0, 1",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::object_names, [](const rules::ObjectName &o) { return o.option; }));
     }},
    {"object_names: Form1, frmMain", "present",
     [](const rules::RuleSet &set) {
         return Present(HasName(set, &rules::Rule::object_names, "Form1") && HasName(set, &rules::Rule::object_names, "frmMain"));
     }},
    {"member_names: index at or beyond the object_names", "0",
     [](const rules::RuleSet &set) { return Count(MembersWithoutObject(set)); }},
    {"member_names: option", "0, 3",
     [](const rules::RuleSet &set) {
         return Text(ValuesOf(set, &rules::Rule::member_names, [](const rules::MemberName &m) { return m.option; }));
     }},
    {"member_names: Form_Load, DecryptString", "present",
     [](const rules::RuleSet &set) {
         return Present(HasName(set, &rules::Rule::member_names, "Form_Load") &&
                        HasName(set, &rules::Rule::member_names, "DecryptString"));
     }},
};

std::string ListSizes(std::size_t rules, std::size_t largest, std::size_t elements) {
    return "rules " + Count(rules) + ", largest " + Count(largest) + ", elements " + Count(elements);
}

FactResult CheckList(const rules::RuleSet &set, const ListProfile &list) {
    std::size_t rules = 0;
    std::size_t largest = 0;
    std::size_t elements = 0;
    for (const rules::Rule &rule : set.rules) {
        const std::size_t size = list.size(rule);
        rules += size != 0 ? 1U : 0U;
        largest = std::max(largest, size);
        elements += size;
    }
    return {list.name, ListSizes(list.rules, list.largest, list.elements), ListSizes(rules, largest, elements)};
}

} // namespace

std::span<const ListProfile> ListProfiles() {
    return kLists;
}

std::vector<FactResult> CheckProfile(const rules::RuleSet &rules) {
    std::vector<FactResult> results;
    for (const ListProfile &list : kLists)
        results.push_back(CheckList(rules, list));
    for (const Fact &fact : kFacts)
        results.push_back({fact.name, std::string(fact.expected), fact.actual(rules)});
    return results;
}

} // namespace tavrik::profile
