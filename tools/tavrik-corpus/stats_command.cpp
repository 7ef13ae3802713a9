#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <unordered_map>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "base/console.h"
#include "base/text.h"
#include "rules/names.h"
#include "rules/numbers.h"
#include "store/layout.h"
#include "store/store.h"
#include "tools/tavrik-corpus/commands.h"

namespace tavrik::corpus_tool {

namespace {

using ValueCounts = std::unordered_map<uint64_t, uint64_t>; // files by value

constexpr std::string_view kSectionName = "Name";

// The part of a store that a piece belongs to.
std::string_view GroupOf(uint32_t number) {
    if (number >= store::kFirstTokenPiece)
        return "names and texts";
    switch (number) {
    case store::kHeadPiece:
        return "heads";
    case store::kMoreSectionsPiece:
        return "sections";
    case store::kPathsPiece:
        return "paths";
    case store::kDigestsPiece:
        return "digests";
    default:
        break;
    }
    if (number < store::ValuesPiece(store::kFirstSectionColumn))
        return "header values";
    return number < store::ValuesPiece(store::kSizeColumn) ? "sections" : "sizes and times";
}

// The column of a header value, or of a field of a section as `section[2].VirtualSize`.
std::optional<uint16_t> ColumnOf(std::string_view name) {
    if (const rules::Field *field = rules::FindField(rules::HeaderFields(), name))
        return field->number;
    constexpr std::string_view kPrefix = "section[";
    if (!name.starts_with(kPrefix))
        return std::nullopt;
    std::size_t position = 0;
    const char *const end = name.data() + name.size();
    const auto [rest, error] = std::from_chars(name.data() + kPrefix.size(), end, position);
    const std::string_view after(rest, static_cast<std::size_t>(end - rest));
    if (error != std::errc() || position >= store::kColumnSections || !after.starts_with("]."))
        return std::nullopt;
    const std::string_view wanted = after.substr(2);
    if (wanted == kSectionName)
        return store::SectionColumn(position, 0);
    const rules::Field *field = rules::FindField(rules::SectionFields(), wanted);
    return field == nullptr ? std::nullopt : std::optional(store::SectionColumn(position, field->number));
}

bool IsNameColumn(uint16_t column) {
    return column >= store::kFirstSectionColumn && (column - store::kFirstSectionColumn) % store::kSectionColumns == 0;
}

void Count(store::Segment &segment, const store::SegmentEntry &entry, uint16_t column, ValueCounts &counts) {
    for (std::size_t row = 0; row < entry.rows; ++row)
        if (row >= entry.is_gone.size() || !entry.is_gone[row])
            if (const std::optional<uint64_t> value = segment.Value(column, static_cast<store::Row>(row)))
                ++counts[*value];
}

std::vector<std::pair<uint64_t, uint64_t>> Sorted(const ValueCounts &counts) {
    std::vector<std::pair<uint64_t, uint64_t>> sorted(counts.begin(), counts.end());
    std::ranges::sort(sorted, [](const auto &left, const auto &right) {
        return left.second != right.second ? left.second > right.second : left.first < right.first;
    });
    return sorted;
}

std::string NameText(uint64_t value) {
    const auto *bytes = reinterpret_cast<const char *>(&value);
    return base::Printable({bytes, strnlen(bytes, sizeof(value))});
}

void PrintFields(store::Store &store, const std::vector<store::SegmentEntry> &entries, bool json) {
    for (const rules::Field &field : rules::HeaderFields()) {
        ValueCounts counts;
        for (const store::SegmentEntry &entry : entries)
            Count(*store.Open(entry), entry, field.number, counts);
        if (counts.empty())
            continue;
        uint64_t files = 0;
        for (const auto &[value, count] : counts)
            files += count;
        const auto [value, most] = Sorted(counts).front();
        if (json)
            base::Print(nlohmann::ordered_json({{"field", field.name},
                                                {"files", files},
                                                {"values", counts.size()},
                                                {"most_common", value},
                                                {"files_with_it", most}})
                            .dump() +
                        "\n");
        else
            base::Print(fmt::format("{:<32} {:>10} files {:>10} values, {:#x} in {}\n", field.name, files,
                                    counts.size(), value, most));
    }
}

void PrintSetAside(const std::vector<store::Fault> &faults, bool json) {
    for (const store::Fault &fault : faults)
        base::Print(
            json ? nlohmann::ordered_json({{"set_aside", fault.path}, {"reason", fault.reason}})
                           .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
                       "\n"
                 : fmt::format("set aside: {}: {}\n", base::Printable(fault.path), base::Printable(fault.reason)));
}

} // namespace

int Stats(const std::filesystem::path &path, const StatsOptions &options) {
    store::Store store(path, store::Store::Access::Read);
    const std::vector<store::SegmentEntry> entries = store.Segments();
    uint64_t files = 0;
    uint64_t rows = 0;
    uint64_t pe = 0;
    for (const store::SegmentEntry &entry : entries) {
        files += entry.live();
        rows += entry.rows;
        ValueCounts flags;
        Count(*store.Open(entry), entry, store::kFlagsColumn, flags);
        for (const auto &[value, count] : flags)
            pe += (value & store::kIsPe) != 0 ? count : 0;
    }
    std::map<std::string_view, uint64_t> bytes;
    for (const store::PieceSize &size : store.PieceSizes())
        bytes[GroupOf(size.number)] += size.bytes;
    const std::vector<store::Fault> faults = store.Faults();
    if (options.json) {
        base::Print(nlohmann::ordered_json({{"files", files},
                                            {"pe", pe},
                                            {"gone", rows - files},
                                            {"set_aside", faults.size()},
                                            {"segments", entries.size()},
                                            {"bytes", store.size()},
                                            {"bytes_of", bytes}})
                        .dump() +
                    "\n");
    } else {
        const double per = rows == 0 ? 0 : 1 / static_cast<double>(rows);
        std::string text = fmt::format("{}, {} of them PE; {} gone, {} set aside; {}\n", base::CountText(files, "file"),
                                       pe, rows - files, faults.size(), base::CountText(entries.size(), "segment"));
        for (const auto &[group, size] : bytes)
            text += fmt::format("{:<16} {:>12} bytes, {:6.1f} a file\n", group, size, static_cast<double>(size) * per);
        text += fmt::format("{:<16} {:>12} bytes, {:6.1f} a file\n", "all", store.size(),
                            static_cast<double>(store.size()) * per);
        base::Print(text);
    }
    if (options.set_aside)
        PrintSetAside(faults, options.json);
    if (options.fields)
        PrintFields(store, entries, options.json);
    return kFine;
}

int Values(const std::filesystem::path &path, const std::string &field, std::size_t most, bool json) {
    const std::optional<uint16_t> column = ColumnOf(field);
    if (!column)
        throw base::Error(fmt::format("there is no field \"{}\"; docs/rule-semantics.md names them, and "
                                      "section[N].Name to section[N].Characteristics are stored for N up to {}",
                                      base::Printable(field), store::kColumnSections - 1));
    store::Store store(path, store::Store::Access::Read);
    ValueCounts counts;
    for (const store::SegmentEntry &entry : store.Segments())
        Count(*store.Open(entry), entry, *column, counts);
    std::vector<std::pair<uint64_t, uint64_t>> sorted = Sorted(counts);
    const std::size_t all = sorted.size();
    sorted.resize(std::min(most, sorted.size()));
    for (const auto &[value, count] : sorted) {
        const std::string name = IsNameColumn(*column) ? NameText(value) : "";
        if (json) {
            const nlohmann::ordered_json text =
                IsNameColumn(*column) ? nlohmann::ordered_json(name) : nlohmann::ordered_json(value);
            base::Print(nlohmann::ordered_json({{"value", text}, {"files", count}}).dump() + "\n");
        } else {
            const std::string text =
                IsNameColumn(*column) ? fmt::format("\"{}\"", name) : fmt::format("{:#x} ({})", value, value);
            base::Print(fmt::format("{:>10}  {}\n", count, text));
        }
    }
    if (!json)
        base::Print(fmt::format("{} of {}\n", base::CountText(all, "value"), base::Printable(field)));
    return all > 0 ? kFine : kFound;
}

} // namespace tavrik::corpus_tool
