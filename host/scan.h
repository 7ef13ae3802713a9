/* Scanning one file with the module's payload locators. */
#ifndef TAVRIK_HOST_SCAN_H
#define TAVRIK_HOST_SCAN_H

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/byte_source.h"
#include "host/module.h"
#include "host/pe_image.h"

namespace tavrik::host {

/** A payload that a locator found. */
struct Finding {
    uint32_t entry;  // of the locator table
    uint32_t kind;   // a PayloadKind
    uint32_t offset; // in the file
    uint32_t size;   // bytes that the locator reports at offset

    bool operator==(const Finding &) const = default;
};

/** How the scan of a file ended. */
enum class ScanStatus {
    Scanned,
    NotPe, // nothing to do
    Failed // `error` says why; findings made before are kept
};

/** What a scan learnt about a file. */
struct FileReport {
    std::filesystem::path file;
    std::optional<uint64_t> size; // in bytes, when the file could be opened
    ScanStatus status = ScanStatus::Failed;
    std::string error; // the reason and the remedy, without the file's name
    std::vector<Finding> findings;
};

/** Calls one locator with `image` and the candidate `first_section`, on a stream of its own over `source`. */
std::optional<Finding> RunLocator(const Module &module, uint32_t entry, ByteSource &source, const PeImage &image,
                                  const SectionHeader &first_section);

/** Asks every locator with every candidate for the first section; the distinct findings in the table's order. The
 * source is not larger than kLargestFile. */
std::vector<Finding> RunLocators(const Module &module, ByteSource &source, const PeImage &image);

/** Scans a file. Every failure is in the report; nothing is thrown but std::bad_alloc. */
FileReport ScanFile(const Module &module, const std::filesystem::path &file);

/** What a file that is too large for the module is told. */
std::string TooLargeText(uint64_t size);

} // namespace tavrik::host

#endif
