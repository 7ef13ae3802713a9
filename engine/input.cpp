#include "engine/input.h"

#include <algorithm>
#include <cstring>
#include <span>

#include <fmt/format.h>

#include "base/text.h"
#include "engine/failure.h"
#include "engine/sized.h"

namespace tavrik::engine {

namespace {

std::unique_ptr<base::ByteSource> Open(const tavrik_input &input) {
    if (input.stream != nullptr) {
        const tavrik_stream stream = Taken(input.stream, "the stream");
        Require(stream.read_at != nullptr, "the stream's read_at");
        return std::make_unique<StreamSource>(stream);
    }
    if (input.bytes != nullptr || input.name == nullptr) {
        Require(input.bytes != nullptr && input.length <= SIZE_MAX, "the input");
        return std::make_unique<base::MemorySource>(
            std::span(static_cast<const uint8_t *>(input.bytes), static_cast<std::size_t>(input.length)));
    }
    return std::make_unique<base::FileSource>(base::PathOf(input.name));
}

} // namespace

// ---- StreamSource --------------------------------------------------------------------------------------------------

std::size_t StreamSource::ReadFromCaller(uint64_t offset, void *buffer, std::size_t length) {
    std::size_t done = 0;
    while (done < length) {
        auto *to = static_cast<uint8_t *>(buffer) + done;
        const int64_t count = stream_.read_at(stream_.context, offset + done, to, length - done);
        if (count < 0 || static_cast<uint64_t>(count) > length - done) {
            error_ = fmt::format("cannot be read at offset {}: the stream {}", offset + done,
                                 count < 0 ? "failed" : "claims more bytes than it was asked for");
            return 0;
        }
        if (count == 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    bytes_read_ += done;
    return done;
}

const StreamSource::Page *StreamSource::PageAt(uint64_t number) {
    auto page = std::ranges::find(pages_, number, &Page::number);
    if (page == pages_.end()) {
        page = std::ranges::min_element(pages_, {}, &Page::used);
        page->number = UINT64_MAX;
        const uint64_t offset = number * kPageSize;
        page->bytes.resize(static_cast<std::size_t>(std::min<uint64_t>(kPageSize, size() - offset)));
        page->bytes.resize(ReadFromCaller(offset, page->bytes.data(), page->bytes.size()));
        if (!error_.empty())
            return nullptr;
        page->number = number;
    }
    page->used = ++reads_;
    return &*page;
}

std::size_t StreamSource::ReadAt(uint64_t offset, void *buffer, std::size_t length) {
    if (offset >= size() || !error_.empty())
        return 0;
    length = static_cast<std::size_t>(std::min<uint64_t>(length, size() - offset));
    std::size_t done = 0;
    while (done < length) {
        const Page *page = PageAt((offset + done) / kPageSize);
        const auto start = static_cast<std::size_t>((offset + done) % kPageSize);
        if (page == nullptr || start >= page->bytes.size())
            break;
        const std::size_t count = std::min(length - done, page->bytes.size() - start);
        std::memcpy(static_cast<uint8_t *>(buffer) + done, page->bytes.data() + start, count);
        done += count;
    }
    return error_.empty() ? done : 0;
}

// ---- Input ---------------------------------------------------------------------------------------------------------

Input::Input(const tavrik_input &input, double timeout, const tavrik_cancel *cancel)
    : name_(input.name == nullptr ? std::filesystem::path() : base::PathOf(input.name)), source_(Open(input)),
      deadline_(timeout, cancel == nullptr ? nullptr : &cancel->is_requested), watched_(*source_, deadline_) {}

} // namespace tavrik::engine

extern "C" tavrik_status tavrik_cancel_create(tavrik_cancel **cancel) {
    return tavrik::engine::Guard(nullptr, [&] {
        tavrik::engine::Require(cancel != nullptr, "cancel");
        *cancel = nullptr;
        *cancel = new tavrik_cancel;
    });
}

extern "C" void tavrik_cancel_request(tavrik_cancel *cancel) {
    if (cancel != nullptr)
        cancel->is_requested.store(true, std::memory_order_relaxed);
}

extern "C" void tavrik_cancel_free(tavrik_cancel *cancel) {
    delete cancel;
}
