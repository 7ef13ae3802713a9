/* A segment that is read: only the pieces that are asked for, each once. */
#ifndef TAVRIK_STORE_SEGMENT_H
#define TAVRIK_STORE_SEGMENT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "store/column.h"
#include "store/layout.h"
#include "store/stored_file.h"

namespace tavrik::store {

/** The position of a file in its segment. */
using Row = uint16_t;

/** The stored features of up to kMostRows files. Every member throws Damaged for pieces of wrong content. Serves one
 * thread. */
class Segment {
public:
    /** Gives a piece by its number, empty without one; valid until the next call. */
    using ReadPiece = std::function<std::span<const uint8_t>(uint32_t number)>;

    Segment(std::size_t rows, ReadPiece read);
    Segment(const Segment &) = delete;
    Segment &operator=(const Segment &) = delete;

    std::size_t rows() const { return rows_; }

    /** The distinct values of a column, ascending. */
    std::span<const uint64_t> Values(uint16_t column) { return ColumnOf(column).values; }

    /** The value of a row; nothing when it has none. */
    std::optional<uint64_t> Value(uint16_t column, Row row) {
        const CachedColumn &cached = ColumnWithCodes(column);
        const Code code = cached.codes.empty() ? cached.code_of_all : cached.codes[row];
        return code == 0 ? std::nullopt : std::optional(cached.values[code - 1u]);
    }

    /** The rows that have the value, ascending. */
    std::vector<Row> RowsWith(uint16_t column, uint64_t value);

    /** The rows that have the token or may have it, ascending. */
    std::vector<Row> RowsThatMayHave(Token token);

    bool IsPe(Row row) { return (Flags(row) & kIsPe) != 0; }
    Stamp StampOf(Row row);
    const std::vector<std::string> &Paths();
    base::Sha256::Digest DigestOf(Row row);
    std::vector<SectionHeader> SectionsOf(Row row);

    /** Everything of all rows. Reads all pieces. */
    std::vector<StoredFile> AllFiles();

private:
    // A use of a column costs a pass over its codes; after this many the rows are sorted by their codes.
    static constexpr unsigned kUsesBeforeSorting = 4;

    // Of tokens; a file of hostile content has many large ones.
    static constexpr std::size_t kMostCachedBlocks = 256;

    struct CachedColumn {
        ColumnKind kind = ColumnKind::Absent;
        bool has_values = false;
        Code code_of_all = 0; // without codes
        std::vector<uint64_t> values;
        std::vector<Code> codes;
        unsigned uses = 0;
        std::vector<uint32_t> starts; // of each code's rows in `sorted`
        std::vector<Row> sorted;
    };

    struct TokenRows {
        Token token;
        std::size_t start; // in the block
        std::size_t length;
    };

    struct TokenBlock {
        std::vector<uint8_t> bytes;
        std::vector<TokenRows> tokens; // ascending
    };

    uint64_t Flags(Row row) { return Value(kFlagsColumn, row).value_or(0); }
    CachedColumn &ColumnOf(uint16_t column);
    const CachedColumn &ColumnWithCodes(uint16_t column);
    void SortRows(CachedColumn &column) const;
    TokenBlock &BlockOf(std::size_t block);
    std::vector<Row> RowsIn(const TokenBlock &block, const TokenRows &token) const;
    void ReadMoreSections();

    std::size_t rows_;
    ReadPiece read_;
    std::vector<CachedColumn> columns_;
    std::vector<Token> first_tokens_; // of each block
    std::map<std::size_t, TokenBlock> blocks_;
    std::optional<std::vector<Row>> may_have_all_; // rows without tokens
    std::optional<std::vector<std::string>> paths_;
    std::optional<std::vector<uint8_t>> digests_;
    std::optional<std::map<Row, std::vector<SectionHeader>>> more_sections_;
};

} // namespace tavrik::store

#endif
