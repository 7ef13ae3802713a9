#include "host/report.h"

#include <fmt/format.h>
#include <iterator>
#include <nlohmann/json.hpp>

#include "host/locator_info.h"
#include "host/text.h"

namespace tavrik::host {

using Json = nlohmann::ordered_json;

namespace {

const char *StatusName(ScanStatus status) {
    switch (status) {
    case ScanStatus::Scanned:
        return "scanned";
    case ScanStatus::NotPe:
        return "not-pe";
    default:
        return "error";
    }
}

} // namespace

std::string TextLines(const FileReport &report) {
    std::string lines;
    for (const Finding &finding : report.findings)
        fmt::format_to(std::back_inserter(lines), "{}: entry {}, {}, offset {:#x}, size {}\n",
                       PrintablePath(report.file), finding.entry, KindName(finding.kind), finding.offset, finding.size);
    return lines;
}

std::string JsonLine(const FileReport &report) {
    Json line;
    line["file"] = PathText(report.file);
    line["size"] = report.size ? Json(*report.size) : Json(nullptr);
    line["status"] = StatusName(report.status);
    if (report.status == ScanStatus::Failed)
        line["error"] = report.error;
    Json &findings = line["findings"] = Json::array();
    for (const Finding &finding : report.findings)
        findings.push_back({{"entry", finding.entry},
                            {"kind", finding.kind},
                            {"kind_name", KindName(finding.kind)},
                            {"offset", finding.offset},
                            {"size", finding.size}});
    return line.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace tavrik::host
