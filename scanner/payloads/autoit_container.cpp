#include "scanner/payloads/autoit_container.h"

#include <algorithm>
#include <span>
#include <utility>

#include "scanner/payloads/autoit.h"
#include "scanner/payloads/autoit_unpack.h"

namespace tavrik::scanner::payloads {
namespace {

// The compiler's path of a script is a temporary file's; other records that are no files have their kind in brackets.
std::string PathOf(const AutoItRecord &record, const AutoItGeneration &generation) {
    if (IsScript(record))
        return generation.has_wide_texts ? "script.a3s" : "script.au3";
    if (!record.path.empty() && !record.kind.starts_with('>'))
        return record.path;
    const std::size_t begin = record.kind.find_first_not_of('>');
    const std::size_t last = record.kind.find_last_not_of('<');
    if (begin == std::string::npos || last == std::string::npos || begin > last)
        return "unnamed";
    return record.kind.substr(begin, last + 1 - begin);
}

/** Adler-32, over pieces. */
class Adler32 {
public:
    void Add(std::span<const uint8_t> bytes) {
        constexpr uint32_t kPrime = 65521;
        constexpr std::size_t kMostAtOnce = 5552; // before the sums need more than 32 bits
        length_ += bytes.size();
        while (!bytes.empty()) {
            const std::size_t count = std::min(bytes.size(), kMostAtOnce);
            for (const uint8_t byte : bytes.first(count)) {
                low_ += byte;
                high_ += low_;
            }
            low_ %= kPrime;
            high_ %= kPrime;
            bytes = bytes.subspan(count);
        }
    }
    uint32_t value() const { return high_ << 16 | low_; }
    uint64_t length() const { return length_; }

private:
    uint32_t low_ = 1;
    uint32_t high_ = 0;
    uint64_t length_ = 0;
};

class AutoItContainer final : public Container {
public:
    AutoItContainer(base::ByteSource &source, const Extent &extent) : source_(source), archive_(source, extent.offset) {
        if (archive_.generation() == nullptr)
            error_ = "its script build is unknown; try autoit-ripper";
    }

    std::optional<Member> Next() override {
        member_error_.clear();
        decoder_.reset();
        if (!error_.empty())
            return std::nullopt;
        const std::optional<AutoItRecord> record = archive_.Next();
        if (!record) {
            if (archive_.end() == AutoItArchive::End::Truncated)
                error_ = "its list of files ends early; get the whole file";
            else if (archive_.end() == AutoItArchive::End::Unknown)
                error_ = "its list of files is damaged; try autoit-ripper";
            return std::nullopt;
        }
        Open(*record);
        return Member{PathOf(*record, *archive_.generation()), record->size, record->packed_size, record->time};
    }

    std::size_t Read(void *buffer, std::size_t length) override {
        if (decoder_ == nullptr)
            return 0;
        const std::size_t count = decoder_->Read(buffer, length);
        if (count == 0) {
            member_error_ = decoder_->error();
            if (member_error_.empty() && checksum_.length() == packed_size_ && checksum_.value() != expected_)
                member_error_ = "its checksum is wrong: the data are damaged";
        }
        return count;
    }

    const std::string &member_error() const override { return member_error_; }
    const std::string &error() const override { return error_; }

private:
    void Open(const AutoItRecord &record) {
        const AutoItGeneration &generation = *archive_.generation();
        checksum_ = {};
        packed_size_ = record.packed_size;
        expected_ = record.checksum;
        // The container outlives the decoder.
        Input input(
            source_, record.offset, record.offset + record.packed_size,
            [this, stream = Keystream(generation.keystream, archive_.data_seed())](std::span<uint8_t> piece) mutable {
                stream.Apply(piece);
                checksum_.Add(piece);
            });
        if (record.is_compressed)
            decoder_ = std::make_unique<AutoItUnpacker>(std::move(input), generation.is_literal_set);
        else
            decoder_ = std::make_unique<StoredDecoder>(std::move(input), record.packed_size);
    }

    base::ByteSource &source_;
    AutoItArchive archive_;
    Adler32 checksum_; // of the member's packed data, as far as they have been read
    uint64_t packed_size_ = 0;
    uint32_t expected_ = 0;
    std::unique_ptr<Decoder> decoder_;
    std::string member_error_;
    std::string error_;
};

} // namespace

std::unique_ptr<Container> OpenAutoIt(base::ByteSource &source, const Extent &extent) {
    return std::make_unique<AutoItContainer>(source, extent);
}

} // namespace tavrik::scanner::payloads
