#include <array>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "base/text.h"
#include "scanner/clean_action.h"
#include "scanner/locator_info.h"
#include "scanner/near_report.h"
#include "scanner/report.h"

namespace tavrik::scanner {

namespace {

// The columns, in their order.
enum Column {
    FileName,
    Size,
    Sha256,
    Status,
    Truncated,
    Result,
    Rule,
    Name,
    Action,
    Entries,
    Description,
    Offset,
    Length,
    Complete,
    Encrypted,
    Code,
    Text,
    Conditions
};
constexpr std::array kColumns = {"file",   "size",     "sha256",    "status",     "truncated",   "result",
                                 "rule",   "name",     "action",    "entries",    "description", "offset",
                                 "length", "complete", "encrypted", "error_code", "error",       "conditions"};
using Row = std::array<std::string, kColumns.size()>;

// A field of RFC 4180. Spreadsheets take what begins with these characters for a formula, and a file's name is its
// author's choice.
std::string Field(const std::string &text) {
    std::string field = text;
    if (!field.empty() && std::string_view("=+-@\t\r").find(field.front()) != std::string_view::npos)
        field.insert(field.begin(), '\'');
    if (field.find_first_of(",\"\r\n") == std::string::npos)
        return field;
    std::string quoted = "\"";
    for (const char letter : field)
        quoted += letter == '"' ? std::string("\"\"") : std::string(1, letter);
    return quoted + '"';
}

template <typename Fields>
std::string Line(const Fields &fields) {
    std::string line;
    for (const auto &field : fields)
        line += (line.empty() ? "" : ",") + Field(field);
    return line + '\n';
}

const char *YesNo(bool value) {
    return value ? "yes" : "no";
}

// What a payload and a near miss have in common.
Row PlaceRow(const Row &common, uint32_t kind, uint64_t offset, const std::optional<payloads::Extent> &extent) {
    Row row = common;
    row[Description] = KindName(kind);
    row[Offset] = fmt::format("{}", offset);
    if (extent) {
        row[Description] = base::Printable(extent->description);
        row[Length] = fmt::format("{}", extent->length);
        row[Complete] = YesNo(extent->complete);
        row[Encrypted] = YesNo(extent->encrypted);
    }
    return row;
}

Row PayloadRow(const Row &common, const Payload &payload) {
    Row row = PlaceRow(common, payload.kind, payload.offset, payload.extent);
    row[Result] = "payload";
    row[Entries] = fmt::format("{}", fmt::join(payload.entries, " "));
    return row;
}

Row NearRow(const Row &common, const NearMiss &miss) {
    Row row = PlaceRow(common, miss.kind, miss.offset, miss.extent);
    row[Result] = miss.status == NearMiss::Status::NearMiss ? "near-miss" : "unknown-build";
    for (const MissedEntry &missed : miss.entries)
        row[Entries] += fmt::format("{}{}", row[Entries].empty() ? "" : " ", missed.entry);
    for (const FailedCondition &condition : miss.entries.front().failed)
        row[Conditions] += (row[Conditions].empty() ? "" : "; ") + base::Printable(ConditionText(condition));
    return row;
}

} // namespace

std::string CsvHeader() {
    return Line(kColumns);
}

std::string CsvLines(const FileReport &report) {
    Row common;
    common[FileName] = base::PrintablePath(report.file);
    if (report.size)
        common[Size] = fmt::format("{}", *report.size);
    common[Sha256] = report.sha256;
    common[Status] = StatusName(report.status);
    if (report.missing_bytes)
        common[Truncated] = YesNo(*report.missing_bytes > 0);
    if (!report.error.empty()) {
        common[Code] = base::ErrorCodeName(report.error_code);
        common[Text] = base::Printable(report.error);
    }
    std::string lines;
    for (const Detection &detection : report.detections) {
        Row row = common;
        row[Result] = "detection";
        row[Rule] = fmt::format("{}", detection.rule);
        row[Name] = base::Printable(detection.name);
        row[Action] = ActionName(detection.action);
        lines += Line(row);
    }
    for (const Payload &payload : report.payloads)
        lines += Line(PayloadRow(common, payload));
    for (const NearMiss &miss : report.near.value_or(std::vector<NearMiss>{}))
        lines += Line(NearRow(common, miss));
    return lines.empty() ? Line(common) : lines;
}

} // namespace tavrik::scanner
