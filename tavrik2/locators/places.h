/* The offsets, distances and lengths of places.def as constants: kEntry0Read and the like. */
#ifndef TAVRIK2_LOCATORS_PLACES_H
#define TAVRIK2_LOCATORS_PLACES_H

#include <cstddef>
#include <cstdint>

namespace tavrik2 {

/** Windows resource types that locators look for. */
inline constexpr uint32_t kRawDataResource = 10;
inline constexpr uint32_t kMessageTableResource = 11;
inline constexpr uint32_t kVersionResource = 16;
inline constexpr uint32_t kManifestResource = 24;

/** The numbers of one row. A row of one number is that number. */
template <std::size_t Count>
struct Place {
    uint32_t values[Count];

    constexpr const uint32_t *begin() const { return values; }
    constexpr const uint32_t *end() const { return values + Count; }
    constexpr uint32_t operator[](std::size_t index) const { return values[index]; }
    constexpr operator uint32_t() const requires(Count == 1) { return values[0]; }
    /** lowest <= value <= highest, of a row that is a range */
    constexpr bool Contains(uint32_t value) const requires(Count == 2) {
        return values[0] <= value && value <= values[1];
    }
};

/** Negative distances wrap, as all offsets do. */
template <typename... Values>
consteval Place<sizeof...(Values)> MakePlace(Values... values) {
    return {{static_cast<uint32_t>(values)...}};
}

#define PLACE(owner, name, ...) inline constexpr auto k##owner##name = MakePlace(__VA_ARGS__);
#define DISTANCE_BY_SIZE(lowest, highest, distance)
#include "tavrik2/locators/places.def"

/** A distance that depends on the file's size; both ends included, the first row that fits decides. */
struct DistanceBySize {
    int32_t lowest_size;
    int32_t highest_size;
    uint32_t distance;
};

inline constexpr DistanceBySize kEntry25DistanceBySize[] = {
#define PLACE(owner, name, ...)
#define DISTANCE_BY_SIZE(lowest, highest, distance) {lowest, highest, distance},
#include "tavrik2/locators/places.def"
};

} // namespace tavrik2

#endif
