#include "base/file_bytes.h"

#include <algorithm>
#include <cstring>

namespace tavrik::base {

namespace {

constexpr std::size_t kPieceSize = 256 * 1024;

} // namespace

FileBytes::FileBytes(ByteSource &source) : source_(source), memory_(source.InMemory()), size_(source.size()) {}

const FileBytes::Page &FileBytes::PageAt(uint64_t number) {
    Page &page = pages_[number % kPages];
    if (page.number != number) {
        if (page.bytes == nullptr)
            page.bytes = std::make_unique_for_overwrite<uint8_t[]>(kPageSize);
        page.length = source_.ReadAt(number * kPageSize, page.bytes.get(), kPageSize);
        page.number = number;
    }
    return page;
}

bool FileBytes::Read(uint64_t offset, void *to, std::size_t length) {
    if (offset > size_ || length > size_ - offset)
        return false;
    if (length == 0)
        return true;
    if (memory_.data() != nullptr) {
        std::memcpy(to, memory_.data() + offset, length);
        return true;
    }
    auto *at = static_cast<uint8_t *>(to);
    while (length > 0) {
        const Page &page = PageAt(offset / kPageSize);
        const auto start = static_cast<std::size_t>(offset % kPageSize);
        if (start >= page.length)
            return false;
        const std::size_t count = std::min(length, page.length - start);
        std::memcpy(at, page.bytes.get() + start, count);
        at += count;
        offset += count;
        length -= count;
    }
    return true;
}

std::optional<std::string> FileBytes::Text(uint64_t offset, std::size_t longest) {
    if (offset >= size_)
        return std::nullopt;
    const auto within = static_cast<std::size_t>(std::min<uint64_t>(longest + 1, size_ - offset));
    std::string text;
    char block[64];
    while (text.size() < within) {
        const std::size_t count = std::min(sizeof(block), within - text.size());
        if (!Read(offset + text.size(), block, count))
            return std::nullopt;
        const void *nul = std::memchr(block, 0, count);
        if (nul != nullptr)
            return text.append(block, static_cast<std::size_t>(static_cast<const char *>(nul) - block));
        text.append(block, count);
    }
    return std::nullopt;
}

std::optional<std::vector<uint8_t>> FileBytes::Copy(Region region) {
    if (region.IsAbsent() || region.offset > size_ || region.length > size_ - region.offset)
        return std::nullopt;
    std::vector<uint8_t> bytes(static_cast<std::size_t>(region.length));
    if (!Read(region.offset, bytes.data(), bytes.size()))
        return std::nullopt;
    return bytes;
}

bool FileBytes::ForPieces(Region region, std::size_t overlap, const Visitor &visit) {
    if (region.IsAbsent())
        return true;
    if (region.offset > size_ || region.length > size_ - region.offset)
        return false;
    if (memory_.data() != nullptr) {
        visit(memory_.subspan(static_cast<std::size_t>(region.offset), static_cast<std::size_t>(region.length)),
              region.offset);
        return true;
    }
    const auto size = static_cast<std::size_t>(std::min<uint64_t>(region.length, overlap + kPieceSize));
    const std::unique_ptr<uint8_t[]> buffer(new uint8_t[size]); // which is filled before it is read
    std::size_t kept = 0;
    for (uint64_t next = region.offset; next < region.End();) {
        const auto count = static_cast<std::size_t>(std::min<uint64_t>(size - kept, region.End() - next));
        if (source_.ReadAt(next, buffer.get() + kept, count) != count)
            return false;
        const std::span<const uint8_t> piece(buffer.get(), kept + count);
        if (!visit(piece, next - kept))
            return true;
        next += count;
        kept = std::min(overlap, piece.size());
        std::memmove(buffer.get(), buffer.get() + piece.size() - kept, kept);
    }
    return true;
}

} // namespace tavrik::base
