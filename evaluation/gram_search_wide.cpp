// The search for grams at 32 places at a time, by AVX2, where the processor has it. MinGW does not align the stack for
// these instructions, so that the Windows build goes without.

#include "evaluation/gram_search.h"

#if defined(__x86_64__) && !defined(_WIN32)
#include <bit>
#include <immintrin.h>

#include "evaluation/gram_hash.h"
#endif

namespace tavrik::evaluation {

#if defined(__x86_64__) && !defined(_WIN32)

#define TAVRIK_AVX2 __attribute__((target("avx2")))

namespace {

constexpr unsigned kLanes = 8; // grams in a register

struct WideFilter {
    const int *words;
    __m256i multiplier;
    __m128i shift;
    __m256i fold;
    __m256i skips_zeros; // all bits or none
};

// A bit for each of the eight grams that begin at every fourth byte: whether the filter may hold it.
TAVRIK_AVX2 inline uint32_t MayHold(const WideFilter &filter, const uint8_t *bytes) {
    const __m256i grams = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(bytes));
    const __m256i hashes = _mm256_mullo_epi32(_mm256_or_si256(grams, filter.fold), filter.multiplier);
    const __m256i places = _mm256_srl_epi32(hashes, filter.shift);
    const __m256i words = _mm256_i32gather_epi32(filter.words, _mm256_srli_epi32(places, 5), 4);
    const __m256i bits = _mm256_sllv_epi32(words, _mm256_andnot_si256(places, _mm256_set1_epi32(31)));
    const __m256i is_skipped = _mm256_and_si256(_mm256_cmpeq_epi32(grams, _mm256_setzero_si256()), filter.skips_zeros);
    return static_cast<uint8_t>(_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_andnot_si256(is_skipped, bits))));
}

} // namespace

TAVRIK_AVX2 std::size_t GramSearch::FindWidely(std::span<const uint8_t> block, bool skips_zeros, Places &places) const {
    const WideFilter filter = {reinterpret_cast<const int *>(words_.data()),
                               _mm256_set1_epi32(static_cast<int>(kGramMultiplier)),
                               _mm_cvtsi32_si128(static_cast<int>(shift_)),
                               _mm256_set1_epi32(static_cast<int>(kGramFold)), _mm256_set1_epi32(skips_zeros ? -1 : 0)};
    // The strides with a gram are gathered first, so that no branch depends on the file.
    struct Stride {
        uint32_t mask; // a byte for each offset, a bit in it for each lane
        uint32_t at;
    };
    std::array<Stride, kLongestBlock / kStride + 1> strides;
    std::size_t hits = 0;
    for (std::size_t at = 0; at < block.size(); at += kStride) {
        uint32_t mask = 0;
        for (unsigned offset = 0; offset < kGramBytes; ++offset)
            mask |= MayHold(filter, block.data() + at + offset) << kLanes * offset;
        strides[hits] = {mask, static_cast<uint32_t>(at)};
        hits += mask != 0 ? 1U : 0U;
    }
    std::size_t count = 0;
    for (std::size_t i = 0; i < hits; ++i)
        for (uint32_t mask = strides[i].mask; mask != 0; mask &= mask - 1) {
            const auto bit = static_cast<unsigned>(std::countr_zero(mask));
            places[count++] = static_cast<uint16_t>(strides[i].at + bit % kLanes * kGramBytes + bit / kLanes);
        }
    return count;
}

bool GramSearch::IsWide() {
    static const bool is_wide = __builtin_cpu_supports("avx2") != 0;
    return is_wide;
}

#else

std::size_t GramSearch::FindWidely(std::span<const uint8_t> block, bool skips_zeros, Places &places) const {
    return FindPortably(block, skips_zeros, places);
}

bool GramSearch::IsWide() {
    return false;
}

#endif

} // namespace tavrik::evaluation
