/* The records that the locators receive, made from a file's headers. */
#ifndef TAVRIK_SCANNER_HOST_RECORDS_H
#define TAVRIK_SCANNER_HOST_RECORDS_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "pe/image.h"
#include "tavrik2/payload_locator.h"

namespace tavrik::scanner {

/** What a file's headers say to the locators. What a truncated file does not have is zero. */
struct HostRecords {
    uint64_t file_size = 0;
    bool is_pe32_plus = false;

    FileHeader file_header = {};
    OptionalHeader opt_header = {}; // in the 64-bit shape, also for PE32
    std::array<uint32_t, DATA_DIRECTORY_WORDS> data_dirs = {};

    /** The file offset after the section table, by NumberOfSections; it may lie beyond the file. */
    uint64_t headers_end = 0;

    /** The section headers that lie in the file as a whole, at most NumberOfSections. */
    std::vector<SectionHeader> sections;

    /** What a locator may be given as the image's first section: the first header of the table and, when it is another
     * one, the header of the section that holds BaseOfCode. Never empty: a file without sections has one of zeros. */
    std::vector<SectionHeader> first_sections;

    /** The last of `sections`; zeros when there is none. */
    SectionHeader last_section = {};

    /** The bytes at the entry point, zeros where the file has none. */
    std::array<uint8_t, ENTRY_CODE_BYTES> entry_code = {};

    /** The index of the section whose address span holds `rva`; of several the last in the table. */
    std::optional<std::size_t> SectionAt(uint32_t rva) const;

    /** The file offset of an RVA: by the section that holds it (later ones first, those without raw data never), by the
     * last section with its end included, as it is when it lies below all sections, or by the section that holds it
     * rounded down to the section alignment. The offset may lie beyond the file. */
    std::optional<uint32_t> FileOffset(uint32_t rva) const;
};

/** How making the records ended. */
enum class PeStatus {
    Parsed,
    NotPe,     // no DOS header, or no PE signature where it points to
    ReadFailed // the source could not be read
};

struct PeResult {
    PeStatus status = PeStatus::NotPe;
    std::string text; // why there are no records; "" when there are
    HostRecords records;
};

/** The records of a file of any content, from the headers that rules are asked with too. `source` is the one that
 * `image` reads; its error decides between the failures.
 *
 * The locators see a file otherwise than the rules: a file with a PE signature counts as PE, however little of it is
 * there and whatever its fields say; any optional-header magic but that of PE32+ counts as PE32; the optional header is
 * read whole whatever its declared size; no bound but the file's end limits the sections; addresses are mapped as the
 * module maps them. */
PeResult MakeHostRecords(const pe::Image &image, const base::ByteSource &source);

} // namespace tavrik::scanner

#endif
