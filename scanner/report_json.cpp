#include "scanner/report_json.h"

#include "base/text.h"
#include "scanner/clean_action.h"
#include "scanner/locator_info.h"
#include "scanner/report.h"

namespace tavrik::scanner {

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

Json ReportObject(const FileReport &report) {
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
    return line;
}

std::string LineOf(const Json &object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string JsonLine(const FileReport &report) {
    return LineOf(ReportObject(report));
}

} // namespace tavrik::scanner
