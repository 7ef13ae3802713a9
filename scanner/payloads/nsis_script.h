/* What a Nullsoft installer's script says about the files of the archive. The records are those of the installer's own
 * sources (fileform.h): a table of blocks, instructions of seven words, strings with codes for variables. */
#ifndef TAVRIK_SCANNER_PAYLOADS_NSIS_SCRIPT_H
#define TAVRIK_SCANNER_PAYLOADS_NSIS_SCRIPT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tavrik::scanner::payloads {

/** A file that the script extracts or, for an uninstaller, puts together. */
struct NsisFile {
    std::string path;            // with variables as the script names them and '/': "$INSTDIR/docs/a.txt"
    uint32_t offset = 0;         // of its block, from the end of the script's
    std::optional<int64_t> time; // of the last change, in seconds since 1970 UTC
    bool is_uninstaller =
        false;                 // its block contains changes of the installer's program, the next one what follows that
    uint32_t changes_size = 0; // of the first block of an uninstaller, in bytes
};

/** A script, as far as it concerns files. */
struct NsisScript {
    /** How many files are listed; and how long all their paths together may be, in bytes. */
    static constexpr std::size_t kMostFiles = 1u << 18;
    static constexpr std::size_t kMostText = 64u << 20;
    static constexpr std::size_t kLongestPath = 2048;

    std::string version;         // "NSIS 3 Unicode"; without a number where no string tells
    std::vector<NsisFile> files; // in the order of their offsets, then of their names; each once
    bool is_cut = false;         // there are more files than fit
};

/** Reads an unpacked script; nothing when its tables are not within it. */
std::optional<NsisScript> ParseNsisScript(std::span<const uint8_t> script);

} // namespace tavrik::scanner::payloads

#endif
