// The operations that are the same on every system: strings, memory, and how a log line looks.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/system.h"
#include "tavrik2/lifecycle/platform.h"

using namespace tavrik::platform;

namespace {

// Bytes set aside for a time stamp: seven numbers of any size and their separators fit.
constexpr size_t kStampCapacity = 96;

// Writes "2024-01-31T23:59:59.999Z " and returns its length.
size_t FormatStamp(char *stamp) {
    const UtcTime now = GetUtcTime();
    const int length = snprintf(stamp, kStampCapacity, "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ ", now.year, now.month,
                                now.day, now.hour, now.minute, now.second, now.millisecond);
    return length > 0 ? static_cast<size_t>(length) : 0;
}

bool IsSeparator(char c) {
    return c != '\0' && strchr(kSeparators, c) != nullptr;
}

} // namespace

// One call makes one line: line breaks inside the message become spaces, so that no message looks like two.
TAVRIK_API void PlatformWriteLog(const char *path, const char *line) {
    if (path == nullptr || line == nullptr)
        return;
    const size_t line_length = strlen(line);
    auto *record = static_cast<char *>(malloc(kStampCapacity + line_length + 1));
    if (record == nullptr)
        return;
    size_t size = FormatStamp(record);
    for (size_t i = 0; i < line_length; ++i)
        record[size++] = line[i] == '\n' || line[i] == '\r' ? ' ' : line[i];
    record[size++] = '\n';
    AppendToLog(path, record, size);
    free(record);
}

// Every client of the process is served alike, so the arguments are not needed.
TAVRIK_API void PlatformAttach(void *, const HostConfig *, GetInterface, void *) {}

TAVRIK_API void *PlatformAlloc(uint32_t size, uint32_t, uint32_t) {
    return malloc(size);
}

TAVRIK_API void PlatformFree(void *block) {
    free(block);
}

TAVRIK_API void PlatformCopyString(char *destination, uint32_t capacity, const char *source) {
    if (destination == nullptr || capacity == 0)
        return;
    const size_t length = source == nullptr ? capacity : strnlen(source, capacity);
    if (length < capacity)
        memmove(destination, source, length + 1);
    else
        destination[0] = '\0';
}

// No separator is added to a directory that ends in one, nor to an empty one, which would become the root.
TAVRIK_API void PlatformAppendPath(char *destination, uint32_t capacity, const char *file_name) {
    if (destination == nullptr || capacity == 0)
        return;
    size_t length = strnlen(destination, capacity);
    const size_t name_length = file_name == nullptr ? capacity : strnlen(file_name, capacity);
    const bool separate = length != 0 && !IsSeparator(destination[length - 1]);
    if (length + separate + name_length >= capacity) {
        destination[0] = '\0';
        return;
    }
    if (separate)
        destination[length++] = kSeparator;
    memcpy(destination + length, file_name, name_length);
    destination[length + name_length] = '\0';
}
