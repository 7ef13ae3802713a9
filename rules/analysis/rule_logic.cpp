#include "rules/analysis/rule_logic.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <limits>

#include "base/characters.h"
#include "pe/format.h"
#include "rules/lists.h"
#include "rules/names.h"
#include "rules/numbers.h"
#include "rules/regions.h"

namespace tavrik::rules::analysis {

namespace {

namespace field = header_field;

constexpr uint64_t kLargestWord = std::numeric_limits<uint32_t>::max();
constexpr uint64_t kLargestEntropy = 8000; // thousandths

// Traits that say the same as a condition on one value.
struct TraitCondition {
    uint32_t trait;
    uint64_t key;
    Operator op;
    uint32_t value;
};

constexpr uint64_t KeyOf(Item item, uint64_t rest) {
    return static_cast<uint64_t>(item) << 56 | rest;
}

constexpr uint64_t HeaderKey(uint16_t field) {
    return KeyOf(Item::Header, field);
}

constexpr uint64_t SectionKey(uint16_t selector, uint8_t field) {
    return KeyOf(Item::Sections, uint64_t{selector} << 8 | field);
}

constexpr TraitCondition kTraitConditions[] = {
    {trait::kOverlay, HeaderKey(field::kOverlaySize), Operator::AtLeast, 1},
    {trait::kWritableEntry, SectionKey(static_cast<uint16_t>(SectionRole::Entry), section_field::kCharacteristics),
     Operator::HasBits, pe::section_flag::kWrite},
    {trait::kExecutableLast, SectionKey(static_cast<uint16_t>(SectionRole::Last), section_field::kCharacteristics),
     Operator::HasBits, pe::section_flag::kExecute},
    {trait::kNativeCode, HeaderKey(field::kVbNativeCode), Operator::AtLeast, 1},
};

std::optional<uint64_t> LargestOf(std::span<const Field> fields, uint32_t number) {
    const Field *field = FindField(fields, number);
    return field == nullptr ? std::nullopt : std::optional((uint64_t{1} << 8 * field->width) - 1);
}

// What every PE file has for a value; nothing when some files do not have it at all.
std::optional<ValueSet> InEveryFile(uint64_t key) {
    if (key == HeaderKey(field::kDosMagic))
        return ValueSet(pe::kDosSignature, pe::kDosSignature);
    // Up to the Characteristics come the DOS header and the file header.
    if (key == HeaderKey(field::kFileSize) || key <= HeaderKey(field::kCharacteristics))
        if (key >= HeaderKey(0))
            return ValueSet(0, *LargestOf(HeaderFields(), static_cast<uint32_t>(key & 0xFFFF)));
    return std::nullopt;
}

// A section's name as a number, the first byte highest.
uint64_t NameNumber(std::string_view name) {
    uint64_t number = 0;
    for (std::size_t i = 0; i < kMaxSectionName; ++i)
        number = number << 8 | (i < name.size() ? static_cast<uint8_t>(name[i]) : 0U);
    return number;
}

bool IsNumbered(uint8_t measure_region) {
    const RegionKind kind = RegionOfMeasure(measure_region).kind;
    return kind == RegionKind::IndexedSection || kind == RegionKind::ResourceData;
}

// ---- Strings -------------------------------------------------------------------------------------------------------

// The positions that an occurrence may have.
struct Window {
    uint64_t first;
    uint64_t end; // UINT64_MAX: none
};

Window WindowOf(const StringFeature &string) {
    const uint64_t first = string.window_start > string.drift ? string.window_start - string.drift : 0;
    const uint64_t end =
        string.window_length == 0 ? UINT64_MAX : uint64_t{string.window_start} + string.window_length + string.drift;
    return {first, end};
}

bool IsSameRegion(const StringFeature &left, const StringFeature &right) {
    const Region *region = FindStringRegion(left.kind);
    return ForwardKind(left.kind) == ForwardKind(right.kind) && region != nullptr &&
           (region->argument != RegionArgument::Index || left.index == right.index) &&
           (region->argument != RegionArgument::Name || left.section_name == right.section_name);
}

// Wherever `left` is found, `right` is.
bool StringImplies(const StringFeature &left, const StringFeature &right) {
    const bool left_folds = (left.options & kStringNoCase) != 0;
    const bool right_folds = (right.options & kStringNoCase) != 0;
    if (left.bytes.size() != right.bytes.size() || ((left.options ^ right.options) & kStringWide) != 0 ||
        (left_folds && !right_folds))
        return false;
    for (std::size_t i = 0; i < left.bytes.size(); ++i) {
        if (right.mask[i])
            continue;
        const char l = right_folds ? base::LowerAscii(left.bytes[i]) : left.bytes[i];
        const char r = right_folds ? base::LowerAscii(right.bytes[i]) : right.bytes[i];
        if (left.mask[i] || l != r)
            return false;
    }
    const Window inner = WindowOf(left);
    const Window outer = WindowOf(right);
    if (outer.first == 0 && outer.end == UINT64_MAX)
        return ForwardKind(right.kind) == static_cast<uint8_t>(StringKind::File) || IsSameRegion(left, right);
    return left.kind == right.kind && IsSameRegion(left, right) && outer.first <= inner.first && inner.end <= outer.end;
}

// The sets of letters that make an expression true, as far as they are few. An expression that is well formed.
std::optional<std::vector<LetterSet>> WaysOf(std::string_view expression) {
    constexpr std::size_t kMostWays = 256;
    using Ways = std::vector<LetterSet>;
    std::vector<Ways> operands;
    std::string operators;
    for (const char c : expression) {
        if (IsStringLetter(c)) {
            operands.push_back({LetterSet{1} << (c - 'A')});
        } else if (c == '&' || c == '|') {
            operators.push_back(c);
        } else if (c == ')') {
            const Ways right = std::move(operands.back());
            operands.pop_back();
            Ways &left = operands.back();
            if (operators.back() == '|') {
                left.insert(left.end(), right.begin(), right.end());
            } else {
                Ways both;
                for (const LetterSet l : left)
                    for (const LetterSet r : right)
                        both.push_back(l | r);
                left = std::move(both);
            }
            operators.pop_back();
            std::ranges::sort(left);
            left.erase(std::unique(left.begin(), left.end()), left.end());
            if (left.size() > kMostWays)
                return std::nullopt;
        }
    }
    return operands.back();
}

std::optional<std::vector<LetterSet>> WaysOf(const Rule &rule) {
    const LetterSet all = rule.strings.empty() ? 0 : ~LetterSet{0} >> (32 - rule.strings.size());
    const LetterSet always = all & ~LettersOf(rule.expression);
    if (rule.expression.empty())
        return std::vector<LetterSet>{always};
    auto ways = WaysOf(std::string_view(rule.expression));
    if (ways)
        for (LetterSet &way : *ways)
            way |= always;
    return ways;
}

// ---- Marks ---------------------------------------------------------------------------------------------------------

uint64_t MarkOf(uint64_t key, std::string_view text = {}) {
    uint64_t mark = key ^ 0x9E3779B97F4A7C15;
    mark *= 0xFF51AFD7ED558CCD;
    mark ^= mark >> 32;
    return (mark + std::hash<std::string_view>()(text)) * 0xC4CEB9FE1A85EC53;
}

void MakeSet(std::vector<uint64_t> &marks) {
    std::ranges::sort(marks);
    marks.erase(std::unique(marks.begin(), marks.end()), marks.end());
}

} // namespace

RuleLogic::RuleLogic(const Rule &rule) : rule_(rule), ways_(WaysOf(rule)) {
    CollectConstraints();
    written_ = constraints_.size();
    CollectImplied();
    CollectMagic();
    Combine();
    FindRedundant();
    for (const NameConflict &conflict : FindNameConflicts(rule))
        Report(Conflict::Kind::Name, conflict.at, conflict.with);
    FindWindowConflicts();
    CollectMarks();
}

void RuleLogic::Report(Conflict::Kind kind, ElementOf at, std::optional<ElementOf> with) {
    conflicts_.push_back({kind, at, with});
    is_never_met_ = is_never_met_ || kind == Conflict::Kind::Value || kind == Conflict::Kind::Name;
}

template <typename Element, typename Describe>
void RuleLogic::Constrain(const std::vector<Element> &list, Item item, Describe describe) {
    for (std::size_t i = 0; i < list.size();) {
        const std::size_t first = i;
        const Asked asked = describe(list[first]);
        std::vector<uint64_t> values; // alternatives that can be
        bool is_too_wide = false;
        const auto take = [&](const Asked &each) {
            if (each.largest && each.value > *each.largest)
                is_too_wide = true;
            else if (each.largest)
                values.push_back(each.value);
        };
        take(asked);
        for (++i; i < list.size() && list[first].op == Operator::Equal && list[i].op == Operator::Equal; ++i) {
            const Asked next = describe(list[i]);
            if (next.key != asked.key || !next.is_single)
                break;
            take(next);
        }
        if (!asked.is_single)
            continue;
        const ValueSet set = list[first].op == Operator::Equal ? ValueSet::Of(values)
                             : asked.largest ? ValueSet::Meeting(list[first].op, asked.value, *asked.largest)
                                             : ValueSet::None();
        const bool opens_range = list[first].op == Operator::AtLeast && i < list.size() &&
                                 list[i].op == Operator::AtMost && describe(list[i]).key == asked.key;
        constraints_.push_back({asked.key, set, {item, first}, is_too_wide, opens_range});
    }
}

void RuleLogic::CollectConstraints() {
    Constrain(rule_.header_conditions, Item::Header, [](const HeaderCondition &e) {
        return Asked{HeaderKey(e.field), e.value, LargestOf(HeaderFields(), e.field)};
    });
    Constrain(rule_.section_conditions, Item::Sections, [](const SectionCondition &e) {
        return Asked{SectionKey(e.section, e.field), e.value, LargestOf(SectionFields(), e.field)};
    });
    Constrain(rule_.section_names, Item::SectionNames, [](const SectionNameCondition &e) {
        const bool is_known = e.op == Operator::Equal || e.op == Operator::NotEqual;
        return Asked{KeyOf(Item::SectionNames, e.section), NameNumber(e.name),
                     is_known ? std::optional(UINT64_MAX) : std::nullopt, !IsAnySection(e.section)};
    });
    Constrain(rule_.indexed_conditions, Item::ImportTable, [](const IndexedCondition &e) {
        return Asked{KeyOf(Item::ImportTable, uint64_t{e.index} << 8 | e.field), e.value,
                     LargestOf(ImportTableFields(), e.field)};
    });
    Constrain(rule_.secondary_conditions, Item::ObjectFields, [](const SecondaryCondition &e) {
        return Asked{KeyOf(Item::ObjectFields, uint64_t{e.index} << 8 | e.field), e.value,
                     LargestOf(ObjectFields(), e.field)};
    });
    Constrain(rule_.measure_conditions, Item::Measures, [](const MeasureCondition &e) {
        const uint64_t index = IsNumbered(e.region) ? e.index : 0;
        const uint64_t key = KeyOf(Item::Measures, uint64_t{e.region} << 48 | static_cast<uint64_t>(e.measure) << 40 |
                                                       index << 32 | e.length);
        if (FindMeasureRegion(e.region) == nullptr)
            return Asked{key, 0, std::nullopt};
        if (e.measure == Measure::Crc32)
            return Asked{key, e.bits & kLargestWord, kLargestWord};
        return Asked{key, EntropyThousandths(MeasureEntropy(e)),
                     e.op == Operator::HasBits ? std::nullopt : std::optional(kLargestEntropy)};
    });
}

// What traits say of values, and the sections and objects that a rule names.
void RuleLogic::CollectImplied() {
    const ElementOf traits = {Item::Traits, 0};
    traits_ = rule_.attribute_b;
    for (const TraitCondition &each : kTraitConditions) {
        if ((traits_ & each.trait) == 0)
            continue;
        traits_ &= ~each.trait;
        constraints_.push_back({each.key, ValueSet::Meeting(each.op, each.value, kLargestWord), traits, false});
    }
    if ((traits_ & ~trait::kAll) != 0)
        Report(Conflict::Kind::Value, traits);
    // A file without imports has few of them, too, but no count.
    const auto asks_count = [](const HeaderCondition &e) { return e.field == field::kImportFunctionCount; };
    if ((traits_ & trait::kFewImports) != 0 && std::ranges::any_of(rule_.header_conditions, asks_count))
        constraints_.push_back({HeaderKey(field::kImportFunctionCount), ValueSet(0, kFewImports), traits, false});

    const auto needs_section = [this](uint16_t selector, ElementOf at) {
        if (selector <= kMaxSectionIndex)
            constraints_.push_back(
                {HeaderKey(field::kNumberOfSections), ValueSet(uint64_t{selector} + 1, kLargestWord), at, false});
    };
    for (std::size_t i = 0; i < rule_.section_conditions.size(); ++i)
        needs_section(rule_.section_conditions[i].section, {Item::Sections, i});
    for (std::size_t i = 0; i < rule_.section_names.size(); ++i)
        needs_section(rule_.section_names[i].section, {Item::SectionNames, i});
    for (std::size_t i = 0; i < rule_.measure_conditions.size(); ++i)
        if (rule_.measure_conditions[i].region == static_cast<uint8_t>(MeasureRegion::IndexedSection))
            needs_section(rule_.measure_conditions[i].index, {Item::Measures, i});
    const auto needs_object = [this](uint16_t index, ElementOf at) {
        constraints_.push_back(
            {HeaderKey(field::kVbTotalObjects), ValueSet(uint64_t{index} + 1, kLargestWord), at, false});
    };
    for (std::size_t i = 0; i < rule_.secondary_conditions.size(); ++i)
        needs_object(rule_.secondary_conditions[i].index, {Item::ObjectFields, i});
    for (std::size_t i = 0; i < rule_.object_names.size(); ++i)
        needs_object(rule_.object_names[i].index, {Item::ObjectNames, i});
}

// Values that only one of the two forms of the optional header has.
void RuleLogic::CollectMagic() {
    const auto needs = [this](uint64_t magic, ElementOf at) {
        constraints_.push_back({HeaderKey(field::kMagic), ValueSet(magic, magic), at, false});
    };
    if ((rule_.attribute_b & (trait::kVisualBasic | trait::kNativeCode)) != 0)
        needs(pe::kMagicPe32, {Item::Traits, 0});
    for (std::size_t i = 0; i < rule_.header_conditions.size(); ++i) {
        const uint16_t number = rule_.header_conditions[i].field;
        if (number == field::kBaseOfData)
            needs(pe::kMagicPe32, {Item::Header, i});
        if (number == field::kImageBaseHigh)
            needs(pe::kMagicPe32Plus, {Item::Header, i});
    }
}

// Conditions on a value that follow from the rule's other conditions on it; the later one of equals.
void RuleLogic::FindRedundant() {
    struct Asks {
        Key key;
        ValueSet set;
        ElementOf at;
    };
    std::vector<Asks> all; // a range is one
    for (std::size_t i = 0; i < written_; ++i) {
        const Constraint &each = constraints_[i];
        const bool is_range = each.opens_range && i + 1 < written_ && constraints_[i + 1].key == each.key;
        all.push_back({each.key, is_range ? each.set.And(constraints_[i + 1].set) : each.set, each.at});
        i += is_range ? 1 : 0;
    }
    for (std::size_t i = all.size(); !is_never_met_ && i-- > 0;) {
        std::optional<ValueSet> others;
        std::optional<ElementOf> with;
        for (std::size_t other = 0; other < all.size(); ++other) {
            if (other == i || all[other].key != all[i].key)
                continue;
            others = others ? others->And(all[other].set) : all[other].set;
            with = with ? with : all[other].at;
        }
        if (!others || !others->IsWithin(all[i].set))
            continue;
        Report(Conflict::Kind::Redundant, all[i].at, with);
        all.erase(all.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

void RuleLogic::Combine() {
    std::map<Key, std::vector<const Constraint *>> by_key;
    for (const Constraint &constraint : constraints_)
        by_key[constraint.key].push_back(&constraint);
    for (const auto &[key, all] : by_key) {
        const std::optional<ValueSet> base = InEveryFile(key);
        ValueSet left = base.value_or(ValueSet(0, UINT64_MAX));
        for (std::size_t i = 0; i < all.size() && !left.IsEmpty(); ++i) {
            left = left.And(all[i]->set);
            if (!left.IsEmpty())
                continue;
            is_never_met_ = true;
            // The parser has warned about values that are too wide.
            if (std::ranges::any_of(all, [](const Constraint *each) { return each->is_too_wide; }))
                break;
            std::optional<ElementOf> with;
            for (std::size_t other = i; other-- > 0 && !all[i]->set.IsEmpty();)
                if (!with || all[other]->set.And(all[i]->set).IsEmpty())
                    with = all[other]->at;
            Report(Conflict::Kind::Value, all[i]->at, with);
        }
        if (!base || !base->IsWithin(left))
            values_.emplace(key, left);
    }
}

// The most bytes that a string's region can have in a file that meets the conditions on values.
std::optional<uint64_t> RuleLogic::LargestRegion(const StringFeature &string) const {
    std::optional<uint64_t> largest;
    const auto limit = [&](Key key) {
        const auto found = values_.find(key);
        if (found != values_.end() && !found->second.IsEmpty())
            largest = std::min(largest.value_or(UINT64_MAX), found->second.Greatest());
    };
    limit(HeaderKey(field::kFileSize));
    const CodedRegion region = RegionOfString(string.kind);
    switch (region.kind) {
    case RegionKind::Headers:
        limit(HeaderKey(field::kSizeOfHeaders));
        break;
    case RegionKind::Overlay:
        limit(HeaderKey(field::kOverlaySize));
        break;
    case RegionKind::RoleSection:
        limit(SectionKey(static_cast<uint16_t>(region.role), section_field::kSizeOfRawData));
        break;
    case RegionKind::IndexedSection: {
        limit(SectionKey(string.index, section_field::kSizeOfRawData));
        const auto sections = values_.find(HeaderKey(field::kNumberOfSections));
        if (sections != values_.end() && !sections->second.IsEmpty() && sections->second.Greatest() <= string.index)
            largest = 0; // there is no such section
        break;
    }
    case RegionKind::DosStub: {
        const auto found = values_.find(HeaderKey(field::kLfanew));
        if (found != values_.end() && !found->second.IsEmpty()) {
            const uint64_t end = found->second.Greatest();
            largest = std::min(largest.value_or(UINT64_MAX), end < pe::kDosHeaderSize ? 0 : end - pe::kDosHeaderSize);
        }
        break;
    }
    default:
        break;
    }
    return largest;
}

void RuleLogic::FindWindowConflicts() {
    for (std::size_t i = 0; i < rule_.strings.size(); ++i) {
        const StringFeature &string = rule_.strings[i];
        const auto largest = LargestRegion(string);
        const uint64_t length = string.bytes.size() * ((string.options & kStringWide) != 0 ? 2 : 1);
        if (largest && WindowOf(string).first + length > *largest)
            Report(Conflict::Kind::String, {Item::Strings, i});
    }
}

bool RuleLogic::IsAlwaysMet() const {
    bool asks_names = false;
    EachList(
        [&](auto, const auto &list) {
            if constexpr (requires { list.front().name; })
                asks_names = asks_names || !list.empty();
        },
        rule_);
    return !is_never_met_ && values_.empty() && traits_ == 0 && rule_.strings.empty() && !asks_names;
}

bool RuleLogic::Implies(const RuleLogic &other) const {
    return (other.traits_ & ~traits_) == 0 && ImpliesValues(other) && NamesImply(rule_, other.rule_) &&
           ImpliesStrings(other);
}

bool RuleLogic::ImpliesValues(const RuleLogic &other) const {
    return std::ranges::all_of(other.values_, [this](const auto &wanted) {
        const auto found = values_.find(wanted.first);
        return found != values_.end() && found->second.IsWithin(wanted.second);
    });
}

bool RuleLogic::ImpliesStrings(const RuleLogic &other) const {
    if (other.rule_.strings.empty())
        return true;
    if (!ways_ || !other.ways_)
        return rule_.strings == other.rule_.strings && rule_.expression == other.rule_.expression;
    std::vector<LetterSet> implied(rule_.strings.size()); // by each string
    for (std::size_t left = 0; left < rule_.strings.size(); ++left)
        for (std::size_t right = 0; right < other.rule_.strings.size(); ++right)
            if (StringImplies(rule_.strings[left], other.rule_.strings[right]))
                implied[left] |= LetterSet{1} << right;
    return std::ranges::all_of(*ways_, [&](LetterSet way) {
        LetterSet there = 0;
        for (; way != 0; way &= way - 1)
            there |= implied[static_cast<std::size_t>(std::countr_zero(way))];
        return std::ranges::any_of(*other.ways_, [there](LetterSet wanted) { return (wanted & ~there) == 0; });
    });
}

void RuleLogic::CollectMarks() {
    const auto add = [this](uint64_t mark, bool is_needed) {
        marks_.push_back(mark);
        if (is_needed)
            needed_marks_.push_back(mark);
    };
    for (const auto &[key, set] : values_) {
        add(MarkOf(key), true);
        if (const auto value = set.Single())
            add(MarkOf(MarkOf(key) ^ *value), true);
    }
    const LetterSet all = LettersOf(rule_.expression);
    const bool needs_all = rule_.expression.find('|') == std::string::npos;
    for (std::size_t i = 0; i < rule_.strings.size(); ++i) {
        const StringFeature &string = rule_.strings[i];
        if (string.mask.none())
            add(MarkOf(KeyOf(Item::Strings, 0), base::LowerAscii(string.bytes)), needs_all || (all >> i & 1) == 0);
    }
    for (const NameMark &name : NameMarks(rule_))
        add(MarkOf(KeyOf(name.item, 0), name.text), true);
    MakeSet(marks_);
    MakeSet(needed_marks_);
}

} // namespace tavrik::rules::analysis
