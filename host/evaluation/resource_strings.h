/* The texts in a resource: version information, manifest, string table. */
#ifndef TAVRIK_HOST_EVALUATION_RESOURCE_STRINGS_H
#define TAVRIK_HOST_EVALUATION_RESOURCE_STRINGS_H

#include "host/evaluation/resource_tree.h"
#include "tavrik2/rules/heuristic_rule.h"

namespace tavrik::host {

/** Whether a rule's element of resource_entries meets the resource in all but the CRC-32 of its data. */
bool IsResourceSelected(const ResourceEntry &element, const Resource &resource);

/** Whether the tree meets an element of resource_type_entries. */
bool IsResourceTypeMet(const ResourceTypeEntry &element, const ResourceTree &tree);

/** Parsed texts of the version, manifest and string resources of one file, each read when it is first asked for. */
class ResourceStrings {
public:
    /** Both must outlive the object. */
    ResourceStrings(FileBytes &bytes, const ResourceTree &tree);

    /** Whether the file meets an element of resource_strings. */
    bool IsMet(const ResourceString &element);

    /** The texts that the element was compared with, for people: those of its type and key, at most `limit`. */
    std::vector<std::string> Candidates(const ResourceString &element, std::size_t limit);
};

} // namespace tavrik::host

#endif
