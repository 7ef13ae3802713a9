/* The bytes that a store consists of: numbers of variable length, and compressed pieces with a checksum. */
#ifndef TAVRIK_STORE_PIECES_H
#define TAVRIK_STORE_PIECES_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/error.h"

namespace tavrik::store {

/** The store's bytes cannot be what was written. The text has no file's name. */
class Damaged : public base::Error {
public:
    explicit Damaged(const std::string &what) : Error("the store is damaged: " + what) {}
};

/** Appends a number in groups of 7 bits, the lowest first; all but the last have the high bit set. */
void PutNumber(std::string &to, uint64_t number);

/** Reads pieces from their start. What is not there throws Damaged. */
class PieceReader {
public:
    /** The bytes must outlive the object. */
    explicit PieceReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    bool AtEnd() const { return bytes_.empty(); }

    uint8_t Byte() { return Take(1)[0]; }
    uint64_t Number();

    /** A number that must be at most `most`. */
    uint64_t NumberUpTo(uint64_t most);

    std::span<const uint8_t> Take(uint64_t length);

private:
    std::span<const uint8_t> bytes_;
};

/** A frame of zstd with its size and a checksum. */
std::string Compress(std::string_view bytes);

/** The bytes of a frame. Throws Damaged when it is none, is damaged or holds more than `most` bytes. */
std::vector<uint8_t> Decompress(std::span<const uint8_t> frame, std::size_t most);

} // namespace tavrik::store

#endif
