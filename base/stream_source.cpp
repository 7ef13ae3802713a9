#include "base/stream_source.h"

#include <system_error>

namespace tavrik::base {

namespace {

constexpr std::size_t kStreamPieceSize = 256 * 1024;

} // namespace

StreamSource::StreamSource(InputStream &stream, uint64_t most, const std::function<bool()> &give_up) {
    std::vector<uint8_t> buffer(kStreamPieceSize);
    try {
        while (const std::size_t count = stream.Read(reinterpret_cast<char *>(buffer.data()), buffer.size(), give_up)) {
            if (count > most - size()) {
                is_cut_ = true;
                return;
            }
            Keep(std::span(buffer).first(count));
        }
    } catch (const std::system_error &error) {
        error_ = "cannot be read at offset " + std::to_string(size()) + ": " + error.code().message();
    }
}

void StreamSource::Keep(std::span<const uint8_t> bytes) {
    if (!file_ && memory_.size() + bytes.size() <= kMostInMemory) {
        memory_.insert(memory_.end(), bytes.begin(), bytes.end());
        return;
    }
    if (!file_) {
        file_.reset(new FileSource(FileSource::Temporary()));
        file_->Append(memory_);
        memory_ = {};
    }
    file_->Append(bytes);
}

std::size_t StreamSource::ReadAt(uint64_t offset, void *buffer, std::size_t length) {
    return file_ ? file_->ReadAt(offset, buffer, length) : MemorySource(memory_).ReadAt(offset, buffer, length);
}

} // namespace tavrik::base
