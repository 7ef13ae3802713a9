/* Little-endian bytes, written one value after the other. */
#ifndef TAVRIK_BASE_BYTE_WRITER_H
#define TAVRIK_BASE_BYTE_WRITER_H

#include <bit>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

namespace tavrik::base {

static_assert(std::endian::native == std::endian::little, "records are copied as they are in memory");

using Bytes = std::vector<uint8_t>;

/** A size or address that a file can hold; throws std::invalid_argument when `value` needs more than 32 bits. */
constexpr uint32_t InFile(uint64_t value) {
    if (value > UINT32_MAX)
        throw std::invalid_argument("a PE file's sizes and addresses end at 4 GiB");
    return static_cast<uint32_t>(value);
}

/** The next multiple of `alignment` (bytes, not 0) at or above `value`; throws as InFile does. */
constexpr uint32_t AlignUp(uint64_t value, uint32_t alignment) {
    return InFile((value + alignment - 1) / alignment * alignment);
}

/** Appends to a byte vector; positions are offsets from its start. */
class ByteWriter {
public:
    uint32_t size() const { return static_cast<uint32_t>(bytes_.size()); }
    Bytes Take() { return std::move(bytes_); }

    template <typename Record>
    void Put(const Record &record) {
        const uint32_t position = size();
        bytes_.resize(position + sizeof record);
        std::memcpy(bytes_.data() + position, &record, sizeof record);
    }

    void U16(uint32_t value) { Put(static_cast<uint16_t>(value)); }
    void U32(uint32_t value) { Put(value); }
    void U64(uint64_t value) { Put(value); }

    void Append(const Bytes &bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }

    /** The text and a NUL. */
    void Text(std::string_view text) {
        bytes_.insert(bytes_.end(), text.begin(), text.end());
        bytes_.push_back(0);
    }

    /** The text as UTF-16 without a terminator. */
    void Utf16(std::u16string_view text) {
        for (const char16_t unit : text)
            U16(unit);
    }

    /** Fills up with zeros to a multiple of `alignment`. */
    void Align(uint32_t alignment) { bytes_.resize(AlignUp(size(), alignment)); }

    /** Fills up with zeros to `position`, which must not be before the current end; otherwise throws
     * std::invalid_argument. */
    void FillTo(uint32_t position) {
        if (position < size())
            throw std::invalid_argument("a part is placed upon the one before it");
        bytes_.resize(position);
    }

    /** Overwrites the 16-bit value at `position`. */
    void SetU16(uint32_t position, uint32_t value) {
        const auto narrow = static_cast<uint16_t>(value);
        std::memcpy(bytes_.data() + position, &narrow, sizeof narrow);
    }

private:
    Bytes bytes_;
};

} // namespace tavrik::base

#endif
