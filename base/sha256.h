/* SHA-256, which identifies files by their content. */
#ifndef TAVRIK_BASE_SHA256_H
#define TAVRIK_BASE_SHA256_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "base/byte_source.h"

namespace tavrik::base {

/** Computes the SHA-256 of bytes that come piece by piece: by OpenSSL where the build has it, else by code of our own.
 * Throws std::bad_alloc. */
class Sha256 {
public:
    using Digest = std::array<uint8_t, 32>;

    Sha256();
    ~Sha256();
    Sha256(const Sha256 &) = delete;
    Sha256 &operator=(const Sha256 &) = delete;

    void Update(std::span<const uint8_t> bytes);

    /** The digest of everything so far. Nothing may be added afterwards. */
    Digest Finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

/** A digest in 64 lower-case hexadecimal digits. */
std::string HexDigits(const Sha256::Digest &digest);

/** The SHA-256 of all bytes of a source in hexadecimal digits; "" when a read failed. */
std::string Sha256Of(ByteSource &source);

/** The SHA-256 of bytes in memory in hexadecimal digits. */
std::string Sha256Of(std::string_view bytes);

} // namespace tavrik::base

#endif
