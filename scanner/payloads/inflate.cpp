#include "scanner/payloads/inflate.h"

#include <algorithm>
#include <utility>

namespace tavrik::scanner::payloads {
namespace {

constexpr int kEndOfBlock = 256;
constexpr int kFirstLength = 257;
constexpr int kLengthLengths = 19;

struct Range {
    uint16_t base;
    uint8_t bits; // that follow and are added
};

constexpr Range kLengths[] = {{3, 0},   {4, 0},   {5, 0},   {6, 0},   {7, 0},  {8, 0},  {9, 0},  {10, 0},
                              {11, 1},  {13, 1},  {15, 1},  {17, 1},  {19, 2}, {23, 2}, {27, 2}, {31, 2},
                              {35, 3},  {43, 3},  {51, 3},  {59, 3},  {67, 4}, {83, 4}, {99, 4}, {115, 4},
                              {131, 5}, {163, 5}, {195, 5}, {227, 5}, {258, 0}};

constexpr Range kDistances[] = {{1, 0},     {2, 0},     {3, 0},     {4, 0},      {5, 1},      {7, 1},
                                {9, 2},     {13, 2},    {17, 3},    {25, 3},     {33, 4},     {49, 4},
                                {65, 5},    {97, 5},    {129, 6},   {193, 6},    {257, 7},    {385, 7},
                                {513, 8},   {769, 8},   {1025, 9},  {1537, 9},   {2049, 10},  {3073, 10},
                                {4097, 11}, {6145, 11}, {8193, 12}, {12289, 12}, {16385, 13}, {24577, 13}};

// The order in which the lengths of the code for code lengths are written.
constexpr uint8_t kLengthOrder[kLengthLengths] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

} // namespace

Inflate::Inflate(Input input) : input_(std::move(input)), window_(kWindow), literals_(), distances_() {}

bool Inflate::Code::Build(std::span<const uint8_t> lengths) {
    fast.fill(0);
    count.fill(0);
    for (const uint8_t length : lengths)
        ++count[length];
    count[0] = 0;
    int left = 1; // codes that the shorter ones leave
    std::array<uint16_t, kLongestCode + 2> place = {};
    std::array<uint32_t, kLongestCode + 2> next = {};
    for (std::size_t length = 1; length <= kLongestCode; ++length) {
        left = left * 2 - count[length];
        if (left < 0)
            return false;
        place[length + 1] = static_cast<uint16_t>(place[length] + count[length]);
        next[length + 1] = (next[length] + count[length]) * 2;
    }
    for (std::size_t symbol = 0; symbol < lengths.size(); ++symbol) {
        const uint8_t length = lengths[symbol];
        if (length == 0)
            continue;
        symbols[place[length]++] = static_cast<uint16_t>(symbol);
        const uint32_t code = next[length]++;
        if (length > kFastBits)
            continue;
        uint32_t reversed = 0; // codes come with their first bit lowest
        for (int bit = 0; bit < length; ++bit)
            reversed |= (code >> bit & 1) << (length - 1 - bit);
        for (uint32_t index = reversed; index < fast.size(); index += 1u << length)
            fast[index] = static_cast<uint16_t>(symbol << 4 | length);
    }
    return true;
}

void Inflate::Fail(const char *why) {
    state_ = State::Failed;
    error_ = why;
}

// Reads ahead until `count` bits are there (up to 32) or the input ends.
void Inflate::Fill(int count) {
    while (bit_count_ < count) {
        const int byte = input_.Byte();
        if (byte < 0)
            return;
        bits_ |= static_cast<uint64_t>(byte) << bit_count_;
        bit_count_ += 8;
    }
}

// 0 with a failure when the input ends before.
uint32_t Inflate::Bits(int count) {
    Fill(count);
    if (bit_count_ < count) {
        Fail(kEndsEarly);
        return 0;
    }
    const auto value = static_cast<uint32_t>(bits_ & ((uint64_t{1} << count) - 1));
    bits_ >>= count;
    bit_count_ -= count;
    return value;
}

// -1 with a failure when there is none.
int Inflate::Symbol(const Code &code) {
    Fill(kLongestCode);
    const uint16_t found = code.fast[bits_ & (code.fast.size() - 1)];
    if (const int length = found & 15; length != 0 && length <= bit_count_) {
        bits_ >>= length;
        bit_count_ -= length;
        return found >> 4;
    }
    uint32_t value = 0;
    uint32_t first = 0;
    uint32_t index = 0;
    for (int length = 1; length <= kLongestCode && length <= bit_count_; ++length) {
        value = value << 1 | static_cast<uint32_t>(bits_ >> (length - 1) & 1);
        const uint32_t count = code.count[static_cast<std::size_t>(length)];
        if (value - first < count) {
            bits_ >>= length;
            bit_count_ -= length;
            return code.symbols[index + value - first];
        }
        index += count;
        first = (first + count) << 1;
    }
    Fail(bit_count_ < kLongestCode ? kEndsEarly : kIsDamaged);
    return -1;
}

void Inflate::StartBlock() {
    if (is_last_block_) {
        state_ = State::End;
        return;
    }
    is_last_block_ = Bits(1) != 0;
    const uint32_t type = Bits(2);
    if (state_ == State::Failed)
        return;
    switch (type) {
    case 0:
        return StartStored();
    case 1:
        return StartFixed();
    case 2:
        return StartDynamic();
    default:
        return Fail(kIsDamaged);
    }
}

void Inflate::StartStored() {
    Bits(bit_count_ % 8);
    left_ = Bits(16);
    if (state_ == State::Failed)
        return;
    if (stored_ != Stored::Plain) {
        Fill(16);
        if (bit_count_ < 16 && left_ > 1)
            return Fail(kEndsEarly);
        const bool has_complement = bit_count_ >= 16 && (bits_ & 0xFFFF) == (left_ ^ 0xFFFF);
        if (has_complement)
            Bits(16);
        else if (stored_ == Stored::WithComplement)
            return Fail(kIsDamaged);
        stored_ = has_complement ? Stored::WithComplement : Stored::Plain;
    }
    state_ = State::Stored;
}

void Inflate::StartFixed() {
    std::array<uint8_t, kMostSymbols> lengths;
    std::fill(lengths.begin(), lengths.begin() + 144, uint8_t{8});
    std::fill(lengths.begin() + 144, lengths.begin() + 256, uint8_t{9});
    std::fill(lengths.begin() + 256, lengths.begin() + 280, uint8_t{7});
    std::fill(lengths.begin() + 280, lengths.end(), uint8_t{8});
    literals_.Build(lengths);
    std::fill(lengths.begin(), lengths.begin() + 30, uint8_t{5});
    distances_.Build(std::span(lengths).first(30));
    left_ = 0;
    state_ = State::Compressed;
}

bool Inflate::ReadCodeLengths(std::span<uint8_t> lengths, const Code &code) {
    for (std::size_t done = 0; done < lengths.size();) {
        const int symbol = Symbol(code);
        if (symbol < 0)
            return false;
        if (symbol < 16) {
            lengths[done++] = static_cast<uint8_t>(symbol);
            continue;
        }
        if (symbol == 16 && done == 0)
            return false;
        const uint8_t value = symbol == 16 ? lengths[done - 1] : uint8_t{0};
        const std::size_t repeats = symbol == 16 ? 3 + Bits(2) : symbol == 17 ? 3 + Bits(3) : 11 + Bits(7);
        if (state_ == State::Failed || repeats > lengths.size() - done)
            return false;
        std::fill_n(lengths.begin() + static_cast<std::ptrdiff_t>(done), repeats, value);
        done += repeats;
    }
    return true;
}

void Inflate::StartDynamic() {
    const std::size_t literal_count = Bits(5) + 257;
    const std::size_t distance_count = Bits(5) + 1;
    const std::size_t length_count = Bits(4) + 4;
    std::array<uint8_t, kLengthLengths> length_lengths = {};
    for (std::size_t i = 0; i < length_count; ++i)
        length_lengths[kLengthOrder[i]] = static_cast<uint8_t>(Bits(3));
    if (state_ == State::Failed)
        return;
    std::array<uint8_t, 288 + 32> lengths = {};
    const std::span<uint8_t> all = std::span(lengths).first(literal_count + distance_count);
    // The code for distances takes the other's place until it is known itself.
    if (literal_count > kMostSymbols || !distances_.Build(length_lengths) || !ReadCodeLengths(all, distances_) ||
        !literals_.Build(all.first(literal_count)) || !distances_.Build(all.subspan(literal_count))) {
        if (state_ != State::Failed)
            Fail(kIsDamaged);
        return;
    }
    left_ = 0;
    state_ = State::Compressed;
}

std::size_t Inflate::CopyStored(uint8_t *to, std::size_t length) {
    std::size_t done = 0;
    for (; done < length && left_ != 0; ++done, --left_) {
        const uint32_t byte = Bits(8);
        if (state_ == State::Failed)
            return done;
        Put(to + done, static_cast<uint8_t>(byte));
    }
    if (left_ == 0)
        state_ = State::Header;
    return done;
}

void Inflate::StartMatch(int symbol) {
    const auto index = static_cast<std::size_t>(symbol - kFirstLength);
    if (index >= std::size(kLengths))
        return Fail(kIsDamaged);
    const uint32_t length = kLengths[index].base + Bits(kLengths[index].bits);
    const int distance = Symbol(distances_);
    if (distance < 0)
        return;
    if (static_cast<std::size_t>(distance) >= std::size(kDistances))
        return Fail(kIsDamaged);
    distance_ = kDistances[distance].base + Bits(kDistances[distance].bits);
    if (state_ == State::Failed)
        return;
    if (distance_ > total_)
        return Fail(kIsDamaged);
    left_ = length;
}

std::size_t Inflate::Copy(uint8_t *to, std::size_t length) {
    std::size_t done = 0;
    for (; done < length && left_ != 0; ++done, --left_)
        Put(to + done, window_[(total_ - distance_) % kWindow]);
    return done;
}

std::size_t Inflate::Decompress(uint8_t *to, std::size_t length) {
    std::size_t done = Copy(to, length);
    while (done < length) {
        const int symbol = Symbol(literals_);
        if (symbol < 0)
            break;
        if (symbol < kEndOfBlock) {
            Put(to + done++, static_cast<uint8_t>(symbol));
            continue;
        }
        if (symbol == kEndOfBlock) {
            state_ = State::Header;
            break;
        }
        StartMatch(symbol);
        if (state_ == State::Failed)
            break;
        done += Copy(to + done, length - done);
    }
    return done;
}

std::size_t Inflate::Read(void *buffer, std::size_t length) {
    auto *const to = static_cast<uint8_t *>(buffer);
    std::size_t done = 0;
    while (done < length) {
        if (state_ == State::Header)
            StartBlock();
        else if (state_ == State::Stored)
            done += CopyStored(to + done, length - done);
        else if (state_ == State::Compressed)
            done += Decompress(to + done, length - done);
        else
            break;
    }
    return done;
}

} // namespace tavrik::scanner::payloads
