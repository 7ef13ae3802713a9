/* A quick and exact answer to "can one of these markers lie wholly inside this block?". */
#ifndef TAVRIK2_LOCATORS_SCANS_MARKER_FILTER_H
#define TAVRIK2_LOCATORS_SCANS_MARKER_FILTER_H

#include <cstddef>
#include <cstdint>
#include <utility>

#include "tavrik2/bytes.h"
#include "tavrik2/locators/markers.h"

namespace tavrik2 {

/** A marker of Step + 3 bytes or more covers, wherever it lies in a block, one of the block's 4-byte words at a
 * multiple of Step: the word at 0 to Step - 1 bytes into the marker. So a block none of whose words there is one of
 * those, for any marker, holds no marker. The words are looked up by hash in a table of 8 KB, several without a branch,
 * and exactly only where the table has one. */
template <std::size_t Step, std::size_t MarkerCount>
class MarkerFilter {
public:
    template <std::size_t... Lengths>
    consteval explicit MarkerFilter(const uint8_t (&...markers)[Lengths]) {
        static_assert(sizeof...(Lengths) == MarkerCount);
        static_assert(((Lengths >= kWordSize + Step - 1) && ...), "a shorter marker could fall between two words");
        (Add(markers), ...);
    }

    /** True when the block may hold a marker, or the first Step + 3 bytes of one; false only when it holds none. */
    bool MayHoldMarker(const uint8_t (&block)[kBlockSize]) const {
        for (uint32_t place = 0; place < kBlockSize; place += kAtOnce * Step) {
            if (MayBeMarkerWords(block + place, std::make_index_sequence<kAtOnce>()) && HasMarkerWord(block + place))
                return true;
        }
        return false;
    }

private:
    static constexpr std::size_t kWordSize = 4;
    static constexpr std::size_t kAtOnce = 8; // words
    static_assert(kBlockSize % (kAtOnce * Step) == 0 && Step >= kWordSize);

    // The upper bits of a multiplicative hash.
    static constexpr uint32_t kHashBits = 13;
    static constexpr uint32_t Hash(uint32_t word) { return word * 0x9E3779B1u >> (32 - kHashBits); }

    consteval void Add(const uint8_t *marker) {
        for (std::size_t shift = 0; shift < Step; ++shift) {
            const uint32_t word = MarkerWord(marker + shift);
            words_[used_++] = word;
            table_[Hash(word)] = 1;
        }
    }

    template <std::size_t... Words>
    bool MayBeMarkerWords(const uint8_t *bytes, std::index_sequence<Words...>) const {
        return (table_[Hash(LoadU32(bytes + Words * Step))] | ...) != 0;
    }

    bool HasMarkerWord(const uint8_t *bytes) const {
        for (std::size_t place = 0; place < kAtOnce * Step; place += Step) {
            const uint32_t word = LoadU32(bytes + place);
            if (table_[Hash(word)] != 0 && IsMarkerWord(word))
                return true;
        }
        return false;
    }

    bool IsMarkerWord(uint32_t word) const {
        for (const uint32_t marker_word : words_) {
            if (word == marker_word)
                return true;
        }
        return false;
    }

    uint8_t table_[1u << kHashBits] = {};
    uint32_t words_[Step * MarkerCount] = {};
    std::size_t used_ = 0;
};

/** The filter for these markers. */
template <std::size_t Step, std::size_t... Lengths>
consteval MarkerFilter<Step, sizeof...(Lengths)> MakeMarkerFilter(const uint8_t (&...markers)[Lengths]) {
    return MarkerFilter<Step, sizeof...(Lengths)>(markers...);
}

} // namespace tavrik2

#endif
