#include "engine/report.h"

#include "base/text.h"
#include "engine/failure.h"
#include "engine/sized.h"
#include "scanner/clean_action.h"
#include "scanner/locator_info.h"
#include "scanner/near_report.h"
#include "scanner/report.h"
#include "scanner/report_json.h"

using namespace tavrik;
using engine::Guard;
using engine::Require;

namespace tavrik::engine {

namespace {

tavrik_outcome OutcomeOf(scanner::ScanStatus status) {
    switch (status) {
    case scanner::ScanStatus::Scanned:
        return TAVRIK_SCANNED;
    case scanner::ScanStatus::NotPe:
        return TAVRIK_NOT_PE;
    case scanner::ScanStatus::Skipped:
        return TAVRIK_SKIPPED;
    default:
        return TAVRIK_FAILED;
    }
}

tavrik_report::NearTexts NearTextsOf(const scanner::NearMiss &miss) {
    tavrik_report::NearTexts texts = {scanner::KindName(miss.kind), base::Printable(scanner::NearText(miss)), ""};
    for (const scanner::FailedCondition &condition : miss.entries.front().failed)
        texts.conditions += base::Printable(scanner::ConditionText(condition)) + '\n';
    return texts;
}

// The near misses, whether they were asked for or not.
const std::vector<scanner::NearMiss> &NearOf(const scanner::FileReport &report) {
    static const std::vector<scanner::NearMiss> none;
    return report.near ? *report.near : none;
}

} // namespace

std::string MetadataText(std::span<const rules::MetadataEntry> metadata) {
    return metadata.empty() ? "" : scanner::LineOf(scanner::MetadataObject(metadata));
}

} // namespace tavrik::engine

tavrik_report::tavrik_report(scanner::FileReport from) : report(std::move(from)) {
    if (report.status == scanner::ScanStatus::Failed)
        status = engine::StatusOf(report.error_code);
    name = base::PathText(report.file);
    parent = report.parent ? base::PathText(*report.parent) : "";
    for (const scanner::Detection &detection : report.detections) {
        action_names.push_back(scanner::ActionName(detection.action));
        metadata.push_back(engine::MetadataText(detection.metadata));
    }
    for (const scanner::Finding &finding : report.findings)
        finding_kinds.push_back(scanner::KindName(finding.kind));
    for (const scanner::Payload &payload : report.payloads)
        payload_kinds.push_back(scanner::KindName(payload.kind));
    for (const scanner::NearMiss &miss : engine::NearOf(report))
        near_texts.push_back(engine::NearTextsOf(miss));
    for (const scanner::Note &note : report.notes)
        note_codes.emplace_back(note.code);
    for (scanner::FileReport &inner : report.inside)
        inside.push_back(std::make_unique<tavrik_report>(std::move(inner)));
    report.inside = {};
}

const std::string &tavrik_report::Json() const {
    json_is_made_.Call([this] { json_ = scanner::JsonLine(report); });
    return json_;
}

extern "C" void tavrik_report_free(tavrik_report *report) {
    delete report;
}

extern "C" tavrik_status tavrik_report_summary(const tavrik_report *report, tavrik_summary *summary) {
    return Guard(nullptr, [&] {
        Require(report != nullptr, "report");
        const scanner::FileReport &file = report->report;
        tavrik_summary value = {};
        value.outcome = engine::OutcomeOf(file.status);
        value.status = report->status;
        value.name = report->name.c_str();
        value.text = file.error.c_str();
        value.sha256 = file.sha256.c_str();
        value.file_size = file.size.value_or(0);
        value.detections = file.detections.size();
        value.findings = file.findings.size();
        value.payloads = file.payloads.size();
        value.bytes_read = file.bytes_read;
        value.parent = report->parent.c_str();
        value.near_misses = report->near_texts.size();
        value.notes = file.notes.size();
        value.inside = report->inside.size();
        engine::Give(summary, value, "summary");
    });
}

extern "C" tavrik_status tavrik_report_detection(const tavrik_report *report, size_t index,
                                                 tavrik_detection *detection) {
    return Guard(nullptr, [&] {
        Require(report != nullptr, "report");
        const scanner::Detection &found = engine::At(report->report.detections, index);
        tavrik_detection value = {};
        value.rule = found.rule;
        value.name = found.name.c_str();
        value.action = found.action;
        value.action_name = report->action_names[index].c_str();
        value.metadata = report->metadata[index].c_str();
        engine::Give(detection, value, "detection");
    });
}

extern "C" tavrik_status tavrik_report_finding(const tavrik_report *report, size_t index, tavrik_finding *finding) {
    return Guard(nullptr, [&] {
        Require(report != nullptr, "report");
        const scanner::Finding &found = engine::At(report->report.findings, index);
        engine::Give(finding,
                     {0, found.entry, found.kind, found.size, found.offset, report->finding_kinds[index].c_str()},
                     "finding");
    });
}

extern "C" tavrik_status tavrik_report_payload(const tavrik_report *report, size_t index, tavrik_payload *payload) {
    return Guard(nullptr, [&] {
        Require(report != nullptr, "report");
        const scanner::Payload &found = engine::At(report->report.payloads, index);
        tavrik_payload value = {};
        value.kind = found.kind;
        value.offset = found.offset;
        if (found.extent) {
            value.length = found.extent->length;
            value.present = found.extent->present;
        }
        value.kind_name = report->payload_kinds[index].c_str();
        value.sha256 = found.sha256.c_str();
        value.entries = found.entries.data();
        value.entry_count = found.entries.size();
        engine::Give(payload, value, "payload");
    });
}

extern "C" tavrik_status tavrik_report_near_miss(const tavrik_report *report, size_t index,
                                                 tavrik_near_miss *near_miss) {
    return Guard(nullptr, [&] {
        Require(report != nullptr, "report");
        const scanner::NearMiss &found = engine::At(engine::NearOf(report->report), index);
        const tavrik_report::NearTexts &texts = report->near_texts[index];
        tavrik_near_miss value = {};
        value.is_unknown_build = found.status == scanner::NearMiss::Status::UnknownBuild ? 1 : 0;
        value.kind = found.kind;
        value.entry = found.entries.front().entry;
        value.offset = found.offset;
        if (found.extent) {
            value.length = found.extent->length;
            value.present = found.extent->present;
        }
        value.failed = found.entries.front().failed.size();
        value.kind_name = texts.kind.c_str();
        value.text = texts.text.c_str();
        value.conditions = texts.conditions.c_str();
        engine::Give(near_miss, value, "near_miss");
    });
}

extern "C" tavrik_status tavrik_report_note(const tavrik_report *report, size_t index, tavrik_note *note) {
    return Guard(nullptr, [&] {
        Require(report != nullptr, "report");
        const scanner::Note &found = engine::At(report->report.notes, index);
        tavrik_note value = {};
        value.code = report->note_codes[index].c_str();
        value.text = found.text.c_str();
        engine::Give(note, value, "note");
    });
}

extern "C" tavrik_status tavrik_report_inside(const tavrik_report *report, size_t index, const tavrik_report **inner) {
    return Guard(nullptr, [&] {
        Require(inner != nullptr, "inner");
        *inner = nullptr;
        Require(report != nullptr, "report");
        *inner = engine::At(report->inside, index).get();
    });
}

extern "C" const char *tavrik_report_json(const tavrik_report *report) {
    const char *json = "";
    if (report != nullptr)
        Guard(nullptr, [&] { json = report->Json().c_str(); });
    return json;
}
