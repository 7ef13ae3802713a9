#include "engine/scanner.h"

#include <fmt/format.h>

#include "base/text.h"
#include "engine/failure.h"
#include "engine/sized.h"
#include "scanner/clean_action.h"
#include "scanner/locator_info.h"
#include "scanner/report.h"

using namespace tavrik;
using engine::Failure;
using engine::Guard;
using engine::Require;

namespace tavrik::engine {

namespace {

// The texts that the C interface hands out, made once with the report.
void Finish(tavrik_report &report) {
    const scanner::FileReport &file = report.report;
    report.name = base::PathText(file.file);
    report.json = scanner::JsonLine(file);
    for (const scanner::Detection &detection : file.detections) {
        report.detection_names.emplace_back(detection.name);
        report.action_names.push_back(scanner::ActionName(detection.action));
    }
    for (const scanner::Finding &finding : file.findings)
        report.finding_kinds.push_back(scanner::KindName(finding.kind));
    for (const scanner::Payload &payload : file.payloads)
        report.payload_kinds.push_back(scanner::KindName(payload.kind));
}

scanner::FileReport Skipped(const Input &input, uint64_t max_size) {
    scanner::FileReport report;
    report.file = input.name();
    report.size = input.size();
    report.status = scanner::ScanStatus::Skipped;
    report.error = fmt::format("larger than {} bytes", max_size);
    report.error_code = base::ErrorCode::TooLarge;
    return report;
}

// The code of a report of an input that has been read.
tavrik_status StatusOf(const Input &input, const scanner::FileReport &report) {
    if (input.status() != TAVRIK_OK || report.status != scanner::ScanStatus::Failed)
        return input.status();
    return TAVRIK_ERROR_INTERNAL;
}

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

} // namespace

} // namespace tavrik::engine

engine::Input tavrik_scanner::Open(const tavrik_input *input, const tavrik_cancel *cancel) const {
    return {engine::Taken(input, "input"), settings.timeout, cancel};
}

extern "C" tavrik_status tavrik_scanner_open(const tavrik_module *module, const tavrik_settings *settings,
                                             tavrik_scanner **scanner, tavrik_error *error) {
    return Guard(error, [&] {
        Require(scanner != nullptr, "scanner");
        *scanner = nullptr;
        Require(module != nullptr, "module");
        auto made = std::make_unique<tavrik_scanner>();
        made->loaded = module->loaded;
        made->settings = settings == nullptr ? tavrik_settings{} : engine::Taken(settings, "settings");
        Require(made->settings.timeout >= 0, "the timeout"); // not a number neither
        made->rules = made->loaded->module().rules();
        if (const tavrik_rules *rules = made->settings.rules; rules != nullptr) {
            if (rules->records == nullptr)
                throw Failure(TAVRIK_ERROR_RULES, fmt::format("{}: the rules have errors; see their diagnostics",
                                                              base::Printable(rules->source.name)));
            made->records = rules->records;
            made->rules = rules->records->rules();
        }
        made->settings.rules = nullptr;
        scanner::ScanSettings scan_settings;
        scan_settings.sha256 = made->settings.sha256 != 0;
        made->scanner = std::make_unique<const scanner::Scanner>(made->loaded->module(), made->rules, scan_settings);
        *scanner = made.release();
    });
}

extern "C" void tavrik_scanner_close(tavrik_scanner *scanner) {
    delete scanner;
}

extern "C" tavrik_status tavrik_scan(const tavrik_scanner *scanner, const tavrik_input *input, tavrik_cancel *cancel,
                                     tavrik_report **report, tavrik_error *error) {
    tavrik_status status = TAVRIK_OK;
    const tavrik_status failure = Guard(error, [&] {
        Require(report != nullptr, "report");
        *report = nullptr;
        Require(scanner != nullptr, "scanner");
        engine::Input source = scanner->Open(input, cancel);
        auto made = std::make_unique<tavrik_report>();
        made->loaded = scanner->loaded;
        made->records = scanner->records;
        const uint64_t max_size = scanner->settings.max_size;
        made->report = max_size != 0 && source.size() > max_size ? engine::Skipped(source, max_size)
                                                                 : scanner->scanner->Scan(source, source.name());
        status = made->status = engine::StatusOf(source, made->report);
        engine::Finish(*made);
        *report = made.release();
    });
    if (failure != TAVRIK_OK || status == TAVRIK_OK)
        return failure;
    return Guard(error, [&] {
        throw Failure(status,
                      fmt::format("{}: {}", base::PrintablePath((*report)->report.file), (*report)->report.error));
    });
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
        value.name = report->detection_names[index].c_str();
        value.action = found.action;
        value.action_name = report->action_names[index].c_str();
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

extern "C" const char *tavrik_report_json(const tavrik_report *report) {
    return report == nullptr ? "" : report->json.c_str();
}
