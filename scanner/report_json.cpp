#include "scanner/report_json.h"

#include "base/text.h"
#include "scanner/clean_action.h"
#include "scanner/locator_info.h"
#include "scanner/near_report.h"
#include "scanner/payload_report.h"
#include "scanner/report.h"

namespace tavrik::scanner {

void AddPath(Json &object, const std::string &key, const std::filesystem::path &path) {
    const std::string text = base::PathText(path);
    object[key] = text;
    if (!base::IsUtf8(text))
        object[key + "_b64"] = base::Base64(text);
}

Json ProblemObject(std::string_view code, const std::string &text) {
    return {{"code", code}, {"text", text}};
}

Json MetadataObject(std::span<const rules::MetadataEntry> metadata) {
    Json object = Json::object();
    for (const rules::MetadataEntry &entry : metadata)
        switch (entry.key) {
        case rules::MetadataKey::Author:
            object["authors"].push_back(entry.text);
            break;
        case rules::MetadataKey::Date:
            object["date"] = entry.text;
            break;
        case rules::MetadataKey::Reference:
            object["references"].push_back(entry.text);
            break;
        case rules::MetadataKey::Description:
            object["description"] = entry.text;
            break;
        case rules::MetadataKey::Sample:
            object["samples"].push_back(entry.text);
            break;
        }
    return object;
}

Json ReportObject(const FileReport &report) {
    Json line;
    line["schema"] = kJsonSchema;
    AddPath(line, "file", report.file);
    if (report.parent)
        AddPath(line, "parent", *report.parent);
    line["size"] = report.size ? Json(*report.size) : Json(nullptr);
    if (!report.sha256.empty())
        line["sha256"] = report.sha256;
    line["status"] = StatusName(report.status);
    if (report.status == ScanStatus::Failed)
        line["error"] = ProblemObject(base::ErrorCodeName(report.error_code), report.error);
    if (report.status == ScanStatus::Skipped)
        line["reason"] = ProblemObject(base::ErrorCodeName(report.error_code), report.error);
    for (const Note &note : report.notes)
        line["notes"].push_back(ProblemObject(note.code, note.text));
    if (report.missing_bytes) {
        line["truncated"] = *report.missing_bytes > 0;
        if (*report.missing_bytes > 0)
            line["missing"] = *report.missing_bytes;
    }
    Json &detections = line["detections"] = Json::array();
    for (const Detection &detection : report.detections) {
        detections.push_back(
            {{"rule", detection.rule}, {"name", detection.name}, {"action", ActionName(detection.action)}});
        if (!detection.metadata.empty())
            detections.back()["metadata"] = MetadataObject(detection.metadata);
    }
    Json &findings = line["findings"] = Json::array();
    for (const Finding &finding : report.findings)
        findings.push_back({{"entry", finding.entry},
                            {"kind", finding.kind},
                            {"kind_name", KindName(finding.kind)},
                            {"offset", finding.offset},
                            {"size", finding.size}});
    Json &payloads = line["payloads"] = Json::array();
    for (const Payload &payload : report.payloads)
        payloads.push_back(PayloadObject(payload));
    if (report.near) {
        Json &near = line["near"] = Json::array();
        for (const NearMiss &miss : *report.near)
            near.push_back(NearObject(miss));
    }
    return line;
}

std::string LineOf(const Json &object) {
    return object.Text();
}

std::string JsonLine(const FileReport &report) {
    return LineOf(ReportObject(report));
}

} // namespace tavrik::scanner
