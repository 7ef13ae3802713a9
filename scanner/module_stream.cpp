#include "scanner/module_stream.h"

#include <filesystem>
#include <stdexcept>

#include "scanner/unused.h"

namespace tavrik::scanner {

namespace {

// The bit of Open's mode that asks for writing.
constexpr uint32_t kModeReadWrite = 0x0002;

} // namespace

const FileStreamOperations ModuleStream::kOperations = {
    UnusedSlot<SlotOf::FileStream, 0>, Open,  Seek, Read, UnusedSlot<SlotOf::FileStream, 4>,
    UnusedSlot<SlotOf::FileStream, 5>, Close, Tell,
};

ModuleStream::ModuleStream(base::ByteSource &source) : source_(&source) {
    if (source.size() > kLargestFile)
        throw std::length_error("too large for the module");
}

ModuleStream &ModuleStream::Owner(FileStream *stream) {
    static_assert(offsetof(Object, stream) == 0);
    return *reinterpret_cast<Object *>(stream)->owner;
}

uint32_t ModuleStream::Open(FileStream *stream, const void *file_name, uint32_t mode, uint32_t) {
    ModuleStream &self = Owner(stream);
    const bool for_writing = (mode & kModeReadWrite) != 0 && self.open_as_ == OpenAs::TheModuleAsks;
    const auto access = for_writing ? base::FileSource::Access::ReadWrite : base::FileSource::Access::Read;
    if (self.source_ != nullptr)
        return FILE_NOT_OPENED;
    if (self.open_as_ == OpenAs::Nothing)
        return kHandle;
    try {
        auto opened =
            std::make_unique<base::FileSource>(*static_cast<const std::filesystem::path *>(file_name), access);
        if (opened->size() > kLargestFile)
            return FILE_NOT_OPENED;
        self.opened_ = std::move(opened);
    } catch (const std::exception &) {
        // No exception may cross the C ABI, which has one code for all failures.
        return FILE_NOT_OPENED;
    }
    self.source_ = self.opened_.get();
    self.position_ = 0;
    return kHandle;
}

uint32_t ModuleStream::Seek(FileStream *stream, uint32_t, uint32_t offset, uint32_t) {
    return Owner(stream).position_ = offset;
}

uint32_t ModuleStream::Read(FileStream *stream, uint32_t, void *buffer, uint32_t length) {
    ModuleStream &self = Owner(stream);
    if (self.source_ == nullptr)
        return 0;
    // The source is smaller than 2^31 bytes, so neither the count nor the new position reaches 2^32.
    const auto count = static_cast<uint32_t>(self.source_->ReadAt(self.position_, buffer, length));
    self.position_ += count;
    return count;
}

uint32_t ModuleStream::Close(FileStream *stream, uint32_t) {
    ModuleStream &self = Owner(stream);
    self.source_ = nullptr;
    self.opened_.reset();
    return 0;
}

uint32_t ModuleStream::Tell(FileStream *stream, uint32_t) {
    return Owner(stream).position_;
}

} // namespace tavrik::scanner
