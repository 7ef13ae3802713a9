#include "rules/analysis/row_lints.h"

#include <algorithm>
#include <charconv>

namespace tavrik::rules::analysis {

namespace {

std::string Letter(std::size_t string) {
    return {static_cast<char>('A' + string)};
}

// Whether a name that begins with '#' is an ordinal: 0 to 65535 in decimal, without leading zeros.
bool IsOrdinal(std::string_view name) {
    const std::string_view digits = name.substr(1);
    uint16_t ordinal = 0;
    const char *const last = digits.data() + digits.size();
    const auto [end, error] = std::from_chars(digits.data(), last, ordinal);
    return end == last && error == std::errc{} && (digits.size() == 1 || digits.front() != '0');
}

} // namespace

std::vector<RowLint> FindRowLints(const Rule &rule) {
    std::vector<RowLint> found;
    if (rule.detection_name.empty())
        found.push_back({text::Code::W513, std::nullopt, "this rule has no detection name",
                         "its findings could not be told apart from those of others; name it"});
    for (std::size_t i = 0; i < rule.strings.size(); ++i) {
        const StringFeature &string = rule.strings[i];
        if (string.mask.count() == string.bytes.size())
            found.push_back({text::Code::W510, ElementOf{Item::Strings, i},
                             "string " + Letter(i) + " is wildcards only: any bytes match it",
                             "give at least one byte"});
        const auto same = std::ranges::find(rule.strings, string);
        if (same != rule.strings.begin() + static_cast<std::ptrdiff_t>(i))
            found.push_back({text::Code::W511, ElementOf{Item::Strings, i},
                             "string " + Letter(i) + " is the same as string " +
                                 Letter(static_cast<std::size_t>(same - rule.strings.begin())),
                             "use one of them"});
    }
    for (std::size_t i = 0; i < rule.import_functions.size(); ++i) {
        const std::string &name = rule.import_functions[i].name;
        if (name.starts_with('#') && !IsOrdinal(name))
            found.push_back({text::Code::W512, ElementOf{Item::ImportFunctions, i}, "this is not an ordinal",
                             "ordinals are written \"#0\" to \"#65535\", without leading zeros"});
    }
    return found;
}

} // namespace tavrik::rules::analysis
