/* The compression of AutoIt's script archives. */
#ifndef TAVRIK_SCANNER_PAYLOADS_AUTOIT_UNPACK_H
#define TAVRIK_SCANNER_PAYLOADS_AUTOIT_UNPACK_H

#include <cstdint>
#include <string>
#include <vector>

#include "scanner/payloads/decoder.h"

namespace tavrik::scanner::payloads {

/** A tag of four bytes ("EA06"), the unpacked size (32 bits, the highest byte first) and a stream of bits, the highest
 * of each byte first: a bit tells a literal of 8 bits from a match of a distance of 15 bits and a length of one to
 * several groups of bits. */
class AutoItUnpacker final : public Decoder {
public:
    /** `is_literal_set`: which bit stands for a literal, for tags that do not tell. */
    AutoItUnpacker(Input input, bool is_literal_set);

    std::size_t Read(void *buffer, std::size_t length) override;
    const std::string &error() const override { return error_; }

private:
    static constexpr std::size_t kWindow = 32 * 1024;

    uint32_t Bits(int count);
    uint32_t MatchLength();
    void StartMatch();

    void Put(uint8_t *to, uint8_t byte) {
        *to = byte;
        window_[total_++ % kWindow] = byte;
    }

    Input input_;
    bool is_literal_set_;
    std::vector<uint8_t> window_;
    uint64_t total_ = 0; // bytes made
    uint64_t size_ = 0;  // bytes to make
    uint32_t bits_ = 0;  // read ahead, the next one highest of bit_count_
    int bit_count_ = 0;
    uint32_t left_ = 0; // of the match
    uint32_t distance_ = 0;
    std::string error_;
};

} // namespace tavrik::scanner::payloads

#endif
