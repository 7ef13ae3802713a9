/* The texts in a resource: version information, manifest, string table. */
#ifndef TAVRIK_EVALUATION_RESOURCE_STRINGS_H
#define TAVRIK_EVALUATION_RESOURCE_STRINGS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pe/resource_tree.h"
#include "pe/version_info.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

/** Whether a rule's element of resource_entries meets the resource in all but the CRC-32 of its data. */
bool IsResourceSelected(const ResourceEntry &element, const pe::Resource &resource);

/** Whether the tree meets an element of resource_type_entries. */
bool IsResourceTypeMet(const ResourceTypeEntry &element, const pe::ResourceTree &tree);

/** The texts of the version, manifest and string resources of one file, each resource read when it is first asked for.
 */
class ResourceStrings {
public:
    /** Resources of a kind beyond these, in the order of the tree, have no texts. */
    static constexpr std::size_t kMostVersions = 64;
    static constexpr std::size_t kMostManifests = 64;
    static constexpr std::size_t kMostStringBlocks = 4096;

    /** Both must outlive the object. */
    ResourceStrings(base::FileBytes &bytes, const pe::ResourceTree &tree);

    /** Whether the file meets an element of resource_strings. */
    bool IsMet(const ResourceString &element);

    /** The texts that the element is compared with, at most `limit` of them, for explanations. */
    std::vector<std::string> Candidates(const ResourceString &element, std::size_t limit);

private:
    using KeyOfResource = std::pair<std::size_t, uint32_t>;

    template <typename Visit>
    bool AnyText(const ResourceString &element, std::size_t longest, Visit visit);
    template <typename Visit>
    bool AnyVersionText(std::size_t resource, uint32_t key, Visit visit);
    std::optional<std::string_view> ManifestText(std::size_t resource, uint32_t key);
    std::optional<std::string> TableText(std::size_t resource, uint32_t key, std::size_t longest);

    const pe::VersionInfo &VersionOf(std::size_t resource);
    const std::string &ManifestOf(std::size_t resource);
    std::vector<uint8_t> Head(std::size_t resource);

    base::FileBytes &bytes_;
    const pe::ResourceTree &tree_;
    std::vector<std::size_t> readable_; // resources that may be read, ascending
    std::map<std::size_t, pe::VersionInfo> versions_;
    std::map<std::size_t, std::string> manifests_;
    std::map<KeyOfResource, std::optional<std::string_view>> manifest_texts_; // parts of those
};

} // namespace tavrik::evaluation

#endif
