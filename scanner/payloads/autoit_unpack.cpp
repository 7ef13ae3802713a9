#include "scanner/payloads/autoit_unpack.h"

#include <array>
#include <string_view>
#include <utility>

namespace tavrik::scanner::payloads {
namespace {

constexpr uint32_t kShortestMatch = 3;
constexpr int kDistanceBits = 15;
// The groups of a length: each is added to the ones before, and all bits set mean that another follows, the last again.
constexpr int kLengthBits[] = {2, 3, 5, 8};
constexpr uint32_t kLongestMatch = 1u << 24; // a stream of set bits must not overflow the sum

} // namespace

AutoItUnpacker::AutoItUnpacker(Input input, bool is_literal_set)
    : input_(std::move(input)), is_literal_set_(is_literal_set), window_(kWindow) {
    std::array<uint8_t, 8> head;
    if (input_.Read(head.data(), head.size()) != head.size()) {
        error_ = kEndsEarly;
        return;
    }
    const std::string_view tag(reinterpret_cast<const char *>(head.data()), 4);
    if (tag == "EA05" || tag == "EA06")
        is_literal_set_ = tag == "EA06";
    else if (!tag.starts_with("EA"))
        error_ = "its compression is unknown; try autoit-ripper";
    for (std::size_t i = 4; i < head.size(); ++i)
        size_ = size_ << 8 | head[i];
}

// 0 with an error when the input ends before.
uint32_t AutoItUnpacker::Bits(int count) {
    while (bit_count_ < count) {
        const int byte = input_.Byte();
        if (byte < 0) {
            error_ = kEndsEarly;
            return 0;
        }
        bits_ = bits_ << 8 | static_cast<uint32_t>(byte);
        bit_count_ += 8;
    }
    bit_count_ -= count;
    return bits_ >> bit_count_ & ((1u << count) - 1);
}

uint32_t AutoItUnpacker::MatchLength() {
    uint32_t length = kShortestMatch;
    for (std::size_t group = 0; error_.empty() && length < kLongestMatch;) {
        const int count = kLengthBits[group];
        const uint32_t value = Bits(count);
        length += value;
        if (value != (1u << count) - 1)
            return length;
        if (group + 1 < std::size(kLengthBits))
            ++group;
    }
    return length;
}

void AutoItUnpacker::StartMatch() {
    distance_ = Bits(kDistanceBits);
    const uint32_t length = MatchLength();
    if (!error_.empty())
        return;
    if (distance_ == 0 || distance_ > total_)
        error_ = kIsDamaged;
    else
        left_ = length;
}

std::size_t AutoItUnpacker::Read(void *buffer, std::size_t length) {
    auto *const to = static_cast<uint8_t *>(buffer);
    std::size_t done = 0;
    while (done < length && total_ < size_ && error_.empty()) {
        if (left_ != 0) {
            Put(to + done++, window_[(total_ - distance_) % kWindow]);
            --left_;
        } else if ((Bits(1) != 0) != is_literal_set_) {
            StartMatch();
        } else if (const uint32_t byte = Bits(8); error_.empty()) {
            Put(to + done++, static_cast<uint8_t>(byte));
        }
    }
    return done;
}

} // namespace tavrik::scanner::payloads
