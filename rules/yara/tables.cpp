#include "rules/yara/tables.h"

#include <fmt/format.h>

#include "rules/yara/addresses.h"
#include "rules/yara/conditions.h"

namespace tavrik::rules::yara {

using fmt::format;

namespace {

constexpr unsigned kOffsetBits = 32; // the engine scans no larger files

// A power of two that nothing in a file exceeds. A private rule for each smaller one says that something exceeds it.
struct Bound {
    const Table &table;
    std::string_view word; // in the names of the rules
    unsigned least;
    unsigned most; // more do not count

    std::string RuleOver(unsigned number) const { return format("{}_{}_over_{}", table.name, word, number); }

    std::string Text() const {
        Parts parts;
        for (unsigned number = least; number < most; number *= 2)
            parts.push_back(format("math.to_number({})", RuleOver(number)));
        return format("({} << ({}))", least, fmt::join(parts, " + "));
    }

    // `is_over` writes that something in the file exceeds a number.
    template <typename IsOver>
    std::string Rules(std::string_view rules, IsOver is_over) const {
        std::string text;
        if (rules.find(RuleOver(least)) == std::string_view::npos)
            return text;
        std::string before(table.name);
        for (unsigned number = least; number < most; number *= 2) {
            text += format("\nprivate rule {} {{\n    condition:\n        {} and {}\n}}\n", RuleOver(number), before,
                           AtTable(table, is_over(number)));
            before = RuleOver(number);
        }
        return text;
    }
};

constexpr Bound kDescriptors = {kImports, "modules", 8, 1024};
constexpr Bound kEntries = {kResources, "entries", 8, 4096};

std::string BitRule(const Table &table, unsigned bit) {
    return format("{}_bit_{}", table.name, bit);
}

} // namespace

std::string AtTable(const Table &table, std::string_view body) {
    Parts bits;
    for (unsigned bit = 0; bit < kOffsetBits; ++bit)
        bits.push_back(format("(math.to_number({}) << {})", BitRule(table, bit), bit));
    return format("{} and for any e in ({}) : ({})", table.name, fmt::join(bits, " + "), body);
}

std::string MostDescriptors() {
    return kDescriptors.Text();
}

std::string MostEntries() {
    return kEntries.Text();
}

std::string EntryCount(std::string_view directory) {
    return format("(uint16({0} + 12) + uint16({0} + 14))", directory);
}

std::string EntryTarget(std::string_view directory, std::string_view index) {
    return format("uint32({} + 20 + 8 * {})", directory, index);
}

std::string Subdirectory(std::string_view directory, std::string_view index) {
    return format("(e + ({} & 0x7FFFFFFF))", EntryTarget(directory, index));
}

std::string TableRules(const Table &table, std::string_view guard, std::string_view rva, std::string_view rules) {
    if (rules.find(table.name) == std::string_view::npos)
        return "";
    const std::string offset = MappedOffset(rva, "i");
    const std::string loop = format("for any i in (0..{}) : ({}", kLastPlace, IsMapped(rva, "i"));
    std::string text =
        format("\nprivate rule {} {{\n    condition:\n        pe_file and {} and {} != 0 and\n        {} "
               "and {} < filesize)\n}}\n",
               table.name, guard, rva, loop, offset);
    for (unsigned bit = 0; bit < kOffsetBits; ++bit)
        text += format("\nprivate rule {} {{\n    condition:\n        {} and {} and ({}) & 0x{:X} != 0)\n}}\n",
                       BitRule(table, bit), table.name, loop, offset, uint32_t{1} << bit);
    if (table.field == kImports.field)
        text += kDescriptors.Rules(rules, [](unsigned number) { return HasDescriptors("e", number + 1); });
    if (table.field == kResources.field)
        text += kEntries.Rules(rules, [](unsigned number) {
            return format("for any a in (0..math.min({}, {}) - 1) : ({}{} and {} > {})", EntryCount("e"), kEntries.most,
                          EntryTarget("e", "a"), kIsDirectory, EntryCount(Subdirectory("e", "a")), number);
        });
    return text;
}

} // namespace tavrik::rules::yara
