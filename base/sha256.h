/* SHA-256, which identifies files by their content. */
#ifndef TAVRIK_BASE_SHA256_H
#define TAVRIK_BASE_SHA256_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "base/byte_source.h"

namespace tavrik::base {

/** Computes the SHA-256 of bytes that come piece by piece. */
class Sha256 {
public:
    using Digest = std::array<uint8_t, 32>;

    void Update(std::span<const uint8_t> bytes);

    /** The digest of everything so far. Nothing may be added afterwards. */
    Digest Finish();

private:
    static constexpr std::size_t kBlockSize = 64;

    void Compress(const uint8_t *block);

    std::array<uint32_t, 8> state_ = {0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A,
                                      0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19};
    std::array<uint8_t, kBlockSize> block_ = {}; // the last bytes, up to the next whole block
    std::size_t used_ = 0;                       // of block_
    uint64_t length_ = 0;                        // in bytes
};

/** The SHA-256 of all bytes of a source in 64 lower-case hexadecimal digits; "" when a read failed. */
std::string Sha256Of(ByteSource &source);

} // namespace tavrik::base

#endif
