#include <windows.h>
#include <algorithm>
#include <bit>

#include "base/regular_file.h"

namespace tavrik::base {

namespace {

constexpr std::size_t kLongestRead = 1u << 30; // the system counts in 32 bits

HANDLE Handle(intptr_t handle) {
    return std::bit_cast<HANDLE>(handle);
}

std::error_code LastError() {
    return {static_cast<int>(GetLastError()), std::system_category()};
}

} // namespace

// Others may go on using the file as they like.
RegularFile::RegularFile(const std::filesystem::path &path, bool for_writing)
    : handle_(std::bit_cast<intptr_t>(
          CreateFileW(path.c_str(), for_writing ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ,
                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0, nullptr))) {
    if (Handle(handle_) == INVALID_HANDLE_VALUE)
        throw std::system_error(LastError());
    std::error_code error;
    LARGE_INTEGER size = {};
    if (GetFileType(Handle(handle_)) != FILE_TYPE_DISK)
        error = std::make_error_code(std::errc::not_supported);
    else if (GetFileSizeEx(Handle(handle_), &size) == 0)
        error = LastError();
    if (error) {
        CloseHandle(Handle(handle_));
        throw std::system_error(error);
    }
    size_ = static_cast<uint64_t>(size.QuadPart);
}

RegularFile::~RegularFile() {
    CloseHandle(Handle(handle_));
}

std::size_t RegularFile::ReadAt(uint64_t offset, void *buffer, std::size_t length, std::error_code &error) {
    auto *to = static_cast<uint8_t *>(buffer);
    std::size_t done = 0;
    while (done < length) {
        OVERLAPPED place = {};
        place.Offset = static_cast<DWORD>(offset + done);
        place.OffsetHigh = static_cast<DWORD>((offset + done) >> 32);
        DWORD count = 0;
        const auto wanted = static_cast<DWORD>(std::min(length - done, kLongestRead));
        if (ReadFile(Handle(handle_), to + done, wanted, &count, &place) == 0 && GetLastError() != ERROR_HANDLE_EOF) {
            error = LastError();
            break;
        }
        if (count == 0)
            break;
        done += count;
    }
    return done;
}

} // namespace tavrik::base
