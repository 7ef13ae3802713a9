#include <algorithm>
#include <utility>

#include "base/file_bytes.h"
#include "scanner/payloads/inflate.h"
#include "scanner/payloads/lzma.h"
#include "scanner/payloads/nsis.h"

namespace tavrik::scanner::payloads {
namespace {

constexpr std::size_t kSkipPiece = 32 * 1024;

/** Stands for a method that is not read here. */
class NoDecoder final : public Decoder {
public:
    explicit NoDecoder(std::string error) : error_(std::move(error)) {}

    std::size_t Read(void *, std::size_t) override { return 0; }
    const std::string &error() const override { return error_; }

private:
    std::string error_;
};

} // namespace

std::unique_ptr<Decoder> NsisBlocks::MakeDecoder(uint64_t begin, uint64_t end) {
    Input input(source_, begin, std::min(end, archive_.data_end));
    switch (archive_.method) {
    case NsisMethod::Stored:
        return std::make_unique<StoredDecoder>(std::move(input), end - begin);
    case NsisMethod::Deflate:
        return std::make_unique<Inflate>(std::move(input));
    case NsisMethod::Lzma:
        return MakeLzmaDecoder(std::move(input), archive_.has_filter_byte);
    case NsisMethod::Bzip2:
        break;
    }
    return std::make_unique<NoDecoder>("the installer's own form of bzip2 is not read here; 7z x opens it");
}

bool NsisBlocks::OpenAt(uint64_t position) {
    error_.clear();
    size_.reset();
    packed_size_.reset();
    left_ = 0;
    return archive_.is_solid ? OpenInStream(position) : OpenBlock(position);
}

bool NsisBlocks::OpenBlock(uint64_t position) {
    const uint64_t begin = archive_.data + position;
    decoder_.reset();
    const std::optional<uint32_t> head = base::FileBytes(source_).Get<uint32_t>(begin);
    if (!head || begin + kNsisBlockHead > archive_.data_end) {
        error_ = kEndsEarly;
        return false;
    }
    const uint32_t length = *head & ~kNsisIsCompressed;
    const uint64_t data = begin + kNsisBlockHead;
    next_ = position + kNsisBlockHead + length;
    packed_size_ = length;
    if ((*head & kNsisIsCompressed) != 0) {
        decoder_ = MakeDecoder(data, data + length);
    } else {
        size_ = length;
        decoder_ =
            std::make_unique<StoredDecoder>(Input(source_, data, std::min(data + length, archive_.data_end)), length);
    }
    return true;
}

bool NsisBlocks::OpenInStream(uint64_t position) {
    if (decoder_ == nullptr || position < position_) {
        if (decoder_ != nullptr && ++restarts_ > kMostRestarts) {
            error_ = "too many files share their data; 7z x opens it";
            return false;
        }
        decoder_ = MakeDecoder(archive_.data, archive_.data_end);
        position_ = 0;
    }
    std::vector<uint8_t> skipped(static_cast<std::size_t>(std::min<uint64_t>(kSkipPiece, position - position_)));
    uint8_t head[kNsisBlockHead];
    while (position_ < position) {
        const auto wanted = static_cast<std::size_t>(std::min<uint64_t>(skipped.size(), position - position_));
        const std::size_t count = decoder_->Read(skipped.data(), wanted);
        if (count == 0)
            break;
        position_ += count;
    }
    if (position_ == position) {
        const std::size_t count = ReadFully(*decoder_, head, sizeof(head));
        position_ += count;
        if (count == sizeof(head)) {
            const uint32_t length =
                head[0] | uint32_t{head[1]} << 8 | uint32_t{head[2]} << 16 | uint32_t{head[3]} << 24;
            if ((length & kNsisIsCompressed) != 0) {
                error_ = kIsDamaged;
                return false;
            }
            size_ = left_ = length;
            next_ = position_ + length;
            return true;
        }
    }
    error_ = decoder_->error().empty() ? kEndsEarly : decoder_->error();
    return false;
}

std::size_t NsisBlocks::Read(void *buffer, std::size_t length) {
    if (decoder_ == nullptr || !error_.empty())
        return 0;
    if (archive_.is_solid)
        length = static_cast<std::size_t>(std::min<uint64_t>(length, left_));
    if (length == 0)
        return 0;
    const std::size_t count = decoder_->Read(buffer, length);
    if (archive_.is_solid) {
        left_ -= count;
        position_ += count;
    }
    if (count == 0)
        error_ = decoder_->error().empty() && left_ != 0 ? kEndsEarly : decoder_->error();
    return count;
}

std::optional<std::vector<uint8_t>> NsisBlocks::ReadScript() {
    if (!OpenAt(0))
        return std::nullopt;
    std::vector<uint8_t> script;
    // Grows with what is there, since the size may be that of a damaged header.
    std::vector<uint8_t> piece(kSkipPiece);
    while (script.size() < archive_.script_size) {
        const std::size_t count =
            Read(piece.data(), std::min<std::size_t>(piece.size(), archive_.script_size - script.size()));
        if (count == 0)
            break;
        script.insert(script.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(count));
    }
    files_ = next_;
    if (script.size() == archive_.script_size && (!size_ || *size_ == archive_.script_size))
        return script;
    if (error_.empty())
        error_ = kIsDamaged;
    return std::nullopt;
}

OpenedNsisScript OpenNsisScript(base::ByteSource &source, NsisArchive &archive) {
    OpenedNsisScript opened = {std::make_unique<NsisBlocks>(source, archive), {}};
    if (std::optional<std::vector<uint8_t>> script = opened.blocks->ReadScript()) {
        opened.bytes = std::move(*script);
        return opened;
    }
    // Deflate has no signature: the bytes may have looked like something else.
    for (const bool is_solid : {true, false}) {
        NsisArchive other = archive;
        other.method = NsisMethod::Deflate;
        other.is_solid = is_solid;
        auto blocks = std::make_unique<NsisBlocks>(source, other);
        if (std::optional<std::vector<uint8_t>> script = blocks->ReadScript()) {
            archive = other;
            return {std::move(blocks), std::move(*script)};
        }
    }
    return opened;
}

} // namespace tavrik::scanner::payloads
