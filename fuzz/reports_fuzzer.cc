// Reports with any texts in them, such as the names of files and of members: JSON must be valid and give back what it
// was made of, a table must have its columns, and no line for a terminal may hold a control character.

#include <algorithm>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>

#include <nlohmann/json.hpp>

#include "base/text.h"
#include "scanner/report.h"
#include "scanner/scan.h"

namespace {

using namespace tavrik;

void Require(bool holds) {
    if (!holds)
        std::abort();
}

std::string Text(FuzzedDataProvider &input) {
    return input.ConsumeRandomLengthString(64);
}

scanner::FileReport Take(FuzzedDataProvider &input, unsigned depth) {
    scanner::FileReport report;
    report.file = Text(input);
    report.status = input.PickValueInArray({scanner::ScanStatus::Scanned, scanner::ScanStatus::NotPe,
                                            scanner::ScanStatus::Skipped, scanner::ScanStatus::Failed});
    if (input.ConsumeBool())
        report.parent = Text(input);
    if (input.ConsumeBool())
        report.size = input.ConsumeIntegral<uint64_t>();
    report.error = Text(input);
    report.error_code = static_cast<base::ErrorCode>(
        input.ConsumeIntegralInRange<int>(0, static_cast<int>(base::ErrorCode::Count) - 1));
    if (input.ConsumeBool())
        report.notes.push_back({"searched-in-part", Text(input)});
    if (input.ConsumeBool())
        report.findings.push_back({input.ConsumeIntegral<uint32_t>(), input.ConsumeIntegral<uint32_t>(),
                                   input.ConsumeIntegral<uint32_t>(), input.ConsumeIntegral<uint32_t>()});
    if (input.ConsumeBool()) {
        scanner::Payload &payload = report.payloads.emplace_back();
        payload.kind = input.ConsumeIntegral<uint32_t>();
        payload.offset = input.ConsumeIntegral<uint64_t>();
        payload.entries = {input.ConsumeIntegral<uint32_t>()};
        payload.not_carved = Text(input);
        if (input.ConsumeBool()) {
            const uint64_t length = input.ConsumeIntegral<uint64_t>();
            scanner::payloads::Extent &extent = payload.extent.emplace();
            extent.description = Text(input);
            extent.offset = payload.offset;
            extent.length = length;
            extent.present = input.ConsumeIntegralInRange<uint64_t>(0, length);
        }
        if (input.ConsumeBool())
            payload.carved.emplace().file = Text(input);
    }
    while (depth > 0 && input.ConsumeBool())
        report.inside.push_back(Take(input, --depth));
    return report;
}

bool IsPlain(const std::string &text) {
    return std::none_of(text.begin(), text.end(), [](char letter) {
        const auto code = static_cast<unsigned char>(letter);
        return (code < 0x20 && letter != '\n') || code == 0x7F;
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const scanner::FileReport report = Take(input, 3);
    const std::string line = scanner::JsonLine(report);
    Require(line.find('\n') == std::string::npos && base::IsUtf8(line));
    const auto object = nlohmann::json::parse(line);
    if (const std::string name = report.file.string(); base::IsUtf8(name))
        Require(object.at("file") == name);
    Require(object.at("size").is_null() == !report.size);
    Require(!report.size || object.at("size") == *report.size);
    Require(object.at("findings").size() == report.findings.size() &&
            object.at("payloads").size() == report.payloads.size());
    // Quotes come in pairs, and a row ends outside of them.
    const std::string rows = scanner::CsvLines(report);
    Require(std::count(rows.begin(), rows.end(), '"') % 2 == 0 && (rows.empty() || rows.back() == '\n'));
    Require(IsPlain(scanner::TextLines(report, false)) && IsPlain(scanner::NoteLines(report, true)) &&
            IsPlain(scanner::ErrorLine(report.file, report.error, false)) && IsPlain(rows));
    scanner::ReportLines(report, scanner::ReportFormat::JsonLines, false);
    return 0;
}
