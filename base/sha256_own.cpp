// Our own computation, for systems without a library that uses the processor's instructions.
#include <algorithm>
#include <bit>
#include <cstring>

#include "base/sha256.h"

namespace tavrik::base {

namespace {

constexpr std::size_t kBlockSize = 64;

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

struct Sha256::State {
    void Compress(const uint8_t *bytes);

    std::array<uint32_t, 8> sums = {0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A,
                                    0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19};
    std::array<uint8_t, kBlockSize> block = {}; // the last bytes, up to the next whole block
    std::size_t used = 0;                       // of the block
    uint64_t length = 0;                        // in bytes
};

Sha256::Sha256() : state_(std::make_unique<State>()) {}

Sha256::~Sha256() = default;

void Sha256::State::Compress(const uint8_t *bytes) {
    std::array<uint32_t, 64> w;
    for (std::size_t i = 0; i < 16; ++i)
        w[i] = LoadBigEndian(bytes + 4 * i);
    for (std::size_t i = 16; i < w.size(); ++i) {
        const uint32_t s0 = std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ w[i - 15] >> 3;
        const uint32_t s1 = std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ w[i - 2] >> 10;
        w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    auto [a, b, c, d, e, f, g, h] = sums;
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
    const std::array<uint32_t, 8> added = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < sums.size(); ++i)
        sums[i] += added[i];
}

void Sha256::Update(std::span<const uint8_t> bytes) {
    State &state = *state_;
    state.length += bytes.size();
    while (!bytes.empty()) {
        if (state.used == 0 && bytes.size() >= kBlockSize) {
            state.Compress(bytes.data());
            bytes = bytes.subspan(kBlockSize);
            continue;
        }
        const std::size_t count = std::min(kBlockSize - state.used, bytes.size());
        std::memcpy(state.block.data() + state.used, bytes.data(), count);
        bytes = bytes.subspan(count);
        state.used += count;
        if (state.used == kBlockSize) {
            state.Compress(state.block.data());
            state.used = 0;
        }
    }
}

Sha256::Digest Sha256::Finish() {
    // A set bit, zeros up to the end of a block, and there the length in bits.
    const uint64_t length = state_->length;
    const std::size_t used = state_->used;
    std::array<uint8_t, 2 *kBlockSize> padding = {0x80};
    const std::size_t to_block_end = used < kBlockSize - sizeof length ? kBlockSize - used : 2 * kBlockSize - used;
    StoreBigEndian(length * 8, &padding[to_block_end - sizeof length]);
    Update(std::span(padding).first(to_block_end));
    Digest digest;
    for (std::size_t i = 0; i < state_->sums.size(); ++i)
        StoreBigEndian(state_->sums[i], &digest[4 * i]);
    return digest;
}

} // namespace tavrik::base
