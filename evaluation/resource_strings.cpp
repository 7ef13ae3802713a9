#include "evaluation/resource_strings.h"

#include <algorithm>
#include <cstring>

#include "base/characters.h"
#include "base/utf8.h"
#include "pe/manifest.h"
#include "rules/names.h"
#include "rules/numbers.h"

namespace tavrik::evaluation {

namespace {

constexpr std::size_t kMostBytes = 65536; // of one version or manifest resource

namespace resource_type = pe::resource_type;

namespace resource_key = rules::resource_key;

bool IsNumberSelected(uint32_t wanted, uint32_t number) {
    return wanted == rules::kAnyResource || wanted == number;
}

// The rule's name is NUL-padded bytes; the empty one accepts anything.
template <std::size_t size>
bool IsNameSelected(const char (&wanted)[size], const std::u16string &name) {
    const std::size_t length = strnlen(wanted, size);
    return length == 0 || std::equal(wanted, wanted + length, name.begin(), name.end(), [](char byte, char16_t unit) {
               return unit < 0x100 && base::LowerAscii(byte) == base::LowerAscii(static_cast<char>(unit));
           });
}

bool IsLanguageSelected(uint16_t wanted, uint32_t language) {
    return wanted == 0 || wanted == language;
}

template <typename Element>
bool IsSelected(const Element &element, const pe::Resource &resource) {
    return IsNumberSelected(element.type, resource.type.number) &&
           IsNumberSelected(element.id, resource.entry.number) && IsNameSelected(element.name, resource.entry.name) &&
           IsLanguageSelected(element.language, resource.language);
}

} // namespace

bool IsResourceSelected(const ResourceEntry &element, const pe::Resource &resource) {
    return IsSelected(element, resource);
}

bool IsResourceTypeMet(const ResourceTypeEntry &element, const pe::ResourceTree &tree) {
    if (element.param_a != rules::kResourceTypeLevel && element.param_a != rules::kResourceEntryLevel)
        return false;
    const bool is_there = std::any_of(tree.resources.begin(), tree.resources.end(), [&](const pe::Resource &resource) {
        const pe::ResourceLabel &label = element.param_a == rules::kResourceTypeLevel ? resource.type : resource.entry;
        return IsNumberSelected(element.type, label.number) && IsNameSelected(element.name, label.name) &&
               IsLanguageSelected(element.language, resource.language);
    });
    return element.param_b == 0 ? is_there : element.param_b == 1 && !is_there;
}

ResourceStrings::ResourceStrings(base::FileBytes &bytes, const pe::ResourceTree &tree) : bytes_(bytes), tree_(tree) {
    std::size_t versions = 0;
    std::size_t manifests = 0;
    std::size_t blocks = 0;
    for (std::size_t i = 0; i < tree.resources.size(); ++i) {
        const uint32_t type = tree.resources[i].type.number;
        if ((type == resource_type::kVersion && versions++ < kMostVersions) ||
            (type == resource_type::kManifest && manifests++ < kMostManifests) ||
            (type == resource_type::kString && blocks++ < kMostStringBlocks))
            readable_.push_back(i);
    }
}

bool ResourceStrings::IsMet(const ResourceString &element) {
    const std::string_view wanted = element.text;
    return AnyText(element, wanted.size(), [wanted](std::string_view text, bool is_part_enough) {
        return is_part_enough ? text.find(wanted) != std::string_view::npos : text == wanted;
    });
}

std::vector<std::string> ResourceStrings::Candidates(const ResourceString &element, std::size_t limit) {
    std::vector<std::string> candidates;
    AnyText(element, UINT16_MAX, [&](std::string_view text, bool) {
        if (candidates.size() < limit)
            candidates.emplace_back(text);
        return candidates.size() >= limit;
    });
    return candidates;
}

// Whether `visit` returns true for one of the texts that the element asks for, the last it gets. Of a text longer than
// `longest` bytes it may get a part, which is longer than that too.
template <typename Visit>
bool ResourceStrings::AnyText(const ResourceString &element, std::size_t longest, Visit visit) {
    for (const std::size_t resource : readable_) {
        if (!IsSelected(element, tree_.resources[resource]))
            continue;
        switch (tree_.resources[resource].type.number) {
        case resource_type::kVersion:
            if (AnyVersionText(resource, element.key, visit))
                return true;
            break;
        case resource_type::kManifest:
            if (const auto text = ManifestText(resource, element.key);
                text && visit(*text, element.key == resource_key::kAny))
                return true;
            break;
        default:
            if (const auto text = TableText(resource, element.key, longest); text && visit(*text, false))
                return true;
            break;
        }
    }
    return false;
}

template <typename Visit>
bool ResourceStrings::AnyVersionText(std::size_t resource, uint32_t key, Visit visit) {
    const pe::VersionInfo &version = VersionOf(resource);
    if (key == resource_key::kFixedFileVersion || key == resource_key::kFixedProductVersion) {
        const bool is_file = key == resource_key::kFixedFileVersion;
        const std::string &fixed = is_file ? version.file_version : version.product_version;
        return !fixed.empty() && visit(fixed, false);
    }
    if (key >= resource_key::kFixedFileVersion)
        return false;
    const std::string_view name = rules::VersionKeyText(key);
    return std::any_of(version.strings.begin(), version.strings.end(), [&](const auto &string) {
        return (key == resource_key::kAny || base::IsEqualIgnoringCase(string.first, name)) &&
               visit(string.second, false);
    });
}

std::optional<std::string_view> ResourceStrings::ManifestText(std::size_t resource, uint32_t key) {
    const auto [place, is_new] = manifest_texts_.try_emplace({resource, key});
    if (is_new && !tree_.resources[resource].data.IsAbsent())
        place->second = pe::FindInManifest(ManifestOf(resource), key);
    return place->second;
}

// String number `key`: in the block of that number's sixteen, each string a length in UTF-16 units and the units.
std::optional<std::string> ResourceStrings::TableText(std::size_t resource, uint32_t key, std::size_t longest) {
    const pe::Resource &block = tree_.resources[resource];
    if (block.entry.number != key / pe::kStringsOfBlock + 1)
        return std::nullopt;
    uint64_t at = block.data.offset;
    for (uint32_t i = 0;; ++i) {
        const std::optional<uint16_t> length = at + 2 <= block.data.End() ? bytes_.Get<uint16_t>(at) : std::nullopt;
        const uint64_t end = at + 2 + 2 * uint64_t{length.value_or(0)};
        if (!length || end > block.data.End())
            return std::nullopt;
        if (i == key % pe::kStringsOfBlock) {
            // UTF-8 has no fewer bytes than UTF-16 has units.
            std::u16string text(std::min<std::size_t>(*length, longest + 1), u'\0');
            return bytes_.Read(at + 2, text.data(), 2 * text.size()) ? base::Utf8Of(text) : std::nullopt;
        }
        at = end;
    }
}

const pe::VersionInfo &ResourceStrings::VersionOf(std::size_t resource) {
    const auto [place, is_new] = versions_.try_emplace(resource);
    if (is_new)
        place->second = pe::ReadVersionInfo(Head(resource));
    return place->second;
}

const std::string &ResourceStrings::ManifestOf(std::size_t resource) {
    const auto [place, is_new] = manifests_.try_emplace(resource);
    if (is_new) {
        const std::vector<uint8_t> bytes = Head(resource);
        place->second.assign(bytes.begin(), bytes.end());
    }
    return place->second;
}

std::vector<uint8_t> ResourceStrings::Head(std::size_t resource) {
    base::Region region = tree_.resources[resource].data;
    region.length = std::min<uint64_t>(region.length, kMostBytes);
    return bytes_.Copy(region).value_or(std::vector<uint8_t>());
}

} // namespace tavrik::evaluation
