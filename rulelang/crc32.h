// The common CRC-32: reflected polynomial 0xEDB88320, start and final inversion.
#ifndef TAVRIK_RULELANG_CRC32_H
#define TAVRIK_RULELANG_CRC32_H

#include <array>
#include <cstdint>
#include <span>

namespace tavrik::rules {

inline constexpr std::array<uint32_t, 256> kCrc32Table = [] {
    std::array<uint32_t, 256> table = {};
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t crc = i;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
        table[i] = crc;
    }
    return table;
}();

/// The CRC-32 of the bytes; `crc` is that of the bytes before them.
constexpr uint32_t Crc32(std::span<const uint8_t> bytes, uint32_t crc = 0) {
    crc = ~crc;
    for (const uint8_t byte : bytes)
        crc = crc >> 8 ^ kCrc32Table[(crc ^ byte) & 0xFF];
    return ~crc;
}

} // namespace tavrik::rules

#endif
