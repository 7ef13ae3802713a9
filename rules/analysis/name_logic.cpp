#include "rules/analysis/name_logic.h"

#include <algorithm>
#include <string_view>

#include "base/characters.h"

namespace tavrik::rules::analysis {

namespace {

constexpr uint16_t kAnySection = static_cast<uint16_t>(SectionRole::Any);

template <typename Element>
bool Asks(const Element &element) {
    return element.op == Operator::Equal;
}

template <typename Element>
bool RulesOut(const Element &element) {
    return element.op == Operator::NotEqual;
}

// ---- Names with options --------------------------------------------------------------------------------------------

// Every name that `left` accepts is accepted by `right`.
template <typename Element>
bool NameImplies(const Element &left, const Element &right) {
    const bool is_cased = (right.option & kNameCased) != 0;
    const bool is_prefix = (right.option & kNamePrefix) != 0;
    if ((is_cased && (left.option & kNameCased) == 0) || (!is_prefix && (left.option & kNamePrefix) != 0))
        return false;
    std::string_view name = left.name;
    if (is_prefix)
        name = name.substr(0, right.name.size());
    return is_cased ? name == right.name : base::IsEqualIgnoringCase(name, right.name);
}

// No name is accepted by both.
template <typename Element>
bool AreDisjoint(const Element &left, const Element &right) {
    std::string_view l = left.name;
    std::string_view r = right.name;
    if ((left.option & kNamePrefix) != 0)
        r = r.substr(0, l.size());
    if ((right.option & kNamePrefix) != 0)
        l = l.substr(0, r.size());
    const bool is_cased = (left.option & right.option & kNameCased) != 0;
    return is_cased ? l != r : !base::IsEqualIgnoringCase(l, r);
}

// Of two elements that ask about names at positions of the file (-1: any): `left` being met, so is `right`.
template <typename Element>
bool PositionedNameImplies(const Element &left, const Element &right) {
    const int l = left.index;
    const int r = right.index;
    if (Asks(right))
        return Asks(left) && (r == -1 || l == r) && NameImplies(left, right);
    if (!RulesOut(right) || l != r)
        return false;
    return RulesOut(left) ? NameImplies(right, left) : Asks(left) && r != -1 && AreDisjoint(left, right);
}

template <typename Element>
bool PositionedNamesConflict(const Element &left, const Element &right) {
    const int l = left.index;
    const int r = right.index;
    if (Asks(left) && Asks(right))
        return l == r && l != -1 && AreDisjoint(left, right);
    const Element &asked = Asks(left) ? left : right;
    const Element &ruled_out = Asks(left) ? right : left;
    return Asks(asked) && RulesOut(ruled_out) && (ruled_out.index == -1 || l == r) && NameImplies(asked, ruled_out);
}

// ---- Import functions ----------------------------------------------------------------------------------------------

// The element of import_modules that a function is looked for in; null: in any descriptor.
const ImportModule *ModuleOf(const Rule &rule, const ImportFunction &function) {
    return function.index < rule.import_modules.size() && Asks(rule.import_modules[function.index])
               ? &rule.import_modules[function.index]
               : nullptr;
}

// The descriptors that `left` is looked for in are among those of `right`.
bool IsNarrower(const ImportModule *left, const ImportModule *right) {
    return right == nullptr || (left != nullptr && PositionedNameImplies(*left, *right));
}

bool FunctionImplies(const Rule &left_rule, const ImportFunction &left, const Rule &right_rule,
                     const ImportFunction &right) {
    if (left.name != right.name || left.op != right.op)
        return false;
    const ImportModule *l = ModuleOf(left_rule, left);
    const ImportModule *r = ModuleOf(right_rule, right);
    return Asks(right) ? IsNarrower(l, r) : RulesOut(right) && IsNarrower(r, l);
}

bool FunctionsConflict(const Rule &rule, const ImportFunction &asked, const ImportFunction &ruled_out) {
    return Asks(asked) && RulesOut(ruled_out) && asked.name == ruled_out.name &&
           IsNarrower(ModuleOf(rule, asked), ModuleOf(rule, ruled_out));
}

// ---- Resources -----------------------------------------------------------------------------------------------------

// A number, name and language, of which some may be any: what `left` accepts, `right` accepts.
bool IsWithin(uint32_t left_number, std::string_view left_name, uint32_t right_number, std::string_view right_name) {
    return (right_number == kAnyResource || left_number == right_number) &&
           (right_name.empty() || base::IsEqualIgnoringCase(left_name, right_name));
}

bool IsLanguageWithin(uint16_t left, uint16_t right) {
    return right == 0 || left == right;
}

bool ResourceImplies(const ResourceEntry &left, const ResourceEntry &right) {
    return (right.type == kAnyResource || left.type == right.type) &&
           IsWithin(left.id, left.name, right.id, right.name) && IsLanguageWithin(left.language, right.language) &&
           (right.crc32 == 0 || left.crc32 == right.crc32);
}

bool StringImplies(const ResourceString &left, const ResourceString &right) {
    return left.type == right.type && left.key == right.key && left.text == right.text &&
           IsWithin(left.id, left.name, right.id, right.name) && IsLanguageWithin(left.language, right.language);
}

// Of two that say where a resource is: what `left` accepts, `right` accepts.
bool IsTypeWithin(const ResourceTypeEntry &left, const ResourceTypeEntry &right) {
    return left.level == right.level && IsWithin(left.number, left.name, right.number, right.name) &&
           IsLanguageWithin(left.language, right.language);
}

bool TypeImplies(const ResourceTypeEntry &left, const ResourceTypeEntry &right) {
    return left.absent == right.absent && right.absent <= 1 &&
           (right.absent == 0 ? IsTypeWithin(left, right) : IsTypeWithin(right, left));
}

// Whether a resource, of a ResourceEntry or a ResourceString, lies where `absent` says that there is none.
template <typename Element>
bool IsRuledOut(const Element &resource, const ResourceTypeEntry &absent) {
    if (absent.absent != 1 || !IsLanguageWithin(resource.language, absent.language))
        return false;
    return absent.level == kResourceTypeLevel    ? IsWithin(resource.type, "", absent.number, absent.name)
           : absent.level == kResourceEntryLevel ? IsWithin(resource.id, resource.name, absent.number, absent.name)
                                                 : false;
}

// ---- Other names ---------------------------------------------------------------------------------------------------

bool ExportModuleImplies(const ExportName &left, const ExportName &right) {
    if (left.op == right.op)
        return base::IsEqualIgnoringCase(left.name, right.name);
    return Asks(left) && RulesOut(right) && !base::IsEqualIgnoringCase(left.name, right.name);
}

// The position of the object that a member's row means; nothing without such a row.
std::optional<uint16_t> ObjectOf(const Rule &rule, const MemberName &member) {
    return member.index < rule.object_names.size() ? std::optional(rule.object_names[member.index].index)
                                                   : std::nullopt;
}

bool MemberImplies(const Rule &left_rule, const MemberName &left, const Rule &right_rule, const MemberName &right) {
    const auto object = ObjectOf(right_rule, right);
    return object && object == ObjectOf(left_rule, left) && left.op == right.op &&
           (Asks(right) ? NameImplies(left, right) : RulesOut(right) && NameImplies(right, left));
}

// Whether an element names a section without an alternative.
bool IsAlone(const std::vector<SectionNameCondition> &list, std::size_t element) {
    const auto differs = [&](std::size_t other) {
        return other >= list.size() || list[other].section != list[element].section || !Asks(list[other]);
    };
    return differs(element + 1) && differs(element - 1); // 0 - 1 is beyond the list
}

// A section that is so named is surely among those that `any` looks at.
bool NamesOneOf(const std::vector<SectionNameCondition> &list, std::size_t element, const SectionNameCondition &any) {
    const SectionNameCondition &named = list[element];
    return Asks(named) && named.name == any.name &&
           (named.section == any.section ||
            (any.section == kAnySection && (IsAnySection(named.section) || IsAlone(list, element))));
}

bool SectionNamesImply(const std::vector<SectionNameCondition> &left, const std::vector<SectionNameCondition> &right) {
    return std::ranges::all_of(right, [&](const SectionNameCondition &wanted) {
        if (!IsAnySection(wanted.section))
            return true;
        for (std::size_t i = 0; i < left.size(); ++i)
            if (left[i] == wanted || (Asks(wanted) && NamesOneOf(left, i, wanted)))
                return true;
        return false;
    });
}

// ---- Lists ---------------------------------------------------------------------------------------------------------

// Each element of `right` is implied by one of `left`.
template <typename Element, typename Implies>
bool ListImplies(const std::vector<Element> &left, const std::vector<Element> &right, Implies implies) {
    return std::ranges::all_of(right, [&](const Element &wanted) {
        return std::ranges::any_of(left, [&](const Element &given) { return implies(given, wanted); });
    });
}

class ConflictFinder {
public:
    explicit ConflictFinder(const Rule &rule) : rule_(rule) {}

    std::vector<NameConflict> Find() {
        FindOperators(rule_.import_modules, Item::ImportModules);
        FindOperators(rule_.import_functions, Item::ImportFunctions);
        FindOperators(rule_.export_module_names, Item::ExportModule);
        FindOperators(rule_.export_functions, Item::ExportFunctions);
        FindOperators(rule_.object_names, Item::ObjectNames);
        FindOperators(rule_.member_names, Item::MemberNames);

        FindPairs(rule_.import_modules, Item::ImportModules, PositionedNamesConflict<ImportModule>);
        FindPairs(rule_.import_functions, Item::ImportFunctions, [this](const auto &left, const auto &right) {
            return FunctionsConflict(rule_, left, right) || FunctionsConflict(rule_, right, left);
        });
        FindPairs(rule_.export_functions, Item::ExportFunctions, [](const auto &left, const auto &right) {
            return left.name == right.name && ((Asks(left) && RulesOut(right)) || (RulesOut(left) && Asks(right)));
        });
        FindPairs(rule_.object_names, Item::ObjectNames, PositionedNamesConflict<ObjectName>);
        FindPairs(rule_.member_names, Item::MemberNames, [this](const auto &left, const auto &right) {
            const MemberName &asked = Asks(left) ? left : right;
            const MemberName &ruled_out = Asks(left) ? right : left;
            return Asks(asked) && RulesOut(ruled_out) && ObjectOf(rule_, asked) == ObjectOf(rule_, ruled_out) &&
                   NameImplies(asked, ruled_out);
        });
        FindSectionNames();
        FindResources();
        return std::move(conflicts_);
    }

private:
    // Names know two operators.
    template <typename Element>
    void FindOperators(const std::vector<Element> &list, Item item) {
        for (std::size_t i = 0; i < list.size(); ++i)
            if (!Asks(list[i]) && !RulesOut(list[i]))
                conflicts_.push_back({{item, i}, std::nullopt});
    }

    template <typename Element, typename Conflicts>
    void FindPairs(const std::vector<Element> &list, Item item, Conflicts conflicts) {
        for (std::size_t i = 0; i < list.size(); ++i)
            for (std::size_t other = 0; other < i; ++other)
                if (conflicts(list[other], list[i])) {
                    conflicts_.push_back({{item, i}, ElementOf{item, other}});
                    break;
                }
    }

    void FindSectionNames() {
        const auto &list = rule_.section_names;
        for (std::size_t i = 0; i < list.size(); ++i) {
            if (!IsAnySection(list[i].section))
                continue;
            if (!Asks(list[i]) && !RulesOut(list[i]))
                conflicts_.push_back({{Item::SectionNames, i}, std::nullopt});
            for (std::size_t other = 0; RulesOut(list[i]) && other < list.size(); ++other)
                if (NamesOneOf(list, other, list[i]))
                    conflicts_.push_back(
                        {{Item::SectionNames, std::max(i, other)}, ElementOf{Item::SectionNames, std::min(i, other)}});
        }
    }

    void FindResources() {
        const auto &types = rule_.resource_type_entries;
        for (std::size_t i = 0; i < types.size(); ++i)
            if (types[i].absent > 1 || (types[i].level != kResourceTypeLevel && types[i].level != kResourceEntryLevel))
                conflicts_.push_back({{Item::ResourceTypes, i}, std::nullopt});
        FindPairs(types, Item::ResourceTypes, [](const auto &left, const auto &right) {
            return (left.absent == 0 && right.absent == 1 && IsTypeWithin(left, right)) ||
                   (left.absent == 1 && right.absent == 0 && IsTypeWithin(right, left));
        });
        FindRuledOut(rule_.resource_entries, Item::Resources);
        FindRuledOut(rule_.resource_strings, Item::ResourceStrings);
    }

    template <typename Element>
    void FindRuledOut(const std::vector<Element> &list, Item item) {
        const auto &types = rule_.resource_type_entries;
        for (std::size_t i = 0; i < list.size(); ++i)
            for (std::size_t type = 0; type < types.size(); ++type)
                if (IsRuledOut(list[i], types[type]))
                    conflicts_.push_back({{item, i}, ElementOf{Item::ResourceTypes, type}});
    }

    const Rule &rule_;
    std::vector<NameConflict> conflicts_;
};

} // namespace

std::vector<NameConflict> FindNameConflicts(const Rule &rule) {
    return ConflictFinder(rule).Find();
}

bool NamesImply(const Rule &left, const Rule &right) {
    return SectionNamesImply(left.section_names, right.section_names) &&
           ListImplies(left.import_modules, right.import_modules, PositionedNameImplies<ImportModule>) &&
           ListImplies(left.import_functions, right.import_functions,
                       [&](const auto &l, const auto &r) { return FunctionImplies(left, l, right, r); }) &&
           ListImplies(left.export_module_names, right.export_module_names, ExportModuleImplies) &&
           ListImplies(left.export_functions, right.export_functions, std::equal_to<>()) &&
           ListImplies(left.resource_entries, right.resource_entries, ResourceImplies) &&
           ListImplies(left.resource_type_entries, right.resource_type_entries, TypeImplies) &&
           ListImplies(left.resource_strings, right.resource_strings, StringImplies) &&
           ListImplies(left.object_names, right.object_names, PositionedNameImplies<ObjectName>) &&
           ListImplies(left.member_names, right.member_names,
                       [&](const auto &l, const auto &r) { return MemberImplies(left, l, right, r); });
}

std::vector<NameMark> NameMarks(const Rule &rule) {
    std::vector<NameMark> marks;
    const auto add = [&marks](Item item, std::string_view text) { marks.push_back({item, base::LowerAscii(text)}); };
    const auto add_names = [&](Item item, const auto &list) {
        for (const auto &element : list)
            if (Asks(element) && (element.option & kNamePrefix) == 0)
                add(item, element.name);
    };
    add_names(Item::ImportModules, rule.import_modules);
    add_names(Item::ObjectNames, rule.object_names);
    add_names(Item::MemberNames, rule.member_names);
    for (const ImportFunction &function : rule.import_functions)
        add(Item::ImportFunctions, function.name);
    for (const ExportName &function : rule.export_functions)
        add(Item::ExportFunctions, function.name);
    for (const ResourceString &string : rule.resource_strings)
        add(Item::ResourceStrings, string.text);
    return marks;
}

} // namespace tavrik::rules::analysis
