#include "host/scan.h"

#include <algorithm>
#include <fmt/format.h>

#include "host/file_stream.h"

namespace tavrik::host {

std::optional<Finding> RunLocator(const Module &module, uint32_t entry, ByteSource &source, const PeImage &image,
                                  const SectionHeader &first_section) {
    ModuleStream stream(source);
    LocatorResult result = {};
    const PayloadLocator locator = module.locators()[entry].locator;
    const int found = locator(stream.stream(), stream.handle(), static_cast<int32_t>(source.size()),
                              image.data_dirs.data(), &image.file_header, &image.opt_header, &first_section,
                              &image.last_section, image.entry_code.data(), &result);
    if (found == 0)
        return std::nullopt;
    return Finding{entry, result.kind, result.offset, result.size};
}

std::vector<Finding> RunLocators(const Module &module, ByteSource &source, const PeImage &image) {
    std::vector<Finding> findings;
    for (uint32_t entry = 0; entry < module.locators().size(); ++entry)
        for (const SectionHeader &first_section : image.first_sections) {
            const std::optional<Finding> finding = RunLocator(module, entry, source, image, first_section);
            if (finding && std::find(findings.begin(), findings.end(), *finding) == findings.end())
                findings.push_back(*finding);
        }
    return findings;
}

std::string TooLargeText(uint64_t size) {
    return fmt::format("has {} bytes; files of 2 GiB and more cannot be scanned, since the module counts offsets in "
                       "signed 32-bit numbers",
                       size);
}

FileReport ScanFile(const Module &module, const std::filesystem::path &file) {
    FileReport report;
    report.file = file;
    try {
        FileSource source(file);
        report.size = source.size();
        const PeResult pe = ParsePe(source);
        if (pe.status == PeStatus::NotPe) {
            report.status = ScanStatus::NotPe;
        } else if (pe.status == PeStatus::ReadFailed) {
            report.error = pe.text;
        } else if (source.size() > kLargestFile) {
            report.error = TooLargeText(source.size());
        } else {
            report.findings = RunLocators(module, source, pe.image);
            report.error = source.error();
            report.status = report.error.empty() ? ScanStatus::Scanned : ScanStatus::Failed;
        }
    } catch (const OpenError &error) {
        report.error = error.what();
    }
    return report;
}

} // namespace tavrik::host
