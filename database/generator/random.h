/* Pseudo-random numbers that are the same on every system: integers only, no library distributions. */
#ifndef TAVRIK_DATABASE_GENERATOR_RANDOM_H
#define TAVRIK_DATABASE_GENERATOR_RANDOM_H

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

namespace tavrik::generator {

/** Spreads the bits of `value`; equal seeds in, equal seeds out. */
constexpr uint64_t Mix(uint64_t value) {
    value += 0x9E3779B97F4A7C15;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
}

class Random {
public:
    explicit Random(uint64_t seed) : state_(Mix(seed)) {}

    uint64_t Next() { return Mix(state_ += 0x9E3779B97F4A7C15); }
    uint32_t Next32() { return static_cast<uint32_t>(Next() >> 32); }
    uint8_t NextByte() { return static_cast<uint8_t>(Next() >> 56); }

    /** 0 to `count` - 1; `count` is not 0. */
    uint32_t Below(uint32_t count) { return static_cast<uint32_t>((Next() >> 32) * count >> 32); }
    uint32_t Below(std::size_t count) { return Below(static_cast<uint32_t>(count)); }

    /** `low` to `high`, both included. */
    uint32_t Between(uint32_t low, uint32_t high) { return low + Below(high - low + 1); }

    bool Chance(uint32_t percent) { return Below(100U) < percent; }

    /** An element of an array, vector or span that is not empty. */
    template <typename Range>
    const auto &Pick(const Range &range) {
        return *std::next(std::begin(range), static_cast<std::ptrdiff_t>(Below(std::size(range))));
    }

    template <typename Value>
    void Shuffle(std::vector<Value> &values) {
        for (std::size_t i = values.size(); i > 1; --i)
            std::swap(values[i - 1], values[Below(i)]);
    }

private:
    uint64_t state_;
};

} // namespace tavrik::generator

#endif
