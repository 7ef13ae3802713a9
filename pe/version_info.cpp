#include "pe/version_info.h"

#include <algorithm>
#include <optional>

#include "base/utf8.h"
#include "pe/format.h"

namespace tavrik::pe {

namespace {

using namespace version_resource;

uint16_t WordAt(std::span<const uint8_t> bytes, std::size_t offset) {
    return static_cast<uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

constexpr std::size_t Aligned(std::size_t offset) {
    return (offset + 3) & ~std::size_t{3};
}

// A block and the places of its parts, from the start of the resource.
struct Block {
    std::optional<std::u16string> key; // nothing where no NUL ends it within the block
    std::size_t value = 0;             // where its value, or its first child, begins
    uint16_t value_length = 0;
    std::size_t end = 0;
};

class Reader {
public:
    explicit Reader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    VersionInfo Read() {
        Block root;
        if (!ReadBlock(0, bytes_.size(), root) || !root.key)
            return {};
        std::size_t children = root.value;
        if (root.value_length != 0) {
            if (root.value_length >= kFixedInfoSize && root.value + kFixedInfoSize <= root.end) {
                info_.file_version = Version(root.value + kFileVersion);
                info_.product_version = Version(root.value + kProductVersion);
            }
            children = Aligned(root.value + root.value_length);
        }
        ForBlocks(children, root.end, [this](const Block &info) {
            if (info.key == kStringFileInfo)
                ForBlocks(info.value, info.end, [this](const Block &table) {
                    ForBlocks(table.value, table.end, [this](const Block &string) { Add(string); });
                });
        });
        return std::move(info_);
    }

private:
    bool ReadBlock(std::size_t offset, std::size_t end, Block &block) const {
        if (offset >= end || end - offset < kBlockHeaderSize)
            return false;
        const std::size_t length = WordAt(bytes_, offset);
        if (length < kBlockHeaderSize)
            return false;
        block.value_length = WordAt(bytes_, offset + 2);
        block.end = std::min(offset + length, end);
        block.key.reset();
        std::u16string key;
        std::size_t at = offset + kBlockHeaderSize;
        for (; at + 1 < block.end && !block.key; at += 2) {
            const auto unit = static_cast<char16_t>(WordAt(bytes_, at));
            if (unit == 0)
                block.key = key;
            key += unit;
        }
        block.value = std::min(Aligned(at), block.end);
        return true;
    }

    template <typename Visit>
    void ForBlocks(std::size_t offset, std::size_t end, Visit visit) const {
        Block block;
        while (ReadBlock(offset, end, block)) {
            if (block.key)
                visit(block);
            offset = Aligned(block.end);
        }
    }

    void Add(const Block &block) {
        if (strings_++ >= kMostVersionStrings)
            return;
        // Its length counts UTF-16 units in some files and bytes in others; the value ends at its NUL anyway.
        std::u16string value;
        for (std::size_t at = block.value; at + 1 < block.end; at += 2)
            value += static_cast<char16_t>(WordAt(bytes_, at));
        const std::optional<std::string> key = base::Utf8Of(*block.key);
        std::optional<std::string> text = base::Utf8Of(value);
        if (key && text)
            info_.strings.emplace_back(*key, std::move(*text));
    }

    std::string Version(std::size_t offset) const {
        std::string text;
        for (const unsigned place : {2u, 0u, 6u, 4u})
            text += (text.empty() ? "" : ".") + std::to_string(WordAt(bytes_, offset + place));
        return text;
    }

    std::span<const uint8_t> bytes_;
    VersionInfo info_;
    std::size_t strings_ = 0; // met, readable or not
};

} // namespace

VersionInfo ReadVersionInfo(std::span<const uint8_t> bytes) {
    return Reader(bytes).Read();
}

} // namespace tavrik::pe
