/* The common CRC-32: reflected polynomial 0xEDB88320, start and final inversion. */
#ifndef TAVRIK_BASE_CRC32_H
#define TAVRIK_BASE_CRC32_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tavrik::base {

/** [n][byte]: the remainder of a byte with n bytes of zero after it. Eight bytes take eight lookups that do not wait
 * for each other. */
inline constexpr std::array<std::array<uint32_t, 256>, 8> kCrc32Tables = [] {
    std::array<std::array<uint32_t, 256>, 8> tables = {};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
        tables[0][byte] = crc;
    }
    for (std::size_t zeros = 1; zeros < tables.size(); ++zeros)
        for (std::size_t byte = 0; byte < 256; ++byte) {
            const uint32_t before = tables[zeros - 1][byte];
            tables[zeros][byte] = before >> 8 ^ tables[0][before & 0xFF];
        }
    return tables;
}();

/** The CRC-32 of the bytes; `crc` is that of the bytes before them. */
constexpr uint32_t Crc32(std::span<const uint8_t> bytes, uint32_t crc = 0) {
    crc = ~crc;
    for (; bytes.size() >= kCrc32Tables.size(); bytes = bytes.subspan(kCrc32Tables.size())) {
        uint32_t next = 0;
        for (std::size_t i = 0; i < kCrc32Tables.size(); ++i) {
            const uint32_t byte = bytes[i] ^ (i < 4 ? crc >> 8 * i & 0xFF : 0);
            next ^= kCrc32Tables[kCrc32Tables.size() - 1 - i][byte];
        }
        crc = next;
    }
    for (const uint8_t byte : bytes)
        crc = crc >> 8 ^ kCrc32Tables[0][(crc ^ byte) & 0xFF];
    return ~crc;
}

// The check value of this CRC, and the same in two parts.
static_assert([] {
    constexpr std::array<uint8_t, 9> kDigits = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    const std::span<const uint8_t> all = kDigits;
    return Crc32(all) == 0xCBF43926 && Crc32(all.subspan(4), Crc32(all.first(4))) == 0xCBF43926;
}());

} // namespace tavrik::base

#endif
