/* Little-endian values at any address, and the 32-bit arithmetic of file offsets. */
#ifndef TAVRIK2_BYTES_H
#define TAVRIK2_BYTES_H

#include <bit>
#include <cstdint>
#include <cstring>

namespace tavrik2 {

static_assert(std::endian::native == std::endian::little, "the module's formats are read in place as little-endian");

template <typename Integer>
inline Integer Load(const void *bytes) {
    Integer value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

inline uint16_t LoadU16(const void *bytes) {
    return Load<uint16_t>(bytes);
}
inline uint32_t LoadU32(const void *bytes) {
    return Load<uint32_t>(bytes);
}

/** A u32 offset as the locators compare it: 2^31 and more count as negative. */
constexpr int32_t AsSigned(uint32_t offset) {
    return static_cast<int32_t>(offset);
}

/** A signed size or position back as an offset; both directions wrap modulo 2^32. */
constexpr uint32_t AsOffset(int32_t value) {
    return static_cast<uint32_t>(value);
}

/** The sum of two signed values, wrapping modulo 2^32. */
constexpr int32_t WrappingAdd(int32_t left, int32_t right) {
    return AsSigned(AsOffset(left) + AsOffset(right));
}

/** `value` less `amount`, wrapping modulo 2^32 like every offset. */
constexpr int32_t WrappingSubtract(int32_t value, uint32_t amount) {
    return AsSigned(AsOffset(value) - amount);
}

} // namespace tavrik2

#endif
