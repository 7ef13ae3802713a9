/* Files that a rule must not match, and which of them meet which rows. */
#ifndef TAVRIK_DRAFT_CORPUS_H
#define TAVRIK_DRAFT_CORPUS_H

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "draft/rows.h"

namespace tavrik::draft {

/** What a corpus says about rows. */
struct CorpusAnswer {
    std::vector<std::filesystem::path> files; // PE files that could be read and are none of the given ones
    std::vector<std::vector<bool>> met;       // for each row, by which of the files
    std::vector<bool> is_at_most; // for each row, whether some of these were not opened, and may not meet it
    std::size_t not_pe = 0;
    std::size_t same = 0;                                              // that have the content of a given file
    std::vector<std::pair<std::filesystem::path, std::string>> failed; // and why
};

/** Asks all rows of each file. Files with one of the digests (SHA-256 in hexadecimal) are left out; `sizes` are those
 * of the files that have them. */
CorpusAnswer AskCorpus(std::span<const std::filesystem::path> corpus, const std::vector<Row> &rows,
                       const std::vector<std::string> &digests, const std::vector<uint64_t> &sizes);

} // namespace tavrik::draft

#endif
