#include "base/sha256.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>
#include <vector>

#include <fmt/format.h>

namespace tavrik::base {

namespace {

constexpr std::size_t kReadSize = 256 * 1024;

// The first 32 bits of the fractional parts of the cube roots of the first 64 primes.
constexpr std::array<uint32_t, 64> kRoundConstants = {
    0x428A2F98, 0x71374491, 0xB5C0FBCF, 0xE9B5DBA5, 0x3956C25B, 0x59F111F1, 0x923F82A4, 0xAB1C5ED5,
    0xD807AA98, 0x12835B01, 0x243185BE, 0x550C7DC3, 0x72BE5D74, 0x80DEB1FE, 0x9BDC06A7, 0xC19BF174,
    0xE49B69C1, 0xEFBE4786, 0x0FC19DC6, 0x240CA1CC, 0x2DE92C6F, 0x4A7484AA, 0x5CB0A9DC, 0x76F988DA,
    0x983E5152, 0xA831C66D, 0xB00327C8, 0xBF597FC7, 0xC6E00BF3, 0xD5A79147, 0x06CA6351, 0x14292967,
    0x27B70A85, 0x2E1B2138, 0x4D2C6DFC, 0x53380D13, 0x650A7354, 0x766A0ABB, 0x81C2C92E, 0x92722C85,
    0xA2BFE8A1, 0xA81A664B, 0xC24B8B70, 0xC76C51A3, 0xD192E819, 0xD6990624, 0xF40E3585, 0x106AA070,
    0x19A4C116, 0x1E376C08, 0x2748774C, 0x34B0BCB5, 0x391C0CB3, 0x4ED8AA4A, 0x5B9CCA4F, 0x682E6FF3,
    0x748F82EE, 0x78A5636F, 0x84C87814, 0x8CC70208, 0x90BEFFFA, 0xA4506CEB, 0xBEF9A3F7, 0xC67178F2};

uint32_t LoadBigEndian(const uint8_t *bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

template <typename Number>
void StoreBigEndian(Number value, uint8_t *bytes) {
    for (std::size_t i = sizeof(Number); i-- > 0; value >>= 8)
        bytes[i] = static_cast<uint8_t>(value);
}

} // namespace

void Sha256::Compress(const uint8_t *block) {
    std::array<uint32_t, 64> w;
    for (std::size_t i = 0; i < 16; ++i)
        w[i] = LoadBigEndian(block + 4 * i);
    for (std::size_t i = 16; i < w.size(); ++i) {
        const uint32_t s0 = std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ w[i - 15] >> 3;
        const uint32_t s1 = std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ w[i - 2] >> 10;
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    auto [a, b, c, d, e, f, g, h] = state_;
    for (std::size_t i = 0; i < w.size(); ++i) {
        const uint32_t s1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
        const uint32_t t1 = h + s1 + ((e & f) ^ (~e & g)) + kRoundConstants[i] + w[i];
        const uint32_t s0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
        const uint32_t t2 = s0 + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + t1;
        d = c;
        c = b;
        b = a;
        a = t1 + t2;
    }
    const std::array<uint32_t, 8> sum = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < state_.size(); ++i)
        state_[i] += sum[i];
}

void Sha256::Update(std::span<const uint8_t> bytes) {
    length_ += bytes.size();
    while (!bytes.empty()) {
        if (used_ == 0 && bytes.size() >= kBlockSize) {
            Compress(bytes.data());
            bytes = bytes.subspan(kBlockSize);
            continue;
        }
        const std::size_t count = std::min(kBlockSize - used_, bytes.size());
        std::memcpy(block_.data() + used_, bytes.data(), count);
        bytes = bytes.subspan(count);
        used_ += count;
        if (used_ == kBlockSize) {
            Compress(block_.data());
            used_ = 0;
        }
    }
}

Sha256::Digest Sha256::Finish() {
    // A set bit, zeros up to the end of a block, and there the length in bits.
    std::array<uint8_t, 2 *kBlockSize> padding = {0x80};
    const std::size_t to_block_end = used_ < kBlockSize - sizeof length_ ? kBlockSize - used_ : 2 * kBlockSize - used_;
    StoreBigEndian(length_ * 8, &padding[to_block_end - sizeof length_]);
    Update(std::span(padding).first(to_block_end));
    Digest digest;
    for (std::size_t i = 0; i < state_.size(); ++i)
        StoreBigEndian(state_[i], &digest[4 * i]);
    return digest;
}

std::string Sha256Of(ByteSource &source) {
    Sha256 hash;
    std::vector<uint8_t> buffer(static_cast<std::size_t>(std::min<uint64_t>(kReadSize, source.size())));
    for (uint64_t offset = 0; offset < source.size();) {
        const std::size_t count = source.ReadAt(offset, buffer.data(), buffer.size());
        if (count == 0)
            break; // failed, or the file has shrunk
        hash.Update(std::span(buffer).first(count));
        offset += count;
    }
    if (!source.error().empty())
        return "";
    std::string digits;
    for (const uint8_t byte : hash.Finish())
        fmt::format_to(std::back_inserter(digits), "{:02x}", byte);
    return digits;
}

} // namespace tavrik::base
