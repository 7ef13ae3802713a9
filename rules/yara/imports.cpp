// Names and numbers of imports and exports, read from the tables.
#include <algorithm>
#include <charconv>
#include <optional>

#include <fmt/format.h>

#include "pe/format.h"
#include "rules/numbers.h"
#include "rules/yara/addresses.h"
#include "rules/yara/rule_writer.h"
#include "rules/yara/tables.h"

namespace tavrik::rules::yara {

using fmt::format;

namespace {

constexpr unsigned kMostDescriptors = 1024; // import descriptors that count
constexpr unsigned kMostFunctions = 4096;   // of one descriptor
constexpr unsigned kMostFunctionsInAll = 65536;
constexpr unsigned kMostExports = 16384; // names

// That the descriptor with index `d` is in the table. Nests one loop, over k.
std::string IsInTable(std::string_view d) {
    return format("e + 20 * {0} + 20 <= filesize and not for any k in (0..{0}) : (uint32(e + 20 * k + 12) == 0)", d);
}

// The body with the offset of a descriptor's module name. Nests one loop, over q, besides those of the body.
template <typename Body>
std::string AtModuleName(std::string_view descriptor, Body body) {
    const std::string rva = format("uint32({} + 12)", descriptor);
    return format("for any q in (0..{}) : ({} and {})", kLastPlace, IsMapped(rva, "q"), body(MappedOffset(rva, "q")));
}

std::string HasModuleName(std::string_view descriptor, const ImportModule &module) {
    return AtModuleName(descriptor, [&](const std::string &offset) {
        return IsNamed(offset, module.name, {(module.option & kNameCased) != 0, (module.option & kNamePrefix) != 0});
    });
}

// Of which of a descriptor's two arrays of thunks, `choice` 0 or 1, the functions are read.
std::string IsChosen(std::string_view descriptor, std::string_view choice) {
    const std::string original = format("uint32({})", descriptor);
    return format("({} == 0 or {} == 0 or not {})", choice, original, HasOffset(original));
}

// The number of a function imported by ordinal, "#3"; nothing for a name. Throws for an ordinal that there is not.
std::optional<uint32_t> OrdinalOf(std::string_view name) {
    const std::string_view digits = name.substr(std::min<std::size_t>(1, name.size()));
    if (!name.starts_with('#') || digits.empty() || digits.find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    uint32_t ordinal = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), ordinal);
    if (result.ec != std::errc() || ordinal > pe::kThunkOrdinalMask || (digits.size() > 1 && digits.front() == '0'))
        Refuse("an ordinal that there is not");
    return ordinal;
}

void CheckPresence(Operator op) {
    if (op != Operator::Equal && op != Operator::NotEqual)
        Refuse("an operator that is never met");
}

} // namespace

// A condition on what is in a table, where e is its offset, or that it is not met, be it that there is no such table.
void RuleWriter::AddAtTable(const Table &table, const std::string &body, Rank rank, bool is_not) {
    const std::string text = AtTable(table, body);
    Add(rank, false, is_not ? format("not ({})", text) : text);
}

// ---- Imports --------------------------------------------------------------------------------------------------------

void RuleWriter::WriteImportNames() {
    for (const ImportModule &module : rule_.import_modules) {
        CheckPresence(module.op);
        const bool is_not = module.op == Operator::NotEqual;
        if (module.index < -1 || module.index >= static_cast<int>(kMostDescriptors))
            Refuse("a condition that is never met");
        if (module.index == -1) {
            const std::string named = HasModuleName("e + 20 * x", module);
            AddAtTable(kImports,
                       format("for any x in (0..{} - 1) : ({} and {})", MostDescriptors(), named, IsInTable("x")),
                       kDirectory, is_not);
            continue;
        }
        const std::string descriptor = format("e + {}", 20 * module.index);
        std::string named = HasModuleName(descriptor, module);
        if (is_not)
            named = format("{} and not {}", AtModuleName(descriptor, IsName), named);
        AddAtTable(kImports, format("{} and {}", IsInTable(std::to_string(module.index)), named), kDirectory);
    }
    for (const ImportFunction &function : rule_.import_functions) {
        CheckPresence(function.op);
        AddAtTable(kImports, ImportsFunction(function), kDirectory, function.op == Operator::NotEqual);
    }
}

// x counts descriptors, unless the rule names the one, the two arrays of thunks, and places.
std::string RuleWriter::ImportsFunction(const ImportFunction &function) const {
    const ImportModule *module =
        function.index < rule_.import_modules.size() && rule_.import_modules[function.index].op == Operator::Equal
            ? &rule_.import_modules[function.index]
            : nullptr;
    const bool is_fixed = module != nullptr && module->index >= 0;
    const std::string index = is_fixed ? std::to_string(module->index) : format("(x \\ (2 * {}))", kPlaces);
    const std::string descriptor = format("e + 20 * {}", index);
    const std::string choice = format("(x \\ {} % 2)", kPlaces);
    const std::string place = format("(x % {})", kPlaces);
    const std::string rva = format("uint32({} + 16 * {})", descriptor, choice);
    Parts parts = {format("uint32({} + 12) != 0", descriptor), // else it is after the table
                   format("({} == 1 or uint32({}) != 0)", choice, descriptor), IsMapped(rva, place)};
    if (module != nullptr)
        parts.push_back(HasModuleName(descriptor, *module));
    parts.push_back(IsInTable(index));
    parts.push_back(IsChosen(descriptor, choice));
    parts.push_back(HasFunction(MappedOffset(rva, place), function.name));
    return format("for any x in (0..2 * {} * {} - 1) : ({})", is_fixed ? "1" : MostDescriptors(), kPlaces, All(parts));
}

// 4, or 8 in a 64-bit image.
std::string RuleWriter::ThunkSize() const {
    return magic_ == pe::kMagicPe32       ? "4"
           : magic_ == pe::kMagicPe32Plus ? "8"
                                          : "(4 + ((uint16(uint32(0x3C) + 0x18) & 0x200) >> 7))";
}

// That an array of thunks has this function. y counts thunks and the places of their names. Nests two loops.
std::string RuleWriter::HasFunction(const std::string &thunks, const std::string &name) const {
    const std::string size = ThunkSize();
    const auto low = [&](std::string_view index) { return format("uint32({} + {} * {})", thunks, size, index); };
    const auto high = [&](std::string_view index) {
        return size == "4" ? low(index) : format("uint32({} + {} * {} + {} - 4)", thunks, size, index, size);
    };
    const auto count = format("math.min({}, filesize \\ {})", kMostFunctions, size);
    const auto none_before = [&](std::string_view index) {
        return format("not for any k in (0..{}) : ({})", index,
                      size == "4" ? low("k") + " == 0" : format("{} | {} == 0", low("k"), high("k")));
    };
    if (const std::optional<uint32_t> ordinal = OrdinalOf(name))
        return format("for any y in (0..{} - 1) : ({} & 0x{:X} == 0x{:X} and {} & 0x80000000 != 0 and {})", count,
                      low("y"), pe::kThunkOrdinalMask, *ordinal, high("y"), none_before("y"));
    const std::string index = format("(y \\ {})", kPlaces);
    const std::string place = format("(y % {})", kPlaces);
    const std::string rva = format("({} & 0x{:X})", low(index), pe::kThunkRvaMask);
    return format("for any y in (0..{} * {} - 1) : ({} & 0x80000000 == 0 and {} and {} and {})", count, kPlaces,
                  high(index), IsMapped(rva, place), IsNamed(MappedOffset(rva, place) + " + 2", name),
                  none_before(index));
}

// ---- The number of functions ----------------------------------------------------------------------------------------

void RuleWriter::WriteImportFunctionCount(const Test &test) {
    // A file without the table has 0 functions.
    const bool or_absent = test.Accepts(0);
    const std::string asked = TestByBounds(test, [&](uint64_t value) { return HasFunctions(value); });
    AddAtTable(kImports, or_absent ? "not (" + asked + ")" : asked, kDirectory, or_absent);
}

// That at least `count` functions are imported. y counts descriptors, functions, the two arrays of thunks and places:
// each function is there once. Nests three loops.
std::string RuleWriter::HasFunctions(uint64_t count) const {
    if (count == 0)
        return "true";
    if (count > kMostFunctionsInAll)
        return "false";
    if (count > kMostFunctions)
        Refuse("ImportFunctionCount: too large a number");
    const std::string place = format("(y % {})", kPlaces);
    const std::string choice = format("(y \\ {} % 2)", kPlaces);
    const std::string function = format("(y \\ (2 * {}) % {})", kPlaces, count);
    const std::string index = format("(y \\ (2 * {} * {}))", kPlaces, count);
    const std::string descriptor = format("e + 20 * {}", index);
    const std::string rva = format("uint32({} + 16 * {})", descriptor, choice);
    const std::string size = ThunkSize();
    const std::string thunks = MappedOffset(rva, place);
    const auto thunk = [&](std::string_view at) {
        const std::string low = format("uint32({} + {} * {})", thunks, size, at);
        return size == "4" ? low : format("{} | uint32({} + {} * {} + {} - 4)", low, thunks, size, at, size);
    };
    const Parts parts = {format("uint32({} + 12) != 0", descriptor),
                         format("({} == 1 or uint32({}) != 0)", choice, descriptor),
                         IsMapped(rva, place),
                         format("{} != 0", thunk(function)),
                         IsInTable(index),
                         format("not for any k in (0..{} - 1) : ({} == 0)", function, thunk("k")),
                         IsChosen(descriptor, choice)};
    return format("for {} y in (0..{} * {} * 2 * {} - 1) : ({})", count, MostDescriptors(), count, kPlaces, All(parts));
}

// ---- Exports --------------------------------------------------------------------------------------------------------

void RuleWriter::WriteExportNames() {
    using namespace pe::export_directory;
    const auto add = [&](Operator op, const std::string &body) {
        CheckPresence(op);
        AddAtTable(kExports, format("e + {} <= filesize and {}", kSize, body), kDirectory, op == Operator::NotEqual);
    };
    for (const ExportName &module : rule_.export_module_names) {
        const std::string rva = format("uint32(e + {})", 4 * kName);
        add(module.op, format("for any q in (0..{}) : ({} and {})", kLastPlace, IsMapped(rva, "q"),
                              IsNamed(MappedOffset(rva, "q"), module.name, {.is_cased = false})));
    }
    for (const ExportName &function : rule_.export_functions) {
        const std::string names = format("uint32(e + {})", 4 * kAddressOfNames);
        const std::string place = format("(y % {})", kPlaces);
        const std::string rva = format("uint32({} + 4 * (y \\ {}))", MappedOffset(names, "x"), kPlaces);
        add(function.op,
            format("for any x in (0..{}) : ({} and for any y in (0..math.min(math.min({}, uint32(e + {})), "
                   "filesize \\ 4) * {} - 1) : ({} and {}))",
                   kLastPlace, IsMapped(names, "x"), kMostExports, 4 * kNumberOfNames, kPlaces, IsMapped(rva, place),
                   IsNamed(MappedOffset(rva, place), function.name)));
    }
}

} // namespace tavrik::rules::yara
