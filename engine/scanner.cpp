#include "engine/scanner.h"

#include <algorithm>

#include <fmt/format.h>

#include "base/text.h"
#include "engine/failure.h"
#include "engine/module.h"
#include "engine/report.h"
#include "engine/sized.h"

using namespace tavrik;
using engine::Failure;
using engine::Guard;
using engine::Require;

namespace tavrik::engine {

namespace {

constexpr uint32_t kGreatestDepth = 16; // containers within each other; each needs room on the stack

template <typename Number>
void SetUnlessZero(Number &setting, uint64_t value) {
    if (value != 0)
        setting = static_cast<Number>(value);
}

scanner::ScanSettings SettingsOf(const tavrik_settings &from) {
    Require(from.timeout >= 0, "the timeout"); // not a number neither
    Require(from.near_conditions <= scanner::kMostFailedConditions, "the number of conditions");
    Require(from.inside_depth <= kGreatestDepth, "the depth");
    scanner::ScanSettings settings;
    settings.sha256 = from.sha256 != 0;
    settings.timeout = from.timeout;
    if (from.max_size != 0)
        settings.max_size = from.max_size;
    settings.near_conditions = from.near_conditions;
    settings.inside = from.inside != 0;
    SetUnlessZero(settings.inside_depth, from.inside_depth);
    SetUnlessZero(settings.inside_limits.files, from.inside_files);
    SetUnlessZero(settings.inside_limits.bytes, from.inside_bytes);
    SetUnlessZero(settings.inside_limits.ratio, from.inside_ratio);
    return settings;
}

scanner::MoreRules RulesOf(const tavrik_settings &from) {
    if (from.rules == nullptr)
        return {};
    if (from.rules->records == nullptr)
        throw Failure(TAVRIK_ERROR_RULES, fmt::format("{}: the rules have errors; see their diagnostics",
                                                      base::Printable(from.rules->source.name)));
    return {from.rules->records, from.rules->set, from.add_rules == 0};
}

// A file that cannot be opened has a report that says so.
std::unique_ptr<tavrik_report> ScanInput(const tavrik_scanner &scanner, const tavrik_input &input,
                                         const tavrik_cancel *cancel) {
    try {
        Input opened = scanner.Open(&input, cancel);
        return std::make_unique<tavrik_report>(
            scanner.scanner->Scan(opened.source(), opened.name(), opened.deadline()));
    } catch (const base::Error &error) {
        scanner::FileReport unopened;
        unopened.file = base::PathOf(input.name == nullptr ? "" : input.name);
        unopened.error = error.reason();
        unopened.error_code = error.code();
        return std::make_unique<tavrik_report>(std::move(unopened));
    }
}

} // namespace

} // namespace tavrik::engine

engine::Input tavrik_scanner::Open(const tavrik_input *input, const tavrik_cancel *cancel) const {
    return {engine::Taken(input, "input"), scanner->settings().timeout, cancel};
}

engine::Input tavrik_scanner::OpenWithin(const tavrik_input *input, const tavrik_cancel *cancel) const {
    engine::Input opened = Open(input, cancel);
    const std::optional<uint64_t> &most = scanner->settings().max_size;
    if (most && opened.source().size() > *most)
        throw Failure(TAVRIK_ERROR_TOO_LARGE,
                      fmt::format("{}: is larger than {} bytes", base::PrintablePath(opened.name()), *most));
    return opened;
}

extern "C" tavrik_status tavrik_scanner_open(const tavrik_module *module, const tavrik_settings *settings,
                                             tavrik_scanner **scanner, tavrik_error *error) {
    return Guard(error, [&] {
        Require(scanner != nullptr, "scanner");
        *scanner = nullptr;
        Require(module != nullptr, "module");
        const tavrik_settings wanted = settings == nullptr ? tavrik_settings{} : engine::Taken(settings, "settings");
        auto made = std::make_unique<tavrik_scanner>();
        made->scanner = std::make_unique<const scanner::Scanner>(module->loaded, engine::SettingsOf(wanted),
                                                                 engine::RulesOf(wanted));
        *scanner = made.release();
    });
}

extern "C" void tavrik_scanner_close(tavrik_scanner *scanner) {
    delete scanner;
}

extern "C" tavrik_status tavrik_scan(const tavrik_scanner *scanner, const tavrik_input *input, tavrik_cancel *cancel,
                                     tavrik_report **report, tavrik_error *error) {
    return Guard(error, [&] {
        Require(report != nullptr, "report");
        *report = nullptr;
        Require(scanner != nullptr, "scanner");
        std::unique_ptr<tavrik_report> made = engine::ScanInput(*scanner, engine::Taken(input, "input"), cancel);
        const tavrik_report &kept = *made;
        *report = made.release();
        if (kept.status != TAVRIK_OK)
            throw Failure(kept.status, fmt::format("{}: {}", base::PrintablePath(kept.report.file), kept.report.error));
    });
}

extern "C" tavrik_status tavrik_scan_many(const tavrik_scanner *scanner, const tavrik_input *inputs, size_t count,
                                          tavrik_cancel *cancel, tavrik_report **reports, tavrik_error *error) {
    return Guard(error, [&] {
        Require(reports != nullptr || count == 0, "reports");
        std::fill_n(reports, count, nullptr);
        Require(scanner != nullptr, "scanner");
        std::vector<std::unique_ptr<tavrik_report>> made;
        made.reserve(count);
        const auto *next = reinterpret_cast<const uint8_t *>(inputs);
        for (size_t i = 0; i < count; ++i) {
            const auto *input = reinterpret_cast<const tavrik_input *>(next);
            made.push_back(engine::ScanInput(*scanner, engine::Taken(input, "inputs"), cancel));
            next += inputs->size;
        }
        for (size_t i = 0; i < count; ++i)
            reports[i] = made[i].release();
    });
}
