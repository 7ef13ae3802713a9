#include "database/name_compiler/name_tables.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <map>
#include <set>

#include <fmt/format.h>

#include "tavrik2/rules/name_tables.h"

namespace tavrik::name_compiler {
namespace {

using namespace tavrik2;

constexpr size_t kNoLimit = std::numeric_limits<size_t>::max();
constexpr size_t kLongestName = sizeof(NameEntry) - 1;
constexpr char kStoredAsZero = static_cast<char>(0x100 - kStoredShift);

// A section of texts, one a line, all different.
struct ListRule {
    std::string_view section;
    Words &words;
    uint32_t count;
    size_t longest; // in bytes
    bool stored;    // kept in stored form, which cannot hold every byte
};

class Builder {
public:
    Builder(const std::vector<Section> &sections, Sources &sources) : sources_(sources) {
        for (const Section &section : sections) {
            if (!sections_.emplace(section.name, &section).second)
                sources_.Report(section.place, fmt::format("section [{}] occurs twice", section.name));
        }
    }

    NameTables Build();

private:
    const std::vector<Entry> &Take(std::string_view section, uint32_t count);
    void ReadList(const ListRule &rule);
    std::vector<DetectionRow> ReadDetections(std::string_view section, uint32_t count);
    void ReadPairs();
    void ReadPackers();

    bool ReadText(const Field &field, size_t longest, std::string &text);
    bool ReadNumber(const Field &field, int base, uint32_t highest, uint32_t &number);
    bool Find(const Field &field, size_t table, size_t &index);
    bool HasFields(const Entry &entry, size_t least, size_t most, std::string_view form);

    Sources &sources_;
    std::map<std::string_view, const Section *> sections_;
    std::set<std::string> detections_;
    NameTables tables_;
};

// The entries of a section that must be there and have `count` of them.
const std::vector<Entry> &Builder::Take(std::string_view section, uint32_t count) {
    static const std::vector<Entry> none;
    const auto found = sections_.find(section);
    if (found == sections_.end()) {
        sources_.Report({}, fmt::format("no source has the section [{}]", section));
        return none;
    }
    const Section &taken = *found->second;
    sections_.erase(found);
    if (taken.entries.size() != count) {
        sources_.Report(taken.place, fmt::format("section [{}] has {} entries, but the module carries {} "
                                                 "(the sizes are in tavrik2/rules/name_tables.h)",
                                                 section, taken.entries.size(), count));
    }
    return taken.entries;
}

bool Builder::HasFields(const Entry &entry, size_t least, size_t most, std::string_view form) {
    if (entry.fields.size() >= least && entry.fields.size() <= most)
        return true;
    const Field &at = entry.fields[std::min(entry.fields.size() - 1, most)];
    sources_.Report(at.place, fmt::format("expected {}", form));
    return false;
}

bool Builder::ReadText(const Field &field, size_t longest, std::string &text) {
    text = field.value;
    if (!field.quoted)
        sources_.Report(field.place, "expected a text in quotes");
    else if (text.empty())
        sources_.Report(field.place, "the text is empty");
    else if (text.find('\0') != text.npos)
        sources_.Report(field.place, "a text cannot hold the byte 0, which ends it");
    else if (text.size() > longest)
        sources_.Report(field.place, fmt::format("the text has {} bytes, more than {}", text.size(), longest));
    else
        return true;
    return false;
}

bool Builder::ReadNumber(const Field &field, int base, uint32_t highest, uint32_t &number) {
    const char *const end = field.value.data() + field.value.size();
    const auto [stop, error] = std::from_chars(field.value.data(), end, number, base);
    if (!field.quoted && error == std::errc() && stop == end && number <= highest)
        return true;
    sources_.Report(field.place, base == 16 ? std::string("expected a byte as two hex digits")
                                            : fmt::format("expected a number up to {}", highest));
    return false;
}

bool Builder::Find(const Field &field, size_t table, size_t &index) {
    const Words &names = tables_.names[table];
    const auto found = std::find(names.begin(), names.end(), field.value);
    if (!field.quoted || found == names.end()) {
        sources_.Report(field.place, fmt::format("expected a text of NameTable{}", table + 1));
        return false;
    }
    index = static_cast<size_t>(found - names.begin());
    return true;
}

void Builder::ReadList(const ListRule &rule) {
    std::set<std::string> seen;
    for (const Entry &entry : Take(rule.section, rule.count)) {
        std::string text;
        if (!HasFields(entry, 1, 1, "one text") || !ReadText(entry.fields[0], rule.longest, text))
            continue;
        if (!seen.insert(text).second)
            sources_.Report(entry.fields[0].place, fmt::format("[{}] has this text already", rule.section));
        if (rule.stored && text.find(kStoredAsZero) != text.npos)
            sources_.Report(entry.fields[0].place,
                            "a name cannot hold the byte 253: its stored form is 0, which ends the name");
        rule.words.push_back(std::move(text));
    }
}

std::vector<DetectionRow> Builder::ReadDetections(std::string_view section, uint32_t count) {
    std::vector<DetectionRow> rows;
    for (const Entry &entry : Take(section, count)) {
        DetectionRow row;
        if (!HasFields(entry, 3, 3, "a detection, a text of NameTable1 and a text of NameTable2") ||
            !ReadText(entry.fields[0], kNoLimit, row.detection) || !Find(entry.fields[1], 0, row.first) ||
            !Find(entry.fields[2], 1, row.second))
            continue;
        row.gen = row.detection.ends_with(".Gen");
        if (!row.detection.starts_with("PUA.") || (!row.gen && !row.detection.ends_with(".DC")))
            sources_.Report(entry.fields[0].place, "a detection is \"PUA.\", a name, and \".Gen\" or \".DC\"");
        if (!detections_.insert(row.detection).second)
            sources_.Report(entry.fields[0].place, "another row has this detection already");
        rows.push_back(std::move(row));
    }
    return rows;
}

void Builder::ReadPairs() {
    for (const Entry &entry : Take("NamePairTable", kNamePairs)) {
        PairRow row;
        if (HasFields(entry, 2, 2, "a text of NameTable3 and a text of NameTable4") &&
            Find(entry.fields[0], 2, row.first) && Find(entry.fields[1], 3, row.second))
            tables_.pairs.push_back(row);
    }
}

void Builder::ReadPackers() {
    constexpr size_t kFieldsBeforePattern = 4;
    std::set<std::vector<uint8_t>> seen;
    for (const Entry &entry : Take("PackerSignatures", kPackerSignatures)) {
        PackerRow row;
        uint32_t param = 0;
        uint32_t kind = 0;
        if (!HasFields(
                entry, kFieldsBeforePattern + 1, kFieldsBeforePattern + kLongestPackerPattern,
                fmt::format("a number, a packer, a param, a kind, and 1 to {} pattern bytes", kLongestPackerPattern)) ||
            !ReadNumber(entry.fields[0], 10, kPackerSignatures, row.id) ||
            !ReadText(entry.fields[1], kNoLimit, row.packer) ||
            !ReadNumber(entry.fields[2], 10, kLargestPackerParam, param) ||
            !ReadNumber(entry.fields[3], 10, PACKER_PATTERN_AFTER, kind))
            continue;
        if (row.id != tables_.packers.size() + 1)
            sources_.Report(entry.fields[0].place, "packer signatures are numbered from 1 without a gap");
        if (kind != PACKER_PATTERN_AT && kind != PACKER_PATTERN_AFTER)
            sources_.Report(entry.fields[3].place, "expected kind 0 or 2");
        row.param = static_cast<uint8_t>(param);
        row.kind = static_cast<uint8_t>(kind);
        for (size_t index = kFieldsBeforePattern; index < entry.fields.size(); ++index) {
            uint32_t byte = 0;
            if (!ReadNumber(entry.fields[index], 16, 0xFF, byte))
                break;
            row.pattern.push_back(static_cast<uint8_t>(byte));
        }
        if (!seen.insert(row.pattern).second)
            sources_.Report(entry.fields[kFieldsBeforePattern].place, "another packer has this pattern already");
        tables_.packers.push_back(std::move(row));
    }
}

NameTables Builder::Build() {
    NameTables &to = tables_;
    const ListRule lists[] = {
        {"NameTable1", to.names[0], kNameTable1Entries, kLongestName, true},
        {"NameTable2", to.names[1], kNameTable2Entries, kLongestName, true},
        {"NameTable3", to.names[2], kNameTable3Entries, kLongestName, true},
        {"NameTable4", to.names[3], kNameTable4Entries, kLongestName, true},
        {"ModuleNames", to.module_names, kModuleNames, kNoLimit, false},
        {"Keywords", to.keywords, kKeywords, kNoLimit, false},
        {"ProductWords", to.product_words, kProductWords, kNoLimit, false},
        {"VisualBasicRuntimes", to.word_lists[0], kVisualBasicRuntimes, kNoLimit, false},
        {"Wildcards", to.word_lists[1], kWildcards, kNoLimit, false},
        {"ExecutionLevels", to.word_lists[2], kExecutionLevels, kNoLimit, false},
        {"FunctionNames", to.function_names, kFunctionNames, kFunctionNameSlot - 1, false},
        {"SectionNames", to.section_names, kSectionNames, kSectionNameSlot, false},
    };
    for (const ListRule &list : lists)
        ReadList(list);
    ReadPackers();
    // A wrong name would be reported again by every row that refers to it.
    if (sources_.Failed())
        return {};
    to.detections = ReadDetections("NameDetectionMap", kNameDetections);
    to.second_detections = ReadDetections("SecondNameDetectionMap", kSecondNameDetections);
    ReadPairs();
    for (const auto &[name, section] : sections_)
        sources_.Report(section->place, fmt::format("the database has no section [{}]", name));
    return std::move(tables_);
}

} // namespace

NameTables BuildNameTables(const std::vector<Section> &sections, Sources &sources) {
    return Builder(sections, sources).Build();
}

} // namespace tavrik::name_compiler
