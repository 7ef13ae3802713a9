/* The byte sequences of markers.def as arrays, and the sizes that locators report. */
#ifndef TAVRIK2_LOCATORS_MARKERS_H
#define TAVRIK2_LOCATORS_MARKERS_H

#include <cstddef>
#include <cstdint>

namespace tavrik2 {

/** The bytes of a text without its terminator. */
template <std::size_t Size>
struct TextMarker {
    uint8_t bytes[Size - 1];

    consteval TextMarker(const char (&text)[Size]) : bytes{} {
        for (std::size_t index = 0; index + 1 < Size; ++index)
            bytes[index] = static_cast<uint8_t>(text[index]);
    }
};

#define MARKER(name, ...) inline constexpr uint8_t name[] = {__VA_ARGS__};
#define TEXT_MARKER(name, text)                                                                                        \
    inline constexpr TextMarker name##Text(text);                                                                      \
    inline constexpr const auto &name = name##Text.bytes;
#define ALTERED_MARKER(...)
#define ALTERED_HEADER(...)
#include "tavrik2/locators/markers.def"

inline constexpr uint8_t AutoItAltMarkers[][16] = {
#define MARKER(name, ...)
#define TEXT_MARKER(name, text)
#define ALTERED_MARKER(...) {__VA_ARGS__},
#define ALTERED_HEADER(...)
#include "tavrik2/locators/markers.def"
};

inline constexpr uint8_t AlteredAutoItHeaders[][32] = {
#define MARKER(name, ...)
#define TEXT_MARKER(name, text)
#define ALTERED_MARKER(...)
#define ALTERED_HEADER(...) {__VA_ARGS__},
#include "tavrik2/locators/markers.def"
};

/** The first four bytes of a marker as a little-endian word. */
constexpr uint32_t MarkerWord(const uint8_t *marker) {
    uint32_t word = 0;
    for (uint32_t byte = 0; byte < sizeof word; ++byte)
        word |= uint32_t{marker[byte]} << (8 * byte);
    return word;
}
inline constexpr uint32_t kAutoItMarkerWord = MarkerWord(AutoItMarker);

/** How many bytes of NullsoftMarker the locators of a header at a known offset look at: its first three words. */
inline constexpr uint32_t kNullsoftWordsLength = 12;

/** The bytes reported at a payload's offset: a header's, or a scanned block's. */
inline constexpr uint32_t kHeaderSize = 256;
inline constexpr uint32_t kBlockSize = 4096;

} // namespace tavrik2

#endif
