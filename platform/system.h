/* What the operations common to all systems ask of the system they run on. One of platform_posix.cpp and
 * platform_windows.cpp implements it, beside the operations that are a matter of the system alone. */
#ifndef TAVRIK_PLATFORM_SYSTEM_H
#define TAVRIK_PLATFORM_SYSTEM_H

#include <cstddef>

namespace tavrik::platform {

#ifdef _WIN32
inline constexpr char kSeparator = '\\';
inline constexpr char kSeparators[] = "\\/";
#else
inline constexpr char kSeparator = '/';
inline constexpr char kSeparators[] = "/";
#endif

/* A point in time in UTC, years in full, months and days from 1. */
struct UtcTime {
    unsigned year, month, day, hour, minute, second, millisecond;
};

UtcTime GetUtcTime();

/* Appends `size` bytes to a log file, made if missing, in one write at the file's end: records of several processes may
 * alternate but never mix. Failures are silent. */
void AppendToLog(const char *path, const char *bytes, size_t size);

} // namespace tavrik::platform

#endif
