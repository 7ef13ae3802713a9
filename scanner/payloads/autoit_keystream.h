/* The streams of bytes that compiled AutoIt scripts are combined with (exclusive or), one for each generation. */
#ifndef TAVRIK_SCANNER_PAYLOADS_AUTOIT_KEYSTREAM_H
#define TAVRIK_SCANNER_PAYLOADS_AUTOIT_KEYSTREAM_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <variant>

namespace tavrik::scanner::payloads {

/** EA06: the lagged generator RANROT (type B, 17 words, lags 17 and 10). Scripts take every second number as a fraction
 * of 1 and multiply it by 256, which are its upper 8 bits. */
class RotatingKeystream {
public:
    explicit RotatingKeystream(uint32_t seed) {
        for (uint32_t &word : words_)
            word = seed = 1 - seed * kMultiplier;
        for (int i = 0; i < kWarmUp; ++i)
            Step();
    }

    uint8_t Next() {
        Step();
        return static_cast<uint8_t>(Step() >> 24);
    }

private:
    static constexpr uint32_t kMultiplier = 0x53A9B4FB;
    static constexpr int kWarmUp = 9;
    static constexpr std::size_t kWords = 17;

    uint32_t Step() {
        const uint32_t next = std::rotl(words_[older_], 9) + std::rotl(words_[newer_], 13);
        words_[older_] = next;
        older_ = Before(older_);
        newer_ = Before(newer_);
        return next;
    }

    static std::size_t Before(std::size_t place) { return place == 0 ? kWords - 1 : place - 1; }

    std::array<uint32_t, kWords> words_;
    std::size_t older_ = 0;
    std::size_t newer_ = 10;
};

/** EA05: the Mersenne Twister MT19937 without the lowest bit of each number. */
class TwisterKeystream {
public:
    explicit TwisterKeystream(uint32_t seed) : numbers_(seed) {}

    uint8_t Next() { return static_cast<uint8_t>(numbers_() >> 1); }

private:
    std::mt19937 numbers_;
};

/** Either. Encrypts and decrypts, in pieces of any length. */
class Keystream {
public:
    enum class Kind : uint8_t { Rotating, Twister };

    Keystream(Kind kind, uint32_t seed) {
        if (kind == Kind::Rotating)
            stream_.emplace<RotatingKeystream>(seed);
        else
            stream_.emplace<TwisterKeystream>(seed);
    }

    void Apply(std::span<uint8_t> bytes) {
        std::visit(
            [bytes](auto &stream) {
                for (uint8_t &byte : bytes)
                    byte = static_cast<uint8_t>(byte ^ stream.Next());
            },
            stream_);
    }

private:
    std::variant<RotatingKeystream, TwisterKeystream> stream_{std::in_place_type<RotatingKeystream>, 0};
};

} // namespace tavrik::scanner::payloads

#endif
