#include "scanner/watched_source.h"

#include <algorithm>

#include <fmt/format.h>

#include "base/system.h"
#include "scanner/profile.h"

namespace tavrik::scanner {

namespace {

constexpr double kLongestLimit = 1e9; // seconds; later the clock's numbers end

} // namespace

Deadline::Deadline(double seconds, const std::atomic<bool> *cancel)
    : seconds_(seconds), cancel_(cancel),
      end_(Clock::now() + std::chrono::duration_cast<Clock::duration>(
                              std::chrono::duration<double>(std::clamp(seconds, 0.0, kLongestLimit)))) {}

std::size_t WatchedSource::ReadAt(uint64_t offset, void *buffer, std::size_t length) {
    if (!error_.empty())
        return 0;
    if (base::Interruption() != 0) {
        was_interrupted_ = true;
        error_ = "interrupted";
        return 0;
    }
    if (deadline_.IsCancelled()) {
        error_ = "cancelled";
        error_code_ = base::ErrorCode::Cancelled;
        return 0;
    }
    if (deadline_.HasPassed()) {
        error_ = fmt::format("took longer than {} seconds", deadline_.seconds());
        return 0;
    }
    const ReadTimer timer(profile_, source_);
    return source_.ReadAt(offset, buffer, length);
}

} // namespace tavrik::scanner
