#include "tests/support/golden.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>

#include <fmt/format.h>

#include "base/system.h"
#include "samples/gate_values.h"

namespace tavrik::tests {

using namespace tavrik2;

namespace {

// ---- Fields by their bytes -----------------------------------------------------------------------------------------

struct RecordBytes {
    const char *name;
    std::size_t offset; // in HostRecords
    std::size_t size;
};

using samples::HostRecords;

constexpr RecordBytes kRecords[] = {
    {"data_dirs", offsetof(HostRecords, data_dirs), sizeof(HostRecords::data_dirs)},
    {"file_header", offsetof(HostRecords, file_header), sizeof(HostRecords::file_header)},
    {"opt_header", offsetof(HostRecords, opt_header), sizeof(HostRecords::opt_header)},
    {"first_section", offsetof(HostRecords, first_section), sizeof(HostRecords::first_section)},
    {"last_section", offsetof(HostRecords, last_section), sizeof(HostRecords::last_section)},
    {"entry_code", offsetof(HostRecords, entry_code), sizeof(HostRecords::entry_code)},
};

// "opt_header 4 4" for the field that reads these bytes, the first the lowest; found out byte by byte.
std::string ProbePlace(Field field) {
    std::string place;
    uint32_t width = 0;
    for (const RecordBytes &record : kRecords) {
        for (std::size_t byte = 0; byte < record.size; ++byte) {
            HostRecords records = {};
            reinterpret_cast<uint8_t *>(&records)[record.offset + byte] = 0xFF;
            const uint64_t value = FieldValue(field, records.View(nullptr, 0));
            if (value == 0)
                continue;
            if (value != uint64_t{0xFF} << (8 * width++))
                return "bytes out of order";
            if (width == 1)
                place = fmt::format("{} {}", record.name, byte);
        }
    }
    return fmt::format("{} {}", place, width);
}

// The place of a field by its name in gates.txt.
std::string GoldenPlace(const std::string &name) {
    const std::size_t bracket = name.find('[');
    if (bracket != std::string::npos) {
        const auto index = GoldenNumber(name.substr(bracket + 1, name.size() - bracket - 2));
        const int width = name.starts_with("data_dirs") ? 4 : 1;
        return fmt::format("{} {} {}", name.substr(0, bracket), index * width, width);
    }
    const std::size_t dot = name.find('.');
    if (dot != std::string::npos) {
        for (const GoldenLine &line : GoldenBlock("searches.txt", "op SectionHeader"))
            if (line.words[0] == name.substr(dot + 1))
                return fmt::format("{} {} {}", name.substr(0, dot), line.words[1], line.words[2]);
    } else {
        for (const GoldenLine &line : ReadGolden("host_records.txt"))
            if (line.words[3] == name)
                return fmt::format("{} {} {}", line.words[0], line.words[1], line.words[2]);
    }
    return "unknown";
}

Field FieldNamed(const std::string &name) {
    if (name == "stream")
        return Field::Stream;
    if (name == "file_size")
        return Field::FileSize;
    static const auto fields = [] {
        std::map<std::string, Field> by_place;
        for (std::size_t number = 0; number < kFieldCount; ++number)
            if (const auto field = static_cast<Field>(number); field != Field::Stream && field != Field::FileSize)
                by_place[ProbePlace(field)] = field;
        return by_place;
    }();
    const auto found = fields.find(GoldenPlace(name));
    if (found == fields.end())
        throw std::invalid_argument(name + ": no field reads these bytes");
    return found->second;
}

// ---- Rows ----------------------------------------------------------------------------------------------------------

GateRow MakeRow(Field field, uint64_t mask, uint64_t lo, uint64_t hi) {
    return {mask, lo, hi - lo, field, RowKind::Condition, Heading::None, 0, 0};
}

GateRow NameRow(Field field, const std::string &text, bool ignoring_case) {
    GateRow row = MakeRow(field, 0, 0, 0);
    for (std::size_t byte = 0; byte <= text.size(); ++byte) {
        const uint64_t character = byte < text.size() ? static_cast<unsigned char>(text[byte]) : 0;
        const bool free_case = ignoring_case && std::isalpha(static_cast<int>(character)) != 0;
        const uint64_t mask = free_case ? 0xDF : 0xFF;
        row.mask |= mask << (8 * byte);
        row.lo |= (character & mask) << (8 * byte);
    }
    return row;
}

GateRow RangeRow(Field field, const std::vector<std::string> &words) {
    const auto number = [&](std::size_t word) { return static_cast<uint64_t>(GoldenNumber(words.at(word))); };
    const uint64_t most = field == Field::FileSize ? uint64_t{INT32_MAX} : ~uint64_t{0};
    const std::string &first = words.at(0);
    if (first == "present")
        return MakeRow(field, ~uint64_t{0}, 1, most);
    if (first == "all")
        return MakeRow(field, number(1), number(1), number(1));
    if (first == "name" || first == "name_ignoring_case")
        return NameRow(field, GoldenText(words.at(1)), first != "name");
    if (first == "wrapping") // + A > B
        return MakeRow(field, ~uint64_t{0}, number(4) - number(2) + 1, most - number(2));
    const std::size_t dots = first.find("..");
    if (dots == std::string::npos)
        return MakeRow(field, ~uint64_t{0}, number(0), number(0));
    const std::string low = first.substr(0, dots);
    const std::string high = first.substr(dots + 2);
    return MakeRow(field, ~uint64_t{0}, low.empty() ? 0 : static_cast<uint64_t>(GoldenNumber(low)),
                   high.empty() ? most : static_cast<uint64_t>(GoldenNumber(high)));
}

using Lines = std::vector<GoldenLine>;

void AddRanges(std::vector<GateRow> &rows, const GoldenLine &line) {
    const Field field = FieldNamed(line.words[0]);
    std::vector<std::string> words;
    for (std::size_t word = 1; word <= line.words.size(); ++word) {
        if (word < line.words.size() && line.words[word] != "|") {
            words.push_back(line.words[word]);
            continue;
        }
        rows.push_back(RangeRow(field, words));
        rows.back().kind = word < line.words.size() ? RowKind::Range : RowKind::Condition;
        words.clear();
    }
}

GateRow HeadingRow(const std::vector<std::string> &words) {
    GateRow row = {0, 0, 0, Field::None, RowKind::Next, Heading::None, 0, 0};
    if (words.size() == 3) {
        row.heading = words[1] == "profile"   ? Heading::Profile
                      : words[1] == "variant" ? Heading::Variant
                                              : Heading::SectionCount;
        row.span =
            words[1] == "profile" ? static_cast<uint64_t>(words[2][0]) : static_cast<uint64_t>(GoldenNumber(words[2]));
    }
    return row;
}

// The rows from lines[at] on that are indented as far as that line is, or farther.
void AddRows(std::vector<GateRow> &rows, const Lines &lines, std::size_t &at) {
    const std::size_t indent = lines[at].indent;
    while (at < lines.size() && lines[at].indent >= indent) {
        const GoldenLine &line = lines[at++];
        if (line.words[0] == "any") {
            for (; at < lines.size() && lines[at].indent > line.indent; ++at) {
                AddRanges(rows, lines[at]);
                rows.back().kind = RowKind::Range;
            }
            rows.back().kind = RowKind::Condition;
        } else if (line.words[0] == "either") {
            const std::size_t begin = rows.size();
            while (at < lines.size() && lines[at].indent > line.indent) {
                const GoldenLine &column = lines[at++];
                rows.push_back(HeadingRow(column.words));
                if (rows.back().heading == Heading::SectionCount)
                    rows.push_back(MakeRow(Field::NumberOfSections, ~uint64_t{0}, rows.back().span, rows.back().span));
                AddRows(rows, lines, at);
            }
            rows[begin].kind = RowKind::Begin;
            rows.push_back({0, 0, 0, Field::None, RowKind::End, Heading::None, 0, 0});
        } else {
            AddRanges(rows, line);
        }
    }
}

} // namespace

std::vector<GateRow> GoldenGate(uint32_t entry) {
    const Lines lines = GoldenBlock("gates.txt", fmt::format("entry {}", entry));
    std::vector<GateRow> rows;
    for (std::size_t at = 0; at < lines.size();)
        AddRows(rows, lines, at);
    return rows;
}

} // namespace tavrik::tests
