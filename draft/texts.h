/* The texts in the bytes of files: what a rule's strings may look for. */
#ifndef TAVRIK_DRAFT_TEXTS_H
#define TAVRIK_DRAFT_TEXTS_H

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "draft/rows.h"
#include "evaluation/features.h"

namespace tavrik::draft {

inline constexpr std::size_t kShortestText = 6;          // characters
inline constexpr std::size_t kMostTextBytes = 64u << 20; // of a file are searched, from its start
inline constexpr std::size_t kMostTextsTried = 1u << 16; // of one file
using FilePointers = std::span<const std::unique_ptr<evaluation::Features>>;

/** Up to `most` strings that all files have, as rows: runs of printable ASCII or of their wide form in the first file,
 * the longest and most varied first. Each is looked for in the section that has it in all files, and about where it is
 * there, or in the overlay, or anywhere. */
std::vector<Row> SharedTexts(FilePointers files, std::size_t most);

} // namespace tavrik::draft

#endif
