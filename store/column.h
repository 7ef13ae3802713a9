/* One value of many files: the distinct values, sorted, and for each file which of them it has. */
#ifndef TAVRIK_STORE_COLUMN_H
#define TAVRIK_STORE_COLUMN_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "store/pieces.h"

namespace tavrik::store {

/** The most rows of a segment. So few that a code has 16 bits, with one that means "absent". */
inline constexpr std::size_t kMostRows = 65535;

/** A row's place among a column's values plus 1; 0: the row has no value. */
using Code = uint16_t;

/** How a column is stored. Part of the format. */
enum class ColumnKind : uint8_t {
    Absent = 0,   // no row has a value
    Constant = 1, // all rows have the same
    Stored = 2,   // values and codes are pieces of their own
};

/** A column in stored form. */
struct EncodedColumn {
    ColumnKind kind = ColumnKind::Absent;
    uint64_t constant = 0;
    std::string values; // of a stored one
    std::string codes;
};

/** Encodes a column; a row without `there` has no value. Both have at most kMostRows elements. */
EncodedColumn EncodeColumn(std::span<const uint64_t> values, std::span<const uint8_t> there);

/** The values of a stored column, ascending, each at most `largest`. Throws Damaged. */
std::vector<uint64_t> DecodeValues(std::span<const uint8_t> piece, uint64_t largest);

/** The codes of `rows` rows, each at most `values`. Throws Damaged. */
std::vector<Code> DecodeCodes(std::span<const uint8_t> piece, std::size_t rows, std::size_t values);

} // namespace tavrik::store

#endif
