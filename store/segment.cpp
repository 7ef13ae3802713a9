#include "store/segment.h"

#include <algorithm>
#include <cstring>

#include "evaluation/table_conditions.h"
#include "pe/image.h"
#include "rules/numbers.h"

namespace tavrik::store {

namespace {

constexpr std::size_t kMostHeadBytes = 1u << 20;

// No header value, and no field of a section but its name, is longer than 32 bits.
uint64_t LargestIn(uint16_t column) {
    const bool is_name =
        column >= kFirstSectionColumn && column < kSizeColumn && (column - kFirstSectionColumn) % kSectionColumns == 0;
    return is_name || column >= kSizeColumn ? UINT64_MAX : UINT32_MAX;
}

// Writes a value into a section header; field 0 is the name.
void SetField(SectionHeader &section, std::size_t number, uint64_t value) {
    if (number == 0) {
        std::memcpy(section.Name, &value, sizeof(section.Name));
        return;
    }
    if (const rules::Field *field = rules::FindField(rules::SectionFields(), static_cast<uint32_t>(number)))
        std::memcpy(reinterpret_cast<uint8_t *>(&section) + field->offset, &value, field->width);
}

} // namespace

Segment::Segment(std::size_t rows, ReadPiece read) : rows_(rows), read_(std::move(read)), columns_(kColumnCount) {
    if (rows == 0 || rows > kMostRows)
        throw Damaged("a segment has no number of rows that it may have");
    const std::vector<uint8_t> head = Decompress(read_(kHeadPiece), kMostHeadBytes);
    PieceReader reader(head);
    for (uint16_t column = 0; column < kColumnCount; ++column) {
        CachedColumn &cached = columns_[column];
        const uint8_t kind = reader.Byte();
        if (kind > static_cast<uint8_t>(ColumnKind::Stored))
            throw Damaged("a column is of no known kind");
        cached.kind = static_cast<ColumnKind>(kind);
        cached.has_values = cached.kind != ColumnKind::Stored;
        if (cached.kind == ColumnKind::Constant) {
            cached.values.push_back(reader.NumberUpTo(LargestIn(column)));
            cached.code_of_all = 1;
        }
    }
    const uint64_t blocks = reader.NumberUpTo(kMostPieces - kFirstTokenPiece);
    for (uint64_t token = 0; first_tokens_.size() < blocks;) {
        token += reader.NumberUpTo(UINT32_MAX - token);
        first_tokens_.push_back(static_cast<Token>(token));
    }
}

Segment::CachedColumn &Segment::ColumnOf(uint16_t column) {
    CachedColumn &cached = columns_[column];
    if (!cached.has_values) {
        cached.values = DecodeValues(read_(ValuesPiece(column)), LargestIn(column));
        cached.has_values = true;
    }
    return cached;
}

const Segment::CachedColumn &Segment::ColumnWithCodes(uint16_t column) {
    CachedColumn &cached = columns_[column];
    if (cached.kind == ColumnKind::Stored && cached.codes.empty()) {
        const std::size_t values = ColumnOf(column).values.size();
        cached.codes = DecodeCodes(read_(CodesPiece(column)), rows_, values);
    }
    return cached;
}

void Segment::SortRows(CachedColumn &column) const {
    column.starts.assign(column.values.size() + 2, 0);
    for (const Code code : column.codes)
        ++column.starts[code + 1u];
    for (std::size_t code = 1; code < column.starts.size(); ++code)
        column.starts[code] += column.starts[code - 1];
    column.sorted.resize(rows_);
    std::vector<uint32_t> next(column.starts.begin(), column.starts.end() - 1);
    for (std::size_t row = 0; row < rows_; ++row)
        column.sorted[next[column.codes[row]]++] = static_cast<Row>(row);
}

std::vector<Row> Segment::RowsWith(uint16_t column, uint64_t value) {
    const std::span<const uint64_t> values = Values(column);
    const auto found = std::ranges::lower_bound(values, value);
    std::vector<Row> rows;
    if (found == values.end() || *found != value)
        return rows;
    const auto code = static_cast<Code>(found - values.begin() + 1);
    ColumnWithCodes(column);
    CachedColumn &cached = columns_[column];
    if (cached.codes.empty()) {
        for (std::size_t row = 0; row < rows_; ++row)
            rows.push_back(static_cast<Row>(row));
        return rows;
    }
    if (++cached.uses == kUsesBeforeSorting)
        SortRows(cached);
    if (cached.uses >= kUsesBeforeSorting)
        return {cached.sorted.begin() + cached.starts[code], cached.sorted.begin() + cached.starts[code + 1u]};
    for (std::size_t row = 0; row < rows_; ++row)
        if (cached.codes[row] == code)
            rows.push_back(static_cast<Row>(row));
    return rows;
}

Segment::TokenBlock &Segment::BlockOf(std::size_t number) {
    if (blocks_.size() >= kMostCachedBlocks && !blocks_.contains(number))
        blocks_.clear();
    const auto [place, is_new] = blocks_.try_emplace(number);
    TokenBlock &block = place->second;
    if (!is_new)
        return block;
    block.bytes = Decompress(read_(static_cast<uint32_t>(kFirstTokenPiece + number)), kMostTokenBlock);
    uint64_t token = first_tokens_[number];
    for (PieceReader reader(block.bytes); !reader.AtEnd();) {
        token += reader.NumberUpTo(UINT32_MAX - token);
        const std::size_t length = static_cast<std::size_t>(reader.Number());
        const std::span<const uint8_t> rows = reader.Take(length);
        block.tokens.push_back(
            {static_cast<Token>(token), static_cast<std::size_t>(rows.data() - block.bytes.data()), length});
    }
    return block;
}

std::vector<Row> Segment::RowsIn(const TokenBlock &block, const TokenRows &token) const {
    std::vector<Row> rows;
    uint64_t row = 0;
    for (PieceReader reader(std::span(block.bytes).subspan(token.start, token.length)); !reader.AtEnd();) {
        const uint64_t step = reader.NumberUpTo(rows_ - 1 - row);
        if (step == 0 && !rows.empty())
            throw Damaged("a token's rows are not ascending");
        rows.push_back(static_cast<Row>(row += step));
    }
    return rows;
}

std::vector<Row> Segment::RowsThatMayHave(Token token) {
    if (!may_have_all_) {
        may_have_all_.emplace();
        for (std::size_t row = 0; row < rows_; ++row)
            if ((Flags(static_cast<Row>(row)) & kHasAllTokens) == 0)
                may_have_all_->push_back(static_cast<Row>(row));
    }
    const auto after = std::ranges::upper_bound(first_tokens_, token);
    std::vector<Row> rows;
    if (after != first_tokens_.begin()) {
        const TokenBlock &block = BlockOf(static_cast<std::size_t>(after - first_tokens_.begin() - 1));
        const auto found = std::ranges::lower_bound(block.tokens, token, {}, &TokenRows::token);
        if (found != block.tokens.end() && found->token == token)
            rows = RowsIn(block, *found);
    }
    std::vector<Row> all;
    std::ranges::set_union(rows, *may_have_all_, std::back_inserter(all));
    return all;
}

Stamp Segment::StampOf(Row row) {
    std::optional<uint64_t> size = Value(kSizeColumn, row);
    if (!size)
        size = Value(rules::header_field::kFileSize, row);
    return {size.value_or(0), static_cast<int64_t>(Value(kTimeColumn, row).value_or(0))};
}

const std::vector<std::string> &Segment::Paths() {
    if (paths_)
        return *paths_;
    const std::vector<uint8_t> bytes = Decompress(read_(kPathsPiece), kMostPathBytes);
    std::vector<std::string> paths;
    std::size_t sum = 0;
    for (PieceReader reader(bytes); paths.size() < rows_;) {
        const std::size_t shared = static_cast<std::size_t>(reader.NumberUpTo(paths.empty() ? 0 : paths.back().size()));
        const std::span<const uint8_t> rest = reader.Take(reader.NumberUpTo(kLongestPath - shared));
        sum += shared + rest.size();
        if (sum > kMostPathBytes)
            throw Damaged("the paths of a segment are too long");
        std::string path = shared == 0 ? std::string() : paths.back().substr(0, shared);
        path.append(rest.begin(), rest.end());
        paths.push_back(std::move(path));
    }
    return paths_.emplace(std::move(paths));
}

base::Sha256::Digest Segment::DigestOf(Row row) {
    base::Sha256::Digest digest;
    if (!digests_) {
        digests_ = Decompress(read_(kDigestsPiece), rows_ * digest.size());
        if (digests_->size() != rows_ * digest.size())
            throw Damaged("a segment has too few digests");
    }
    std::memcpy(digest.data(), digests_->data() + row * digest.size(), digest.size());
    return digest;
}

void Segment::ReadMoreSections() {
    more_sections_.emplace();
    const std::span<const uint8_t> piece = read_(kMoreSectionsPiece);
    if (piece.empty())
        return;
    const std::vector<uint8_t> bytes = Decompress(piece, kMostMoreSectionBytes);
    for (PieceReader reader(bytes); !reader.AtEnd();) {
        const auto row = static_cast<Row>(reader.NumberUpTo(rows_ - 1));
        const uint64_t count = reader.NumberUpTo(pe::kMostSections - kColumnSections);
        std::vector<SectionHeader> &sections = (*more_sections_)[row];
        sections.resize(static_cast<std::size_t>(count));
        const std::span<const uint8_t> headers = reader.Take(count * sizeof(SectionHeader));
        std::memcpy(sections.data(), headers.data(), headers.size());
    }
}

std::vector<SectionHeader> Segment::SectionsOf(Row row) {
    const auto count =
        static_cast<std::size_t>(std::min<uint64_t>(Value(kSectionCountColumn, row).value_or(0), pe::kMostSections));
    std::vector<SectionHeader> sections(std::min(count, kColumnSections));
    for (std::size_t position = 0; position < sections.size(); ++position)
        for (std::size_t field = 0; field < kSectionColumns; ++field)
            SetField(sections[position], field, Value(SectionColumn(position, field), row).value_or(0));
    if (count <= kColumnSections)
        return sections;
    if (!more_sections_)
        ReadMoreSections();
    const auto more = more_sections_->find(row);
    if (more == more_sections_->end() || more->second.size() != count - kColumnSections)
        throw Damaged("a file lacks some of its sections");
    sections.insert(sections.end(), more->second.begin(), more->second.end());
    return sections;
}

std::vector<StoredFile> Segment::AllFiles() {
    std::vector<StoredFile> files(rows_);
    for (std::size_t i = 0; i < rows_; ++i) {
        const auto row = static_cast<Row>(i);
        StoredFile &file = files[i];
        file.path = Paths()[i];
        file.stamp = StampOf(row);
        file.digest = DigestOf(row);
        file.is_pe = IsPe(row);
        file.tokens.are_complete = (Flags(row) & kHasAllTokens) != 0;
        file.sections = SectionsOf(row);
    }
    for (uint16_t field = 0; field < rules::kHeaderFieldCount; ++field)
        for (std::size_t i = 0; columns_[field].kind != ColumnKind::Absent && i < rows_; ++i)
            if (const std::optional<uint64_t> value = Value(field, static_cast<Row>(i))) {
                files[i].has.set(field);
                files[i].header[field] = static_cast<uint32_t>(*value);
            }
    // Ascending tokens, so that each file's are ascending too.
    std::size_t tokens = 0;
    for (std::size_t number = 0; number < first_tokens_.size(); ++number) {
        const TokenBlock &block = BlockOf(number);
        for (const TokenRows &token : block.tokens)
            for (const Row row : RowsIn(block, token)) {
                if (++tokens > kMostTokensInAll)
                    throw Damaged("a segment has too many tokens");
                files[row].tokens.tokens.push_back(token.token);
            }
    }
    return files;
}

} // namespace tavrik::store
