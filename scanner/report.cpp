#include "scanner/report.h"

#include <iterator>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "base/console.h"
#include "base/text.h"
#include "scanner/clean_action.h"
#include "scanner/locator_info.h"

namespace tavrik::scanner {

using Json = nlohmann::ordered_json;

namespace {

const char *StatusName(ScanStatus status) {
    switch (status) {
    case ScanStatus::Scanned:
        return "scanned";
    case ScanStatus::NotPe:
        return "not-pe";
    case ScanStatus::Skipped:
        return "skipped";
    default:
        return "error";
    }
}

} // namespace

std::string TextLines(const FileReport &report, bool in_colour) {
    if (report.detections.empty() && report.findings.empty())
        return "";
    const std::string file = base::PrintablePath(report.file);
    std::string lines;
    const auto add = [&](base::Colour colour, const std::string &words) {
        fmt::format_to(std::back_inserter(lines), "{}: {}\n", file, base::Paint(in_colour, colour, words));
    };
    for (const Detection &detection : report.detections)
        add(base::Colour::Detection, fmt::format("rule {} \"{}\", action {}", detection.rule,
                                                 base::Printable(detection.name), ActionName(detection.action)));
    for (const Finding &finding : report.findings)
        add(base::Colour::Finding, fmt::format("entry {}, {}, offset {:#x}, size {}", finding.entry,
                                               KindName(finding.kind), finding.offset, finding.size));
    for (const CarvedPayload &carved : report.carved)
        add(base::Colour::Finding, fmt::format("carved offset {:#x}, size {}, to {}", carved.offset, carved.size,
                                               base::PrintablePath(carved.file)));
    return lines;
}

std::string JsonLine(const FileReport &report) {
    Json line;
    line["file"] = base::PathText(report.file);
    line["size"] = report.size ? Json(*report.size) : Json(nullptr);
    if (!report.sha256.empty())
        line["sha256"] = report.sha256;
    line["status"] = StatusName(report.status);
    if (report.status == ScanStatus::Failed)
        line["error"] = report.error;
    if (report.status == ScanStatus::Skipped)
        line["reason"] = report.error;
    Json &detections = line["detections"] = Json::array();
    for (const Detection &detection : report.detections)
        detections.push_back(
            {{"rule", detection.rule}, {"name", detection.name}, {"action", ActionName(detection.action)}});
    Json &findings = line["findings"] = Json::array();
    for (const Finding &finding : report.findings) {
        Json &object = findings.emplace_back(Json{{"entry", finding.entry},
                                                  {"kind", finding.kind},
                                                  {"kind_name", KindName(finding.kind)},
                                                  {"offset", finding.offset},
                                                  {"size", finding.size}});
        for (const CarvedPayload &carved : report.carved)
            if (carved.offset == finding.offset)
                object["carved"] = base::PathText(carved.file);
    }
    return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string ErrorLine(const std::filesystem::path &file, const std::string &reason, bool in_colour) {
    return fmt::format("tavrik-scan: {}: {}\n", base::PrintablePath(file),
                       base::Paint(in_colour, base::Colour::Error, base::Printable(reason)));
}

} // namespace tavrik::scanner
