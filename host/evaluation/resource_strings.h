/* The texts in a resource: version information, manifest, string table. */
#ifndef TAVRIK_HOST_EVALUATION_RESOURCE_STRINGS_H
#define TAVRIK_HOST_EVALUATION_RESOURCE_STRINGS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/evaluation/resource_tree.h"
#include "host/evaluation/version_info.h"
#include "tavrik2/rules/heuristic_rule.h"

namespace tavrik::host {

/** Whether a rule's element of resource_entries meets the resource in all but the CRC-32 of its data. */
bool IsResourceSelected(const ResourceEntry &element, const Resource &resource);

/** Whether the tree meets an element of resource_type_entries. */
bool IsResourceTypeMet(const ResourceTypeEntry &element, const ResourceTree &tree);

/** The texts of the version, manifest and string resources of one file, each resource read when it is first asked for.
 */
class ResourceStrings {
public:
    /** Resources of a kind beyond these, in the order of the tree, have no texts. */
    static constexpr std::size_t kMostVersions = 64;
    static constexpr std::size_t kMostManifests = 64;
    static constexpr std::size_t kMostStringBlocks = 1024;

    /** Both must outlive the object. */
    ResourceStrings(FileBytes &bytes, const ResourceTree &tree);

    /** Whether the file meets an element of resource_strings. */
    bool IsMet(const ResourceString &element);

    /** What the element is compared with, at most `limit` of the texts, for people. */
    std::vector<std::string> Candidates(const ResourceString &element, std::size_t limit);

private:
    bool Reads(std::size_t resource) const;
    std::vector<std::string> TextsOf(const ResourceString &element, std::size_t resource);
    const VersionInfo &VersionOf(std::size_t resource);
    const std::string &ManifestOf(std::size_t resource);
    std::vector<std::string> TableString(const ResourceString &element, std::size_t resource);
    std::vector<uint8_t> Head(Region region);

    FileBytes &bytes_;
    const ResourceTree &tree_;
    std::vector<std::size_t> readable_; // resources that may be read, ascending
    std::map<std::size_t, VersionInfo> versions_;
    std::map<std::size_t, std::string> manifests_;
};

} // namespace tavrik::host

#endif
