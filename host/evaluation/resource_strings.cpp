#include "host/evaluation/resource_strings.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "host/evaluation/manifest.h"
#include "rulelang/names.h"

namespace tavrik::host {

namespace {

constexpr std::size_t kMostBytes = 65536; // of one version or manifest resource

enum ResourceType : uint32_t { kStringType = 6, kVersionType = 16, kManifestType = 24 };

enum Key : uint32_t {
    kAnyKey = 0,
    kAssemblyVersion = 14,
    kLastVersionKey = 27,
    kFixedFileVersion = 28,
    kFixedProductVersion = 29,
};

constexpr uint32_t kStringsOfBlock = 16;

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool AreEqualInEitherCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char a, char b) { return Lower(a) == Lower(b); });
}

bool IsNumberSelected(uint32_t wanted, uint32_t number) {
    return wanted == rules::kAnyResource || wanted == number;
}

// The rule's name is NUL-padded bytes; the empty one accepts anything.
template <std::size_t size>
bool IsNameSelected(const char (&wanted)[size], const std::u16string &name) {
    const std::size_t length = strnlen(wanted, size);
    return length == 0 || std::equal(wanted, wanted + length, name.begin(), name.end(), [](char byte, char16_t unit) {
               return unit < 0x100 && Lower(byte) == Lower(static_cast<char>(unit));
           });
}

bool IsLanguageSelected(uint16_t wanted, uint32_t language) {
    return wanted == 0 || wanted == language;
}

template <typename Element>
bool IsSelected(const Element &element, const Resource &resource) {
    return IsNumberSelected(element.type, resource.type.number) &&
           IsNumberSelected(element.id, resource.entry.number) && IsNameSelected(element.name, resource.entry.name) &&
           IsLanguageSelected(element.language, resource.language);
}

} // namespace

bool IsResourceSelected(const ResourceEntry &element, const Resource &resource) {
    return IsSelected(element, resource);
}

bool IsResourceTypeMet(const ResourceTypeEntry &element, const ResourceTree &tree) {
    if (element.param_a != rules::kResourceTypeLevel && element.param_a != rules::kResourceEntryLevel)
        return false;
    const bool is_there = std::any_of(tree.resources.begin(), tree.resources.end(), [&](const Resource &resource) {
        const ResourceLabel &label = element.param_a == rules::kResourceTypeLevel ? resource.type : resource.entry;
        return IsNumberSelected(element.type, label.number) && IsNameSelected(element.name, label.name) &&
               IsLanguageSelected(element.language, resource.language);
    });
    return element.param_b == 0 ? is_there : element.param_b == 1 && !is_there;
}

ResourceStrings::ResourceStrings(FileBytes &bytes, const ResourceTree &tree) : bytes_(bytes), tree_(tree) {
    std::size_t versions = 0;
    std::size_t manifests = 0;
    std::size_t blocks = 0;
    for (std::size_t i = 0; i < tree.resources.size(); ++i) {
        const uint32_t type = tree.resources[i].type.number;
        if ((type == kVersionType && versions++ < kMostVersions) ||
            (type == kManifestType && manifests++ < kMostManifests) ||
            (type == kStringType && blocks++ < kMostStringBlocks))
            readable_.push_back(i);
    }
}

bool ResourceStrings::IsMet(const ResourceString &element) {
    const std::string_view wanted = element.text;
    const bool is_part = element.type == kManifestType && element.key == kAnyKey;
    for (const std::size_t resource : readable_) {
        if (!IsSelected(element, tree_.resources[resource]))
            continue;
        for (const std::string &text : TextsOf(element, resource))
            if (is_part ? text.find(wanted) != std::string::npos : text == wanted)
                return true;
    }
    return false;
}

std::vector<std::string> ResourceStrings::Candidates(const ResourceString &element, std::size_t limit) {
    std::vector<std::string> candidates;
    for (const std::size_t resource : readable_)
        if (candidates.size() < limit && IsSelected(element, tree_.resources[resource]))
            for (std::string &text : TextsOf(element, resource))
                if (candidates.size() < limit)
                    candidates.push_back(std::move(text));
    return candidates;
}

std::vector<std::string> ResourceStrings::TextsOf(const ResourceString &element, std::size_t resource) {
    std::vector<std::string> texts;
    switch (tree_.resources[resource].type.number) {
    case kVersionType: {
        const VersionInfo &version = VersionOf(resource);
        if (element.key == kFixedFileVersion || element.key == kFixedProductVersion) {
            const std::string &fixed =
                element.key == kFixedFileVersion ? version.file_version : version.product_version;
            if (!fixed.empty())
                texts.push_back(fixed);
        } else if (element.key <= kLastVersionKey) {
            const std::string_view key = element.key == kAssemblyVersion
                                             ? "Assembly Version"
                                             : rules::NameOf(rules::ResourceKeys(), element.key);
            for (const auto &[name, value] : version.strings)
                if (element.key == kAnyKey || AreEqualInEitherCase(name, key))
                    texts.push_back(value);
        }
        break;
    }
    case kManifestType:
        if (const std::optional<std::string_view> text = FindInManifest(ManifestOf(resource), element.key))
            texts.emplace_back(*text);
        break;
    default:
        texts = TableString(element, resource);
        break;
    }
    return texts;
}

std::vector<uint8_t> ResourceStrings::Head(Region region) {
    region.length = std::min<uint64_t>(region.length, kMostBytes);
    return bytes_.Copy(region).value_or(std::vector<uint8_t>());
}

const VersionInfo &ResourceStrings::VersionOf(std::size_t resource) {
    const auto [place, is_new] = versions_.try_emplace(resource);
    if (is_new)
        place->second = ReadVersionInfo(Head(tree_.resources[resource].data));
    return place->second;
}

const std::string &ResourceStrings::ManifestOf(std::size_t resource) {
    const auto [place, is_new] = manifests_.try_emplace(resource);
    if (is_new) {
        const std::vector<uint8_t> bytes = Head(tree_.resources[resource].data);
        place->second.assign(bytes.begin(), bytes.end());
    }
    return place->second;
}

// String number n: in the block of that number's sixteen, each string a length in UTF-16 units and the units.
std::vector<std::string> ResourceStrings::TableString(const ResourceString &element, std::size_t resource) {
    const Resource &block = tree_.resources[resource];
    if (block.entry.number != element.key / kStringsOfBlock + 1)
        return {};
    uint64_t at = block.data.offset;
    for (uint32_t i = 0;; ++i) {
        const std::optional<uint16_t> length = at + 2 <= block.data.End() ? bytes_.Get<uint16_t>(at) : std::nullopt;
        if (!length || at + 2 + 2 * uint64_t{*length} > block.data.End())
            return {};
        if (i == element.key % kStringsOfBlock) {
            std::u16string text(*length, u'\0');
            const std::optional<std::string> utf8 =
                bytes_.Read(at + 2, text.data(), 2 * text.size()) ? Utf8Of(text) : std::nullopt;
            return utf8 ? std::vector{*utf8} : std::vector<std::string>();
        }
        at += 2 + 2 * uint64_t{*length};
    }
}

} // namespace tavrik::host
