#include "scanner/scan.h"

#include <algorithm>
#include <new>

#include <fmt/format.h>

#include "base/error.h"
#include "base/sha256.h"
#include "scanner/clean_action.h"
#include "scanner/module_stream.h"
#include "scanner/profile.h"
#include "scanner/watched_source.h"

namespace tavrik::scanner {

std::optional<Finding> RunLocator(const Module &module, uint32_t entry, base::ByteSource &source,
                                  const HostRecords &records, const SectionHeader &first_section) {
    ModuleStream stream(source);
    LocatorResult result = {};
    const PayloadLocator locator = module.locators()[entry].locator;
    const int found = locator(stream.stream(), stream.handle(), static_cast<int32_t>(source.size()),
                              records.data_dirs.data(), &records.file_header, &records.opt_header, &first_section,
                              &records.last_section, records.entry_code.data(), &result);
    if (found == 0)
        return std::nullopt;
    return Finding{entry, result.kind, result.offset, result.size};
}

std::vector<Finding> RunLocators(const Module &module, base::ByteSource &source, const HostRecords &records) {
    std::vector<Finding> findings;
    for (uint32_t entry = 0; entry < module.locators().size(); ++entry)
        for (const SectionHeader &first_section : records.first_sections) {
            const std::optional<Finding> finding = RunLocator(module, entry, source, records, first_section);
            if (finding && std::find(findings.begin(), findings.end(), *finding) == findings.end())
                findings.push_back(*finding);
        }
    return findings;
}

std::string TooLargeText(uint64_t size) {
    return fmt::format("has {} bytes; files of 2 GiB and more cannot be searched for payloads, since the module counts "
                       "offsets in signed 32-bit numbers",
                       size);
}

std::string_view DetectionName(const HeuristicRule &rule) {
    const std::string_view name(rule.detection_name, sizeof rule.detection_name);
    return name.substr(0, name.find('\0'));
}

Scanner::Scanner(const Module &module, const ScanSettings &settings) : Scanner(module, module.rules(), settings) {}

Scanner::Scanner(const Module &module, std::span<HeuristicRule *const> rules, const ScanSettings &settings)
    : module_(module), rules_(rules), settings_(settings), index_(rules) {}

FileReport Scanner::Scan(const std::filesystem::path &file, Profile *profile) const {
    FileReport report;
    report.file = file;
    const Deadline deadline(settings_.timeout);
    try {
        const StepTimer timer(profile, Step::Open);
        base::FileSource opened(file);
        report.size = opened.size();
        if (settings_.max_size && opened.size() > *settings_.max_size) {
            report.status = ScanStatus::Skipped;
            report.error = fmt::format("larger than {} bytes", *settings_.max_size);
            return report;
        }
        WatchedSource source(opened, deadline, profile);
        Examine(source, report, profile);
        if (source.was_interrupted())
            report.status = ScanStatus::Interrupted;
    } catch (const base::Error &error) {
        report.error = error.reason();
    } catch (const std::bad_alloc &) {
        report.status = ScanStatus::Failed;
        report.error = "not enough memory; scan fewer files at once (-j)";
    }
    return report;
}

FileReport Scanner::Scan(base::ByteSource &source, const std::filesystem::path &name) const {
    FileReport report; // without a name as long as it is examined: it is no file
    report.size = source.size();
    Examine(source, report, nullptr);
    report.file = name;
    return report;
}

void Scanner::Examine(base::ByteSource &source, FileReport &report, Profile *profile) const {
    const auto fail = [&report](const std::string &why) {
        report.status = ScanStatus::Failed;
        report.error = why;
    };
    if (settings_.sha256) {
        const StepTimer timer(profile, Step::Sha256);
        report.sha256 = base::Sha256Of(source);
    }
    std::optional<evaluation::Features> features;
    PeResult pe;
    {
        const StepTimer timer(profile, Step::Headers);
        source.ReadAt(0, nullptr, 0); // a deadline that has passed counts even where there is nothing to read
        pe = MakeHostRecords(features.emplace(source).image(), source);
    }
    if (pe.status == PeStatus::ReadFailed)
        return fail(pe.text);
    report.status = pe.status == PeStatus::NotPe ? ScanStatus::NotPe : ScanStatus::Scanned;
    if (pe.status == PeStatus::NotPe)
        return;
    Detect(*features, source, report, profile);
    if (!source.error().empty())
        return fail(source.error());
    if (source.size() > kLargestFile)
        return fail(TooLargeText(source.size()));
    const StepTimer timer(profile, Step::Locators);
    report.findings = RunLocators(module_, source, pe.records);
    if (!source.error().empty())
        fail(source.error());
}

void Scanner::Detect(evaluation::Features &features, const base::ByteSource &source, FileReport &report,
                     Profile *profile) const {
    const StepTimer rules_timer(profile, Step::Rules);
    const std::vector<uint32_t> matches = index_.Match(features, profile);
    // What could not be read counts as not there, which some rules ask for: such matches mean nothing.
    if (!source.error().empty())
        return;
    const StepTimer timer(profile, Step::CleanAction);
    for (const uint32_t position : matches) {
        const HeuristicRule &rule = *rules_[position];
        const CleanDecision decision = report.file.empty()
                                           ? module_.PreviewCleanAction(kCleanableFinding, rule.rule_id)
                                           : module_.PreviewCleanAction(report.file, kCleanableFinding, rule.rule_id);
        report.detections.push_back({rule.rule_id, DetectionName(rule), decision.action});
    }
}

} // namespace tavrik::scanner
