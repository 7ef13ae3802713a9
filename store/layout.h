/* How a segment, the features of up to kMostRows files, is cut into numbered pieces. All of this is part of the format.
 */
#ifndef TAVRIK_STORE_LAYOUT_H
#define TAVRIK_STORE_LAYOUT_H

#include <cstddef>
#include <cstdint>

#include "rules/names.h"

namespace tavrik::store {

/** The version of the format. Programs refuse stores of another one. */
inline constexpr int kFormatVersion = 2;

/** The version of what is extracted. Raised whenever a file gives other header values, sections or tokens than before,
 * so that one store never has features of two kinds. */
inline constexpr int kExtractorVersion = 1;

/** Sections whose headers are columns: those at the first positions of the section table. The others are in a piece. */
inline constexpr std::size_t kColumnSections = 16;

/** Of each such section: the name and the nine fields. */
inline constexpr std::size_t kSectionColumns = 10;

/** The columns. A section's name comes before its fields, which have their numbers in rules. */
enum Column : uint16_t {
    kFirstSectionColumn = rules::kHeaderFieldCount,
    kSizeColumn = kFirstSectionColumn + kColumnSections * kSectionColumns, // absent: FileSize tells
    kTimeColumn,
    kSectionCountColumn,
    kFlagsColumn,
    kColumnCount
};

/** The column of a field of the section at a position; field 0 is the name. */
constexpr uint16_t SectionColumn(std::size_t position, std::size_t field) {
    return static_cast<uint16_t>(kFirstSectionColumn + position * kSectionColumns + field);
}

/** The bits of the flags column. */
inline constexpr uint64_t kIsPe = 1;
inline constexpr uint64_t kHasAllTokens = 2;

/** The pieces. A column has two: its values and its codes. */
inline constexpr uint32_t kHeadPiece = 4096; // the kinds and constants of columns, the first token of each block
inline constexpr uint32_t kMoreSectionsPiece = 4097; // headers of sections at later positions
inline constexpr uint32_t kPathsPiece = 4098;
inline constexpr uint32_t kDigestsPiece = 4099;
inline constexpr uint32_t kFirstTokenPiece = 8192; // blocks of tokens with the rows that have them

constexpr uint32_t ValuesPiece(uint16_t column) {
    return 2u * column;
}
constexpr uint32_t CodesPiece(uint16_t column) {
    return 2u * column + 1;
}
static_assert(2u * kColumnCount <= kHeadPiece);

/** Piece numbers are below this. */
inline constexpr uint32_t kMostPieces = 65536;

/** Bounds of a segment's parts, unpacked. A writer begins another segment before one is reached. */
inline constexpr std::size_t kMostPathBytes = 32u << 20;
inline constexpr std::size_t kLongestPath = 64u << 10;
inline constexpr std::size_t kMostMoreSectionBytes = 32u << 20;
inline constexpr std::size_t kTokenBlock = 64u << 10;    // bytes, after which a block ends
inline constexpr std::size_t kMostTokenBlock = 1u << 20; // bytes, with the token that ended it
inline constexpr std::size_t kMostTokensInAll = 16u << 20;

} // namespace tavrik::store

#endif
