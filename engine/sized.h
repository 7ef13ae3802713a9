/* The structures of the C interface, whose size the caller states. */
#ifndef TAVRIK_ENGINE_SIZED_H
#define TAVRIK_ENGINE_SIZED_H

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "engine/failure.h"

namespace tavrik::engine {

/** What the caller handed over, with zero for what its version does not have. Throws Failure when it is missing, or too
 * small to hold its size. */
template <typename Structure>
Structure Taken(const Structure *from, const char *argument) {
    static_assert(std::is_trivially_copyable_v<Structure>);
    Require(from != nullptr && from->size >= sizeof from->size, argument);
    Structure taken = {};
    std::memcpy(&taken, from, std::min<std::size_t>(from->size, sizeof taken));
    taken.size = sizeof taken;
    return taken;
}

/** Hands a structure to the caller: as much as both know; the rest of the caller's is zeroed. */
template <typename Structure>
void Give(Structure *to, Structure value, const char *argument) {
    static_assert(std::is_trivially_copyable_v<Structure>);
    Require(to != nullptr && to->size >= sizeof to->size, argument);
    const uint32_t size = to->size;
    value.size = size;
    std::memset(to, 0, size);
    std::memcpy(to, &value, std::min<std::size_t>(size, sizeof value));
}

/** The element at `index`; throws Failure when there is none. */
template <typename List>
decltype(auto) At(const List &list, std::size_t index) {
    Require(index < list.size(), "the index");
    return list[index];
}

} // namespace tavrik::engine

#endif
