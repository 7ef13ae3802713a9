/* The byte sequences that payloads begin with, and the sizes that locators report. */
#ifndef TAVRIK2_LOCATORS_MARKERS_H
#define TAVRIK2_LOCATORS_MARKERS_H

#include <cstdint>

namespace tavrik2 {

/** The head of a compiled AutoIt script. */
inline constexpr uint8_t AutoItMarker[16] = {0xA3, 0x48, 0x4B, 0xBE, 0x98, 0x6C, 0x4A, 0xA9,
                                             0x99, 0x4C, 0x53, 0x0A, 0x86, 0xD6, 0x48, 0x7D};

/** The first four bytes of AutoItMarker as a little-endian word. */
inline constexpr uint32_t kAutoItMarkerWord = 0xBE4B48A3;

/** What follows a script header of the EA06 generation, in two builds. */
inline constexpr uint8_t AutoItEA06PatternA[16] = {0x6B, 0x43, 0xCA, 0x52, 0xAF, 0xAD, 0x00, 0x00,
                                                   0xE6, 0xFB, 0x25, 0x78, 0xC8, 0xE2, 0x13, 0xF9};
inline constexpr uint8_t AutoItEA06PatternB[16] = {0x6B, 0x43, 0xCA, 0x52, 0xA6, 0xAD, 0x00, 0x00,
                                                   0xE1, 0xBB, 0x3A, 0x21, 0xA5, 0x29, 0xE3, 0xEC};

/** The head of an installer's data block: 0xDEADBEEF as a little-endian word, then "NullsoftInst". */
inline constexpr uint8_t NullsoftMarker[16] = {0xEF, 0xBE, 0xAD, 0xDE, 'N', 'u', 'l', 'l',
                                               's',  'o',  'f',  't',  'I', 'n', 's', 't'};

/** A RAR archive's signature. */
inline constexpr uint8_t RarMarker[7] = {'R', 'a', 'r', '!', 0x1A, 0x07, 0x00};

/** A cabinet's signature and its reserved field, which is zero. */
inline constexpr uint8_t CabinetMarker[8] = {'M', 'S', 'C', 'F', 0, 0, 0, 0};

/** The bytes reported at a payload's offset: a header's, or a scanned block's. */
inline constexpr uint32_t kHeaderSize = 256;
inline constexpr uint32_t kBlockSize = 4096;

/** Windows resource types that locators look for. */
inline constexpr int32_t kRawDataResource = 10;
inline constexpr int32_t kMessageTableResource = 11;
inline constexpr int32_t kVersionResource = 16;
inline constexpr int32_t kManifestResource = 24;

} // namespace tavrik2

#endif
