// How many of many alike cases a test tries.
#pragma once

#include <cstdint>

namespace tavrik::tests {

/** One of so many cases is tried: all of them, but fewer under the sanitizers, which take up to ten times as long. */
#ifdef __SANITIZE_ADDRESS__
inline constexpr uint32_t kSampling = 5;
#else
inline constexpr uint32_t kSampling = 1;
#endif

} // namespace tavrik::tests
