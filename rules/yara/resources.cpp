// Conditions on the tree of resources. In them x counts entries and types, y languages of an entry.
#include <fmt/format.h>

#include "base/characters.h"
#include "pe/format.h"
#include "rules/yara/addresses.h"
#include "rules/yara/rule_writer.h"
#include "rules/yara/tables.h"

namespace tavrik::rules::yara {

using fmt::format;

namespace {

constexpr unsigned kMostEntries = 4096; // of one directory
constexpr unsigned kMostResources = 16384;
constexpr std::size_t kLongestLabel = 255; // UTF-16 units

// What a rule asks of a type or an entry: its number or its name. Nests one loop, over o.
Parts LabelTests(std::string_view directory, std::string_view index, uint32_t number, std::string_view name) {
    const std::string label = format("uint32({} + 16 + 8 * {})", directory, index);
    Parts parts;
    if (number != kAnyResource) {
        if (number >= pe::resource_directory::kFlag)
            Refuse("a condition that is never met");
        parts.push_back(format("{} == 0x{:X}", label, number));
    }
    if (name.empty())
        return parts;
    if (name.size() > kLongestLabel)
        Refuse("a condition that is never met");
    Parts units = {format("uint16(o) == {}", name.size())};
    for (std::size_t i = 0; i < name.size(); ++i) {
        const auto lower = static_cast<uint8_t>(base::LowerAscii(name[i]));
        const bool is_letter = lower >= 'a' && lower <= 'z';
        units.push_back(format("uint16(o + {}){} == 0x{:X}", 2 * i + 2, is_letter ? " | 0x20" : "", lower));
    }
    parts.push_back(
        format("{0} & 0x80000000 != 0 and for any o in (e + ({0} & 0x7FFFFFFF)) : ({1})", label, All(units)));
    return parts;
}

// What a rule asks of one resource.
struct Wanted {
    uint32_t type = kAnyResource;
    std::string_view type_name;
    uint32_t entry = kAnyResource;
    std::string_view entry_name;
    uint16_t language = 0; // 0: any
    uint32_t crc32 = 0;    // 0: any
};

// That there is such a resource in the table. Nests two loops besides one over e, and a third for a CRC-32.
std::string HasResource(const Wanted &wanted) {
    const std::string type = format("(x % {})", EntryCount("e"));
    const std::string entry = format("(x \\ {})", EntryCount("e"));
    const std::string entries = Subdirectory("e", type);
    const std::string languages = Subdirectory(entries, entry);
    Parts parts = LabelTests("e", type, wanted.type, wanted.type_name);
    parts.push_back(format("{} < {} and {}{}", type, kMostEntries, EntryTarget("e", type), kIsDirectory));
    parts.push_back(format("{} > {} and {}{}", EntryCount(entries), entry, EntryTarget(entries, entry), kIsDirectory));
    for (std::string &test : LabelTests(entries, entry, wanted.entry, wanted.entry_name))
        parts.push_back(std::move(test));
    const bool has_data = wanted.crc32 != 0;
    const std::string language = has_data ? format("(y \\ {})", kPlaces) : "y";
    const std::string leaf = EntryTarget(languages, language);
    Parts at_language = {leaf + " & 0x80000000 == 0"};
    if (wanted.language != 0)
        at_language.push_back(format("uint32({} + 16 + 8 * {}) == 0x{:X}", languages, language, wanted.language));
    if (has_data) {
        const std::string data = format("e + {}", leaf);
        const std::string rva = format("uint32({})", data);
        const std::string size = format("uint32({} + 4)", data);
        const std::string place = format("(y % {})", kPlaces);
        const std::string offset = MappedOffset(rva, place);
        at_language.push_back(
            format("{} + {} <= filesize and {} > 0", data, pe::resource_directory::kDataEntrySize, size));
        at_language.push_back(IsMapped(rva, place));
        at_language.push_back(format("for any o in ({0}) : (o + {1} <= filesize and hash.crc32(o, {1}) == 0x{2:X})",
                                     offset, size, wanted.crc32));
    }
    parts.push_back(format("for any y in (0..math.min({}, {}){} - 1) : ({})", EntryCount(languages), kMostEntries,
                           has_data ? format(" * {}", kPlaces) : "", All(at_language)));
    return format("for any x in (0..{} * {} - 1) : ({})", EntryCount("e"), MostEntries(), All(parts));
}

// A number of languages that no entry in the file exceeds: 1, 8, 64, 512 or 4096. Nests one loop, over x.
std::string MostLanguages() {
    const std::string types = EntryCount("e");
    const std::string type = format("(x % {})", types);
    const std::string entry = format("(x \\ {})", types);
    const std::string entries = Subdirectory("e", type);
    Parts parts;
    for (unsigned number = 1; number < kMostEntries; number *= 8)
        parts.push_back(format("math.to_number(for any x in (0..{} * m - 1) : ({}{} and {} > {} and {}{} and {} > {}))",
                               types, EntryTarget("e", type), kIsDirectory, EntryCount(entries), entry,
                               EntryTarget(entries, entry), kIsDirectory, EntryCount(Subdirectory(entries, entry)),
                               number));
    return format("1 << 3 * ({})", fmt::join(parts, " + "));
}

// That there are at least `count` resources; m is a number of entries under a type and l one of languages that suffice.
// Nests one loop.
std::string HasResources(uint64_t count) {
    if (count == 0)
        return "true";
    if (count > kMostResources)
        return "false";
    const std::string types = EntryCount("e");
    const std::string type = format("(y % {})", types);
    const std::string entry = format("(y \\ {} % m)", types);
    const std::string language = format("(y \\ ({} * m))", types);
    const std::string entries = Subdirectory("e", type);
    const std::string languages = Subdirectory(entries, entry);
    return format("for {} y in (0..{} * m * l - 1) : ({} < {} and {}{} and {} > {} and {}{} and {} > {} and {} & "
                  "0x80000000 == 0)",
                  count, types, type, kMostEntries, EntryTarget("e", type), kIsDirectory, EntryCount(entries), entry,
                  EntryTarget(entries, entry), kIsDirectory, EntryCount(languages), language,
                  EntryTarget(languages, language));
}

} // namespace

void RuleWriter::WriteResources() {
    for (const ResourceEntry &entry : rule_.resource_entries)
        AddAtTable(kResources, HasResource({entry.type, {}, entry.id, entry.name, entry.language, entry.crc32}),
                   entry.crc32 != 0 ? kMeasure : kDirectory);
    for (const ResourceTypeEntry &entry : rule_.resource_type_entries) {
        if (entry.absent > 1 || (entry.level != kResourceTypeLevel && entry.level != kResourceEntryLevel))
            Refuse("a condition that is never met");
        Wanted wanted;
        wanted.language = entry.language;
        const bool is_type = entry.level == kResourceTypeLevel;
        (is_type ? wanted.type : wanted.entry) = entry.number;
        (is_type ? wanted.type_name : wanted.entry_name) = entry.name;
        AddAtTable(kResources, HasResource(wanted), kDirectory, entry.absent == 1);
    }
}

void RuleWriter::WriteResourceCount(const Test &test) {
    // A file without the table has 0 resources.
    const bool or_absent = test.Accepts(0);
    const std::string asked = TestByBounds(test, HasResources);
    AddAtTable(kResources,
               format("for any m in ({}) : (for any l in ({}) : ({}))", MostEntries(), MostLanguages(),
                      or_absent ? "not (" + asked + ")" : asked),
               kDirectory, or_absent);
}

} // namespace tavrik::rules::yara
