#include "scanner/scan.h"

#include <algorithm>
#include <new>

#include <fmt/format.h>

#include "base/error.h"
#include "base/sha256.h"
#include "scanner/clean_action.h"
#include "scanner/inside.h"
#include "scanner/module_stream.h"
#include "scanner/profile.h"
#include "scanner/recording_source.h"
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

std::vector<Finding> RunLocators(const Module &module, base::ByteSource &whole, const HostRecords &records) {
    base::WindowSource source(whole, 0, kLargestFile);
    std::vector<Finding> findings;
    for (uint32_t entry = 0; entry < module.locators().size(); ++entry)
        for (const SectionHeader &first_section : records.first_sections) {
            const std::optional<Finding> finding = RunLocator(module, entry, source, records, first_section);
            if (finding && std::find(findings.begin(), findings.end(), *finding) == findings.end())
                findings.push_back(*finding);
        }
    return findings;
}

std::string SearchedInPartText(uint64_t size) {
    return fmt::format("has {} bytes; the locators search the first 2 GiB, since the module counts offsets in signed "
                       "32-bit numbers",
                       size);
}

std::string_view DetectionName(const HeuristicRule &rule) {
    const std::string_view name(rule.detection_name, sizeof rule.detection_name);
    return name.substr(0, name.find('\0'));
}

namespace {

// How many of the bytes that the headers of a PE file say are in it lie beyond its end: of the section table and of the
// sections' raw data.
uint64_t MissingBytes(const pe::Image &image, const HostRecords &records) {
    uint64_t end = uint64_t{image.SignatureOffset()} + pe::kOptionalHeaderOffset +
                   records.file_header.SizeOfOptionalHeader +
                   sizeof(SectionHeader) * records.file_header.NumberOfSections;
    for (const SectionHeader &section : records.sections)
        if (section.PointerToRawData != 0 && section.SizeOfRawData != 0)
            end = std::max(end, uint64_t{section.PointerToRawData} + section.SizeOfRawData);
    return end - std::min(end, image.size());
}

std::vector<HeuristicRule *> AllRules(const Module *module, const MoreRules &more) {
    std::vector<HeuristicRule *> rules;
    if (module != nullptr && !more.only)
        rules.assign(module->rules().begin(), module->rules().end());
    if (more.records != nullptr)
        rules.insert(rules.end(), more.records->rules().begin(), more.records->rules().end());
    return rules;
}

} // namespace

Scanner::Scanner(std::shared_ptr<const Module> module, const ScanSettings &settings, MoreRules more)
    : module_(std::move(module)), more_(std::move(more)), rules_(AllRules(module_.get(), more_)), settings_(settings),
      index_(rules_) {}

FileReport Scanner::Scan(const Input &input, Profile *profile) const {
    FileReport report;
    report.file = input.path;
    try {
        ScanInput(input, report, profile);
    } catch (const base::Error &error) {
        report.error = error.reason();
        report.error_code = error.code();
    } catch (const std::bad_alloc &) {
        report.status = ScanStatus::Failed;
        report.error = "not enough memory; scan fewer files at once (-j)";
        report.error_code = base::ErrorCode::OutOfMemory;
    }
    return report;
}

FileReport Scanner::Scan(base::ByteSource &source, const std::filesystem::path &name, const Deadline &deadline) const {
    FileReport report;
    report.file = name;
    report.size = source.size();
    if (!IsTooLarge(source.size(), report))
        Watch(source, deadline, report, {}, nullptr);
    report.bytes_read = source.bytes_read();
    return report;
}

FileReport Scanner::Scan(base::ByteSource &source, const std::filesystem::path &name) const {
    return Scan(source, name, Deadline(settings_.timeout));
}

bool Scanner::IsTooLarge(uint64_t size, FileReport &report) const {
    if (!settings_.max_size || size <= *settings_.max_size)
        return false;
    report.status = ScanStatus::Skipped;
    report.error = fmt::format("larger than {} bytes", *settings_.max_size);
    report.error_code = base::ErrorCode::TooLarge;
    return true;
}

void Scanner::ScanInput(const Input &input, FileReport &report, Profile *profile) const {
    const Deadline deadline(settings_.timeout);
    const StepTimer timer(profile, Step::Open);
    if (input.kind == Input::Kind::File) {
        base::FileSource file(input.path);
        report.size = file.size();
        if (IsTooLarge(file.size(), report))
            return;
        Watch(file, deadline, report, report.file, profile);
        report.bytes_read = file.bytes_read();
        return;
    }
    const uint64_t most = std::min(settings_.max_size.value_or(kLargestStream), kLargestStream);
    const std::shared_ptr<base::StreamSource> stream = ReadStream(input, most, deadline);
    report.bytes_read = stream->size();
    if (stream->IsCut() && most < kLargestStream && IsTooLarge(most + 1, report))
        return;
    if (stream->IsCut())
        throw base::Error(input.path, "delivers more than 4 GiB; write it to a file and scan that",
                          base::ErrorCode::TooLarge);
    report.size = stream->size();
    report.stream = stream;
    Watch(*stream, deadline, report, {}, profile); // there is no file that could be opened for cleaning
}

// Scans a source until the deadline.
void Scanner::Watch(base::ByteSource &opened, const Deadline &deadline, FileReport &report,
                    const std::filesystem::path &on_disk, Profile *profile) const {
    RecordingSource recorder(opened);
    WatchedSource source(settings_.record_reads ? recorder : opened, deadline, profile);
    Examine(source, report, on_disk, profile);
    report.read = recorder.ReadRegions();
    if (settings_.inside && (report.status == ScanStatus::Scanned || report.status == ScanStatus::NotPe))
        ScanInside(source, report, deadline, on_disk, profile);
    if (source.was_interrupted())
        report.status = ScanStatus::Interrupted;
}

void Scanner::ScanInside(base::ByteSource &source, FileReport &report, const Deadline &deadline,
                         const std::filesystem::path &on_disk, Profile *profile) const {
    const StepTimer timer(profile, Step::Unpack);
    const auto examine = [&](base::ByteSource &inner, FileReport &inner_report) {
        Examine(inner, inner_report, on_disk, profile);
    };
    InsideScan(settings_, deadline, source.size(), examine).Scan(source, report);
    source.ReadAt(0, nullptr, 0); // a deadline that has passed meanwhile counts for the file
    if (source.error().empty())
        return;
    report.status = ScanStatus::Failed;
    report.error = source.error();
    report.error_code = source.error_code();
}

void Scanner::Examine(base::ByteSource &source, FileReport &report, const std::filesystem::path &on_disk,
                      Profile *profile) const {
    const auto fail = [&](const std::string &why) {
        report.status = ScanStatus::Failed;
        report.error = why;
        report.error_code = source.error_code();
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
    report.missing_bytes = MissingBytes(features->image(), pe.records);
    Detect(*features, source, report, on_disk, profile);
    if (!source.error().empty())
        return fail(source.error());
    if (source.size() > kLargestFile)
        report.notes.push_back({"searched-in-part", SearchedInPartText(source.size())});
    const StepTimer timer(profile, Step::Locators);
    if (module_ != nullptr)
        report.findings = RunLocators(*module_, source, pe.records);
    report.payloads = PayloadsOf(source, report.findings);
    if (settings_.near_conditions != 0)
        report.near = FindNearMisses(source, features->image(), pe.records, settings_.near_conditions,
                                     RegionsOf(report.payloads));
    HashPayloads(source, report.payloads);
    if (!source.error().empty())
        fail(source.error());
}

void Scanner::Detect(evaluation::Features &features, const base::ByteSource &source, FileReport &report,
                     const std::filesystem::path &on_disk, Profile *profile) const {
    const StepTimer rules_timer(profile, Step::Rules);
    const std::vector<uint32_t> matches = index_.Match(features, profile);
    // What could not be read counts as not there, which some rules ask for: such matches mean nothing.
    if (!source.error().empty())
        return;
    const StepTimer timer(profile, Step::CleanAction);
    for (const uint32_t position : matches) {
        const HeuristicRule &rule = *rules_[position];
        report.detections.push_back(
            {rule.rule_id, std::string(DetectionName(rule)), ActionFor(rule, on_disk), position, {}});
        const std::span<const rules::MetadataEntry> metadata = MetadataOf(position);
        report.detections.back().metadata.assign(metadata.begin(), metadata.end());
    }
}

std::span<const rules::MetadataEntry> Scanner::MetadataOf(std::size_t place) const {
    const std::size_t first = rules_.size() - more_rules();
    if (more_.texts == nullptr || place < first)
        return {};
    return more_.texts->rules[place - first].metadata;
}

uint32_t Scanner::ActionFor(const HeuristicRule &rule, const std::filesystem::path &file) const {
    if (module_ == nullptr)
        return CLEAN_ACTION_NONE;
    return (file.empty() ? module_->PreviewCleanAction(kCleanableFinding, rule.rule_id)
                         : module_->PreviewCleanAction(file, kCleanableFinding, rule.rule_id))
        .action;
}

} // namespace tavrik::scanner
