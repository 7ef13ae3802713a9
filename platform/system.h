/* What the operations in platform_common.cpp need of the operating system. platform_posix.cpp or platform_windows.cpp
 * implements it, along with the operations that differ between systems. */
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

/** A point in time in UTC, years in full, months and days from 1. */
struct UtcTime {
    unsigned year, month, day, hour, minute, second, millisecond;
};

/** The current time. */
UtcTime GetUtcTime();

/** Appends `size` bytes to a log file, made if missing, in one write at the file's end: records of several processes
 * may alternate but never mix. Failures are silent. */
void AppendToLog(const char *path, const char *bytes, size_t size);

} // namespace tavrik::platform

#endif
