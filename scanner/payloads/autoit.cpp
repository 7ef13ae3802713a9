#include "scanner/payloads/autoit.h"

#include <array>
#include <cstring>
#include <vector>

#include "base/utf8.h"
#include "scanner/payloads/file_time.h"
#include "scanner/payloads/readers.h"

namespace tavrik::scanner::payloads {
namespace {

constexpr std::array<uint8_t, 16> kMarker = {0xA3, 0x48, 0x4B, 0xBE, 0x98, 0x6C, 0x4A, 0xA9,
                                             0x99, 0x4C, 0x53, 0x0A, 0x86, 0xD6, 0x48, 0x7D};
constexpr std::string_view kTagBegin = "AU3!EA0"; // of every generation
constexpr uint64_t kTagOffset = kMarker.size();
constexpr uint64_t kTagLength = 8;
constexpr uint64_t kChecksumLength = 16;
constexpr uint64_t kFirstRecord = kTagOffset + kTagLength + kChecksumLength;
constexpr uint64_t kMagicLength = 4;

// How far after the tag the closing one of an unknown build is searched for, in bytes.
constexpr uint64_t kLongestUnknown = 64u << 20;

constexpr AutoItGeneration kGenerations[] = {
    {"EA06", Keystream::Kind::Rotating, true, true, false, 0x52CA436B, 0xADBC, 0xB33F, 0xF820, 0xF479, 0x87BC, 0xA685,
     0x2477},
    {"EA05", Keystream::Kind::Twister, false, false, true, 0xCEB06DFF, 0x29BC, 0xA25E, 0x29AC, 0xF25E, 0x45AA, 0xC3D2,
     0x22AF},
};

// The distance from `begin` to the end of the closing tag, where it is within reach.
std::optional<uint64_t> FindClosingTag(base::ByteSource &source, uint64_t begin) {
    base::FileBytes bytes(source);
    std::array<char, kTagLength> tag;
    if (!bytes.Read(begin + kTagOffset, tag.data(), tag.size()))
        return std::nullopt;
    const uint64_t start = begin + kFirstRecord;
    if (start >= source.size())
        return std::nullopt;
    std::optional<uint64_t> end;
    bytes.ForPieces({start, std::min(source.size() - start, kLongestUnknown)}, kTagLength - 1,
                    [&](std::span<const uint8_t> piece, uint64_t offset) {
                        const auto found = std::search(piece.begin(), piece.end(), tag.begin(), tag.end());
                        if (found != piece.end())
                            end = offset + static_cast<uint64_t>(found - piece.begin()) + kTagLength - begin;
                        return !end.has_value();
                    });
    return end;
}

bool HasMarkerAndTag(std::span<const uint8_t> head) {
    return head.size() >= kTagOffset + kTagBegin.size() && std::equal(kMarker.begin(), kMarker.end(), head.begin()) &&
           std::equal(kTagBegin.begin(), kTagBegin.end(), head.begin() + kTagOffset);
}

} // namespace

AutoItArchive::AutoItArchive(base::ByteSource &source, uint64_t offset)
    : bytes_(source), begin_(offset), position_(offset + kFirstRecord) {
    // The marker and the tag may have been altered; the records say what they are.
    const std::optional<uint32_t> word = bytes_.Get<uint32_t>(position_);
    for (const AutoItGeneration &generation : kGenerations)
        if (word == generation.magic)
            generation_ = &generation;
    if (generation_ == nullptr)
        return;
    data_seed_ = generation_->data_seed;
    if (generation_->is_data_seeded)
        for (uint64_t i = 0; i < kChecksumLength; ++i)
            data_seed_ += *bytes_.Get<uint8_t>(offset + kTagOffset + kTagLength + i);
}

bool AutoItArchive::IsTagAt(uint64_t offset) {
    std::array<char, kTagLength> at_begin;
    std::array<char, kTagLength> tag;
    return bytes_.Read(begin_ + kTagOffset, at_begin.data(), kTagLength) &&
           bytes_.Read(offset, tag.data(), kTagLength) &&
           (tag == at_begin || std::equal(kTagBegin.begin(), kTagBegin.end(), tag.begin()));
}

// At `position_`; nothing, with `end_`, when it is not there or not plausible.
std::optional<std::string> AutoItArchive::TakeText(uint32_t mask, uint32_t seed) {
    end_ = End::Truncated;
    const std::optional<uint32_t> stored = bytes_.Get<uint32_t>(position_);
    if (!stored)
        return std::nullopt;
    const uint32_t length = *stored ^ mask;
    if (length > kLongestText) {
        end_ = End::Unknown;
        return std::nullopt;
    }
    std::vector<uint8_t> text(length * (generation_->has_wide_texts ? 2u : 1u));
    if (!bytes_.Read(position_ + sizeof(*stored), text.data(), text.size()))
        return std::nullopt;
    end_ = End::None;
    position_ += sizeof(*stored) + text.size();
    Keystream(generation_->keystream, seed + length).Apply(text);
    if (!generation_->has_wide_texts)
        return base::Utf8OfWindows1252({reinterpret_cast<const char *>(text.data()), text.size()});
    std::u16string wide;
    for (std::size_t i = 0; i < text.size(); i += 2)
        wide += static_cast<char16_t>(text[i] | text[i + 1] << 8);
    return base::LossyUtf8Of(wide);
}

std::optional<AutoItRecord> AutoItArchive::TakeRecord() {
    AutoItRecord record;
    position_ += kMagicLength;
    std::optional<std::string> text = TakeText(generation_->kind_mask, generation_->kind_seed);
    if (!text)
        return std::nullopt;
    record.kind = std::move(*text);
    text = TakeText(generation_->path_mask, generation_->path_seed);
    if (!text)
        return std::nullopt;
    record.path = std::move(*text);
    constexpr uint64_t kLength = 29;
    std::array<uint8_t, kLength> fields;
    if (!bytes_.Read(position_, fields.data(), fields.size())) {
        end_ = End::Truncated;
        return std::nullopt;
    }
    const auto word = [&fields](std::size_t place) {
        uint32_t value;
        std::memcpy(&value, fields.data() + place, sizeof(value));
        return value;
    };
    record.is_compressed = fields[0] != 0;
    record.packed_size = word(1) ^ generation_->size_mask;
    record.size = word(5) ^ generation_->size_mask;
    record.checksum = word(9) ^ generation_->checksum_mask;
    // Two times, created and changed; of each the higher word comes first.
    record.time = UnixTime(uint64_t{word(21)} << 32 | word(25));
    record.offset = position_ + kLength;
    position_ = record.offset + record.packed_size;
    return record;
}

std::optional<AutoItRecord> AutoItArchive::Next() {
    if (generation_ == nullptr)
        end_ = position_ < bytes_.size() ? End::Unknown : End::Truncated;
    if (end_ != End::None)
        return std::nullopt;
    if (count_ != 0 && IsTagAt(position_)) {
        position_ += kTagLength;
        end_ = End::Tag;
        return std::nullopt;
    }
    if (position_ + kTagLength > bytes_.size()) {
        end_ = End::Truncated;
        return std::nullopt;
    }
    if (bytes_.Get<uint32_t>(position_) != generation_->magic || count_ == kMostRecords) {
        end_ = End::Unknown;
        return std::nullopt;
    }
    ++count_;
    const uint64_t start = position_;
    std::optional<AutoItRecord> record = TakeRecord();
    if (!record && end_ == End::Unknown)
        position_ = start;
    return record;
}

bool IsScript(const AutoItRecord &record) {
    return record.kind.starts_with('>') && record.kind.find("SCRIPT<") != std::string::npos;
}

bool MayBeAutoIt(std::span<const uint8_t> head) {
    uint32_t word = 0;
    if (head.size() >= kFirstRecord + sizeof(word))
        std::memcpy(&word, head.data() + kFirstRecord, sizeof(word));
    return HasMarkerAndTag(head) || std::ranges::any_of(kGenerations, [word](const AutoItGeneration &generation) {
               return word == generation.magic;
           });
}

std::optional<Extent> ReadAutoItExtent(base::ByteSource &source, uint64_t offset) {
    std::array<uint8_t, kFirstRecord> head;
    const bool has_head = HasMarkerAndTag(std::span(head).first(source.ReadAt(offset, head.data(), head.size())));
    AutoItArchive archive(source, offset);
    if (!has_head && archive.generation() == nullptr)
        return std::nullopt;
    std::size_t count = 0;
    bool has_script = false;
    while (const std::optional<AutoItRecord> record = archive.Next()) {
        ++count;
        has_script |= record->kind.starts_with('>');
    }
    // Four bytes of a record could be there by chance; a head or a script could not.
    if (!has_head && !has_script)
        return std::nullopt;
    std::string description =
        "AutoIt " + std::string(archive.generation() != nullptr ? archive.generation()->tag : "EA0");
    if (archive.generation() == nullptr)
        description += static_cast<char>(
            base::FileBytes(source).Get<uint8_t>(offset + kTagOffset + kTagBegin.size()).value_or('?'));
    uint64_t length = archive.position() - offset;
    if (archive.end() == AutoItArchive::End::Truncated) {
        length = std::max(archive.position(), source.size()) - offset + kTagLength;
    } else if (archive.end() == AutoItArchive::End::Unknown && count == 0) {
        const std::optional<uint64_t> found = FindClosingTag(source, offset);
        if (!found)
            return std::nullopt;
        description += ", unknown script build";
        length = *found;
    }
    return MakeExtent(source, Format::AutoIt, std::move(description), offset, length);
}

} // namespace tavrik::scanner::payloads
