#include "engine/scanner.h"

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
    return {from.rules->records, nullptr, from.add_rules == 0};
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
    tavrik_status status = TAVRIK_OK;
    const tavrik_status failure = Guard(error, [&] {
        Require(report != nullptr, "report");
        *report = nullptr;
        Require(scanner != nullptr, "scanner");
        engine::Input opened = scanner->Open(input, cancel);
        auto made =
            std::make_unique<tavrik_report>(scanner->scanner->Scan(opened.source(), opened.name(), opened.deadline()));
        status = made->status;
        *report = made.release();
    });
    if (failure != TAVRIK_OK || status == TAVRIK_OK)
        return failure;
    return Guard(error, [&] {
        throw Failure(status,
                      fmt::format("{}: {}", base::PrintablePath((*report)->report.file), (*report)->report.error));
    });
}
