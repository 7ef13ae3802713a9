#include "pe/resource_tree.h"

#include <algorithm>
#include <array>
#include <optional>

namespace tavrik::pe {

namespace {

using namespace resource_directory;

constexpr std::size_t kMostEntries = 4096;       // of one directory
constexpr std::size_t kMostEntriesInAll = 65536; // looked at in one file
constexpr std::size_t kMostResources = 16384;
constexpr std::size_t kLongestLabel = base::kLongestName; // UTF-16 units

struct Entry {
    uint32_t name;
    uint32_t target;

    bool IsNamed() const { return (name & kFlag) != 0; }
    uint32_t Number() const { return IsNamed() ? kNoResourceNumber : name; }
    bool IsDirectory() const { return (target & kFlag) != 0; }
    uint32_t Place() const { return target & ~kFlag; } // from the root
};

class TreeReader {
public:
    TreeReader(const Image &image, uint64_t root) : image_(image), root_(root) {}

    ResourceTree Read() {
        for (const Entry &type : EntriesAt(0)) {
            if (!type.IsDirectory())
                continue;
            const ResourceLabel type_label = LabelOf(type);
            for (const Entry &entry : EntriesAt(type.Place())) {
                if (!entry.IsDirectory())
                    continue;
                const std::vector<Entry> languages = EntriesAt(entry.Place());
                if (languages.empty())
                    continue;
                const ResourceLabel entry_label = LabelOf(entry);
                for (const Entry &language : languages) {
                    if (language.IsDirectory())
                        continue;
                    if (tree_.resources.size() == kMostResources)
                        return std::move(tree_);
                    tree_.resources.push_back({type_label, entry_label, language.Number(), DataOf(language)});
                }
            }
        }
        return std::move(tree_);
    }

private:
    std::vector<Entry> EntriesAt(uint32_t place) {
        std::vector<Entry> entries;
        const uint64_t directory = root_ + place;
        const std::optional<uint16_t> named = image_.bytes().Get<uint16_t>(directory + kNumberOfNamedEntries);
        const std::optional<uint16_t> numbered = image_.bytes().Get<uint16_t>(directory + kNumberOfIdEntries);
        if (!named || !numbered)
            return entries;
        const std::size_t count = std::min<std::size_t>({std::size_t{*named} + *numbered, kMostEntries, entries_left_});
        for (std::size_t i = 0; i < count; ++i) {
            Entry entry;
            if (!image_.bytes().Read(directory + kHeaderSize + i * sizeof(entry), &entry, sizeof(entry)))
                break;
            entries.push_back(entry);
        }
        entries_left_ -= entries.size();
        return entries;
    }

    // A name that is absent or too long is an empty one.
    ResourceLabel LabelOf(const Entry &entry) const {
        ResourceLabel label = {entry.Number(), {}};
        if (!entry.IsNamed())
            return label;
        const uint64_t place = root_ + (entry.name & ~kFlag);
        const std::size_t length = image_.bytes().Get<uint16_t>(place).value_or(0);
        if (length <= kLongestLabel) {
            label.name.resize(length);
            if (!image_.bytes().Read(place + 2, label.name.data(), 2 * length))
                label.name.clear();
        }
        return label;
    }

    base::Region DataOf(const Entry &leaf) const {
        std::array<uint32_t, kDataEntrySize / sizeof(uint32_t)> entry; // address, size, code page, reserved
        if (!image_.bytes().Read(root_ + leaf.Place(), entry.data(), kDataEntrySize))
            return {};
        const std::optional<uint64_t> offset = image_.OffsetOfRva(entry[0]);
        if (!offset || entry[1] > image_.size() - *offset)
            return {};
        return {*offset, entry[1]};
    }

    const Image &image_;
    uint64_t root_;
    std::size_t entries_left_ = kMostEntriesInAll;
    ResourceTree tree_;
};

} // namespace

ResourceTree ReadResources(const Image &image) {
    const std::optional<uint32_t> rva = image.DirectoryRva(kResourceDirectory);
    const std::optional<uint64_t> root = rva ? image.OffsetOfRva(*rva) : std::nullopt;
    return root ? TreeReader(image, *root).Read() : ResourceTree();
}

} // namespace tavrik::pe
