#include "store/segment_writer.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "evaluation/table_conditions.h"
#include "rules/numbers.h"
#include "store/column.h"
#include "store/layout.h"

namespace tavrik::store {

namespace {

constexpr std::size_t kNumbersOfAPath = 8;     // bytes, at most, of the two numbers before a path
constexpr std::size_t kNumbersOfSections = 16; // and of those before the sections of a row

std::size_t MoreSectionBytes(const StoredFile &file) {
    return file.sections.size() > kColumnSections
               ? (file.sections.size() - kColumnSections) * sizeof(SectionHeader) + kNumbersOfSections
               : 0;
}

// A row's value of a column; false when it has none.
bool ValueOf(const StoredFile &file, uint16_t column, uint64_t &value) {
    if (column < rules::kHeaderFieldCount) {
        value = file.header[column];
        return file.has[column];
    }
    if (column < kSizeColumn) {
        const std::size_t position = (column - kFirstSectionColumn) / kSectionColumns;
        const auto field = static_cast<uint8_t>((column - kFirstSectionColumn) % kSectionColumns);
        if (position >= file.sections.size())
            return false;
        if (field == 0)
            std::memcpy(&value, file.sections[position].Name, sizeof(value));
        else
            value = evaluation::SectionFieldValue(file.sections[position], field).value_or(0);
        return true;
    }
    switch (column) {
    case kSizeColumn:
        value = file.stamp.size;
        return !(file.has[rules::header_field::kFileSize] && file.header[rules::header_field::kFileSize] == value);
    case kTimeColumn:
        value = static_cast<uint64_t>(file.stamp.time);
        return true;
    case kSectionCountColumn:
        value = file.sections.size();
        return true;
    default:
        value = (file.is_pe ? kIsPe : 0) | (file.tokens.are_complete ? kHasAllTokens : 0);
        return true;
    }
}

class Encoder {
public:
    explicit Encoder(std::span<const StoredFile> files) : files_(files) {}

    std::vector<Piece> Encode() {
        for (uint16_t column = 0; column < kColumnCount; ++column)
            AddColumn(column);
        AddPaths();
        AddDigests();
        AddMoreSections();
        AddTokens();
        Add(kHeadPiece, head_);
        return std::move(pieces_);
    }

private:
    void Add(uint32_t number, std::string_view bytes) { pieces_.push_back({number, Compress(bytes)}); }

    void AddColumn(uint16_t column) {
        values_.resize(files_.size());
        there_.resize(files_.size());
        for (std::size_t row = 0; row < files_.size(); ++row)
            there_[row] = ValueOf(files_[row], column, values_[row]) ? 1 : 0;
        EncodedColumn encoded = EncodeColumn(values_, there_);
        head_ += static_cast<char>(encoded.kind);
        if (encoded.kind == ColumnKind::Constant)
            PutNumber(head_, encoded.constant);
        if (encoded.kind != ColumnKind::Stored)
            return;
        pieces_.push_back({ValuesPiece(column), std::move(encoded.values)});
        pieces_.push_back({CodesPiece(column), std::move(encoded.codes)});
    }

    // Each path by what it shares with the one before.
    void AddPaths() {
        std::string bytes;
        for (std::string_view before; const StoredFile &file : files_) {
            const std::string_view path = file.path;
            const auto shared = static_cast<std::size_t>(std::ranges::mismatch(path, before).in1 - path.begin());
            PutNumber(bytes, shared);
            PutNumber(bytes, path.size() - shared);
            bytes += path.substr(shared);
            before = path;
        }
        Add(kPathsPiece, bytes);
    }

    void AddDigests() {
        std::string bytes;
        for (const StoredFile &file : files_)
            bytes.append(reinterpret_cast<const char *>(file.digest.data()), file.digest.size());
        Add(kDigestsPiece, bytes);
    }

    void AddMoreSections() {
        std::string bytes;
        for (std::size_t row = 0; row < files_.size(); ++row) {
            const std::vector<SectionHeader> &sections = files_[row].sections;
            if (sections.size() <= kColumnSections)
                continue;
            PutNumber(bytes, row);
            PutNumber(bytes, sections.size() - kColumnSections);
            bytes.append(reinterpret_cast<const char *>(&sections[kColumnSections]),
                         (sections.size() - kColumnSections) * sizeof(SectionHeader));
        }
        if (!bytes.empty())
            Add(kMoreSectionsPiece, bytes);
    }

    // Ascending tokens, each with its rows; blocks, so that one token costs little to find.
    void AddTokens() {
        constexpr unsigned kRowBits = 16;
        std::vector<uint64_t> all; // a token and a row
        for (std::size_t row = 0; row < files_.size(); ++row)
            for (const Token token : files_[row].tokens.tokens)
                all.push_back(uint64_t{token} << kRowBits | row);
        std::ranges::sort(all);
        std::vector<Token> firsts;
        std::string block;
        Token before = 0;
        const auto end_block = [&] {
            if (!block.empty())
                Add(static_cast<uint32_t>(kFirstTokenPiece + firsts.size() - 1), block);
            block.clear();
        };
        for (std::size_t i = 0; i < all.size();) {
            const auto token = static_cast<Token>(all[i] >> kRowBits);
            std::string rows;
            uint32_t row_before = 0;
            for (; i < all.size() && all[i] >> kRowBits == token; ++i) {
                const auto row = static_cast<uint32_t>(all[i] & ((1U << kRowBits) - 1));
                PutNumber(rows, row - row_before);
                row_before = row;
            }
            if (block.size() >= kTokenBlock)
                end_block();
            if (block.empty())
                firsts.push_back(before = token);
            PutNumber(block, token - before);
            PutNumber(block, rows.size());
            block += rows;
            before = token;
        }
        end_block();
        PutNumber(head_, firsts.size());
        for (Token last = 0; const Token first : firsts) {
            PutNumber(head_, first - last);
            last = first;
        }
    }

    std::span<const StoredFile> files_;
    std::vector<Piece> pieces_;
    std::string head_;
    std::vector<uint64_t> values_;
    std::vector<uint8_t> there_;
};

} // namespace

bool SegmentRoom::Add(const StoredFile &file) {
    const std::size_t path_bytes = file.path.size() + kNumbersOfAPath;
    const std::size_t more_bytes = MoreSectionBytes(file);
    if (rows_ == kMostRows || path_bytes_ + path_bytes > kMostPathBytes ||
        more_section_bytes_ + more_bytes > kMostMoreSectionBytes ||
        tokens_ + file.tokens.tokens.size() > kMostTokensInAll)
        return false;
    ++rows_;
    path_bytes_ += path_bytes;
    more_section_bytes_ += more_bytes;
    tokens_ += file.tokens.tokens.size();
    return true;
}

std::vector<Piece> EncodeSegment(std::span<const StoredFile> files) {
    return Encoder(files).Encode();
}

} // namespace tavrik::store
