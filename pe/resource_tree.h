/* The resources of a PE file. */
#ifndef TAVRIK_PE_RESOURCE_TREE_H
#define TAVRIK_PE_RESOURCE_TREE_H

#include <cstdint>
#include <string>
#include <vector>

#include "pe/image.h"

namespace tavrik::pe {

/** The number of a type or entry that has a name instead. Real numbers have 31 bits. */
inline constexpr uint32_t kNoResourceNumber = 0xFFFFFFFF;

/** What names a type or an entry: a number or a name. */
struct ResourceLabel {
    uint32_t number = kNoResourceNumber;
    std::u16string name;
};

/** A leaf of the tree at its third level. */
struct Resource {
    ResourceLabel type;
    ResourceLabel entry;
    uint32_t language = 0;
    base::Region data; // absent when it does not lie wholly in the file
};

/** The resources in the order of the tree, depth first. */
struct ResourceTree {
    std::vector<Resource> resources;
};

/** Reads the tree of a file of any content, within the bounds that docs/rule-semantics.md sets. */
ResourceTree ReadResources(const Image &image);

} // namespace tavrik::pe

#endif
