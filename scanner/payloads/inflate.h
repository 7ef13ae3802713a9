/* Deflate (RFC 1951), with the stored blocks that Nullsoft installers have. */
#ifndef TAVRIK_SCANNER_PAYLOADS_INFLATE_H
#define TAVRIK_SCANNER_PAYLOADS_INFLATE_H

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "scanner/payloads/decoder.h"

namespace tavrik::scanner::payloads {

/** A raw deflate stream. The length of a stored block is followed by its complement, as the format says, or by the
 * block's bytes at once, as the installer's own compressor writes it: the first stored block of the stream tells which.
 * That is why zlib does not do. */
class Inflate final : public Decoder {
public:
    explicit Inflate(Input input);

    std::size_t Read(void *buffer, std::size_t length) override;
    const std::string &error() const override { return error_; }

private:
    static constexpr std::size_t kWindow = 32 * 1024;
    static constexpr int kFastBits = 9;
    static constexpr int kLongestCode = 15;
    static constexpr std::size_t kMostSymbols = 288;

    /** A canonical prefix code. Codes of up to kFastBits bits are looked up at once. */
    struct Code {
        bool Build(std::span<const uint8_t> lengths); // false when there are too many codes of some length

        std::array<uint16_t, 1 << kFastBits> fast; // symbol and length (lowest 4 bits); 0 for a longer or no code
        std::array<uint16_t, kLongestCode + 1> count;
        std::array<uint16_t, kMostSymbols> symbols; // in the order of their codes
    };

    enum class State : uint8_t { Header, Stored, Compressed, End, Failed };
    enum class Stored : uint8_t { Unknown, WithComplement, Plain };

    void Fail(const char *why);
    void Fill(int count);
    uint32_t Bits(int count);
    int Symbol(const Code &code);
    void StartBlock();
    void StartStored();
    void StartDynamic();
    void StartFixed();
    bool ReadCodeLengths(std::span<uint8_t> lengths, const Code &code);
    std::size_t Copy(uint8_t *to, std::size_t length);
    std::size_t CopyStored(uint8_t *to, std::size_t length);
    std::size_t Decompress(uint8_t *to, std::size_t length);
    void StartMatch(int symbol);

    void Put(uint8_t *to, uint8_t byte) {
        *to = byte;
        window_[total_++ % kWindow] = byte;
    }

    Input input_;
    std::vector<uint8_t> window_;
    uint64_t total_ = 0; // bytes made
    uint64_t bits_ = 0;  // read ahead, the next one lowest
    int bit_count_ = 0;
    State state_ = State::Header;
    Stored stored_ = Stored::Unknown;
    bool is_last_block_ = false;
    uint32_t left_ = 0;     // of a stored block or a match
    uint32_t distance_ = 0; // of the match
    Code literals_;
    Code distances_;
    std::string error_;
};

} // namespace tavrik::scanner::payloads

#endif
