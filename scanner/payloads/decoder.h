/* Streams that are read forward only: bytes of a source, and what decoders make of them. */
#ifndef TAVRIK_SCANNER_PAYLOADS_DECODER_H
#define TAVRIK_SCANNER_PAYLOADS_DECODER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/byte_source.h"

namespace tavrik::scanner::payloads {

/** Why a decoder stops before its end. */
inline constexpr char kEndsEarly[] = "the data end early; get the whole file";
inline constexpr char kIsDamaged[] = "the data are damaged; what came before is right, 7z x may read more";

/** A range of a source, byte after byte, through one buffer. The source must outlive the object. */
class Input {
public:
    /** Changes each piece of bytes after it was read, in order: decryption. */
    using Transform = std::function<void(std::span<uint8_t> piece)>;

    /** The bytes from `offset` to `end`, both in the source; fewer when the source ends or fails before. */
    Input(base::ByteSource &source, uint64_t offset, uint64_t end, Transform transform = {})
        : source_(&source), offset_(offset), end_(std::max(offset, end)), transform_(std::move(transform)) {}

    /** The next bytes, at least one; none at the end. Valid until the next call of a function that is not const. */
    std::span<const uint8_t> Peek() {
        if (place_ == length_)
            Fill();
        return {buffer_.data() + place_, length_ - place_};
    }

    /** Passes over bytes that Peek gave. */
    void Skip(std::size_t count) { place_ += count; }

    /** The next byte, or -1 at the end. */
    int Byte() {
        if (place_ == length_)
            Fill();
        return place_ == length_ ? -1 : buffer_[place_++];
    }

    /** Reads up to `length` bytes; fewer only at the end. */
    std::size_t Read(void *buffer, std::size_t length) {
        auto *const to = static_cast<uint8_t *>(buffer);
        std::size_t done = 0;
        while (done < length) {
            const std::span<const uint8_t> next = Peek();
            if (next.empty())
                break;
            const std::size_t count = std::min(next.size(), length - done);
            std::memcpy(to + done, next.data(), count);
            Skip(count);
            done += count;
        }
        return done;
    }

private:
    static constexpr std::size_t kBufferSize = 32 * 1024;

    void Fill() {
        buffer_.resize(kBufferSize);
        const auto wanted = static_cast<std::size_t>(std::min<uint64_t>(kBufferSize, end_ - offset_));
        length_ = source_->ReadAt(offset_, buffer_.data(), wanted);
        offset_ += length_;
        place_ = 0;
        if (transform_)
            transform_({buffer_.data(), length_});
    }

    base::ByteSource *source_;
    uint64_t offset_; // of what is read next
    uint64_t end_;
    Transform transform_;
    std::vector<uint8_t> buffer_;
    std::size_t place_ = 0;
    std::size_t length_ = 0; // of what is in the buffer
};

/** Bytes that are made from an Input. */
class Decoder {
public:
    virtual ~Decoder() = default;

    /** Reads up to `length` bytes. Returns how many were read: 0 at the end and after a failure. */
    virtual std::size_t Read(void *buffer, std::size_t length) = 0;

    /** Why the bytes ended early, with a remedy; "" while they did not. */
    virtual const std::string &error() const = 0;
};

/** Reads `length` bytes unless the decoder ends before; returns how many were read. */
inline std::size_t ReadFully(Decoder &decoder, void *buffer, std::size_t length) {
    auto *const to = static_cast<uint8_t *>(buffer);
    std::size_t done = 0;
    while (done < length) {
        const std::size_t count = decoder.Read(to + done, length - done);
        if (count == 0)
            break;
        done += count;
    }
    return done;
}

/** Bytes as they are, `length` of them. */
class StoredDecoder final : public Decoder {
public:
    StoredDecoder(Input input, uint64_t length) : input_(std::move(input)), left_(length) {}

    std::size_t Read(void *buffer, std::size_t length) override {
        const std::size_t count = input_.Read(buffer, static_cast<std::size_t>(std::min<uint64_t>(length, left_)));
        left_ -= count;
        if (count == 0 && length != 0 && left_ != 0)
            error_ = kEndsEarly;
        return count;
    }
    const std::string &error() const override { return error_; }

private:
    Input input_;
    uint64_t left_;
    std::string error_;
};

} // namespace tavrik::scanner::payloads

#endif
