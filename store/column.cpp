#include "store/column.h"

#include <algorithm>
#include <bit>
#include <numeric>

namespace tavrik::store {

namespace {

// Codes up to this one take a byte each.
constexpr std::size_t kMostNarrowCodes = UINT8_MAX;

constexpr std::size_t kLongestNumber = 10; // bytes of a number of 64 bits

// The distinct values of a column, numbered as they come.
class Distinct {
public:
    explicit Distinct(std::size_t rows)
        : slots_(std::bit_ceil(2 * rows + 2)), shift_(64 - static_cast<unsigned>(std::countr_zero(slots_.size()))) {}

    // The value's number, from 1 on.
    uint32_t NumberOf(uint64_t value) {
        auto place = static_cast<std::size_t>((value ^ value >> 32) * 0x9E3779B97F4A7C15 >> shift_);
        for (; slots_[place] != 0; place = (place + 1) & (slots_.size() - 1))
            if (values_[slots_[place] - 1] == value)
                return slots_[place];
        values_.push_back(value);
        return slots_[place] = static_cast<uint32_t>(values_.size());
    }

    const std::vector<uint64_t> &values() const { return values_; }

private:
    std::vector<uint32_t> slots_; // numbers of values; open addressing
    unsigned shift_;
    std::vector<uint64_t> values_;
};

std::string PackValues(std::span<const uint64_t> ascending) {
    std::string bytes;
    for (uint64_t before = 0; const uint64_t value : ascending) {
        PutNumber(bytes, value - before);
        before = value;
    }
    return Compress(bytes);
}

// The low bytes of all codes and, where there are that many, the high bytes.
std::string PackCodes(std::span<const uint32_t> codes, std::size_t values) {
    const bool is_wide = values > kMostNarrowCodes;
    std::string bytes(codes.size() * (is_wide ? 2 : 1), '\0');
    for (std::size_t row = 0; row < codes.size(); ++row) {
        bytes[row] = static_cast<char>(codes[row]);
        if (is_wide)
            bytes[codes.size() + row] = static_cast<char>(codes[row] >> 8);
    }
    return Compress(bytes);
}

} // namespace

EncodedColumn EncodeColumn(std::span<const uint64_t> values, std::span<const uint8_t> there) {
    const auto present = static_cast<std::size_t>(std::ranges::count(there, uint8_t{1}));
    if (present == 0)
        return {};
    if (present == values.size() && std::ranges::all_of(values, [&](uint64_t value) { return value == values[0]; }))
        return {ColumnKind::Constant, values[0], {}, {}};

    Distinct distinct(values.size());
    std::vector<uint32_t> codes(values.size());
    for (std::size_t row = 0; row < values.size(); ++row)
        if (there[row] != 0)
            codes[row] = distinct.NumberOf(values[row]);

    std::vector<uint32_t> order(distinct.values().size());
    std::iota(order.begin(), order.end(), uint32_t{0});
    std::ranges::sort(order, {}, [&](uint32_t number) { return distinct.values()[number]; });
    std::vector<uint64_t> ascending;
    std::vector<uint32_t> code_of(order.size() + 1);
    for (const uint32_t number : order) {
        ascending.push_back(distinct.values()[number]);
        code_of[number + 1] = static_cast<uint32_t>(ascending.size());
    }
    for (uint32_t &code : codes)
        code = code_of[code];
    return {ColumnKind::Stored, 0, PackValues(ascending), PackCodes(codes, ascending.size())};
}

std::vector<uint64_t> DecodeValues(std::span<const uint8_t> piece, uint64_t largest) {
    const std::vector<uint8_t> bytes = Decompress(piece, kMostRows * kLongestNumber);
    std::vector<uint64_t> values;
    uint64_t value = 0;
    for (PieceReader reader(bytes); !reader.AtEnd();) {
        const uint64_t step = reader.NumberUpTo(largest - value);
        if ((step == 0 && !values.empty()) || values.size() == kMostRows)
            throw Damaged("a column's values are not ascending");
        value += step;
        values.push_back(value);
    }
    return values;
}

std::vector<Code> DecodeCodes(std::span<const uint8_t> piece, std::size_t rows, std::size_t values) {
    const bool is_wide = values > kMostNarrowCodes;
    const std::vector<uint8_t> bytes = Decompress(piece, rows * 2);
    if (bytes.size() != rows * (is_wide ? 2 : 1))
        throw Damaged("a column has another number of rows");
    std::vector<Code> codes(rows);
    for (std::size_t row = 0; row < rows; ++row)
        codes[row] = static_cast<Code>(bytes[row] | (is_wide ? bytes[rows + row] << 8 : 0));
    if (std::ranges::any_of(codes, [&](Code code) { return code > values; }))
        throw Damaged("a column has a code without a value");
    return codes;
}

} // namespace tavrik::store
