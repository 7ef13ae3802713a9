/* What a report for people shows of one file beyond the results of its scan. */
#ifndef TAVRIK_SCANNER_HTML_FILE_DETAILS_H
#define TAVRIK_SCANNER_HTML_FILE_DETAILS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pe/certificate.h"
#include "pe/version_info.h"
#include "scanner/map/file_map.h"
#include "scanner/payloads/container.h"
#include "scanner/scan.h"

namespace tavrik::scanner::html {

/** Members of a payload that are listed, and those that are counted at most. */
inline constexpr std::size_t kMostMembers = 200;
inline constexpr std::size_t kMostCountedMembers = 10'000;

/** What is inside a payload. */
struct Contents {
    std::vector<payloads::Member> members; // the first ones
    std::size_t count = 0;                 // of all, as far as they were counted
    std::string error;                     // why the list ends early; ""
};

/** The details of one file. */
struct FileDetails {
    std::string error;  // why there are none: the file could not be read; ""
    std::string sha256; // in hexadecimal digits
    std::string kind;   // "PE32+, 5 sections"
    bool has_certificates = false;
    std::optional<pe::Signer> signer;
    pe::VersionInfo version;
    map::FileMap map;
    std::vector<std::string> conditions; // of each detection of the report, as lines of text
    std::vector<Contents> contents;      // of each payload of the report
};

/** Reads the file that a report is about once more. Failures are in the result. `scanner` made the report; its timeout
 * applies once more. */
FileDetails Describe(const Scanner &scanner, const FileReport &report);

} // namespace tavrik::scanner::html

#endif
