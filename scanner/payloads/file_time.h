/* Times as Windows writes them. */
#ifndef TAVRIK_SCANNER_PAYLOADS_FILE_TIME_H
#define TAVRIK_SCANNER_PAYLOADS_FILE_TIME_H

#include <cstdint>
#include <optional>

namespace tavrik::scanner::payloads {

/** Seconds since 1970 UTC of a FILETIME, which counts 100 ns since 1601; nothing for 0 and for all bits set, which
 * stand for no time. */
constexpr std::optional<int64_t> UnixTime(uint64_t file_time) {
    constexpr uint64_t kTicksInSecond = 10'000'000;
    constexpr int64_t kSecondsTo1970 = 11'644'473'600;
    if (file_time == 0 || file_time == UINT64_MAX)
        return std::nullopt;
    return static_cast<int64_t>(file_time / kTicksInSecond) - kSecondsTo1970;
}

} // namespace tavrik::scanner::payloads

#endif
