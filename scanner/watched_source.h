/* A source whose reads fail after a deadline or an interruption. */
#ifndef TAVRIK_SCANNER_WATCHED_SOURCE_H
#define TAVRIK_SCANNER_WATCHED_SOURCE_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "base/byte_source.h"

namespace tavrik::scanner {

class Profile;

/** How long work on one file may take: until a time, or until it is cancelled. */
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    /** Begins now; `seconds` 0 is for ever. `cancel`, if not null, must outlive the object; true ends the work. */
    explicit Deadline(double seconds, const std::atomic<bool> *cancel = nullptr);

    bool HasPassed() const { return IsCancelled() || (seconds_ > 0 && Clock::now() > end_); }
    bool IsCancelled() const { return cancel_ != nullptr && cancel_->load(std::memory_order_relaxed); }
    double seconds() const { return seconds_; }

private:
    double seconds_;
    const std::atomic<bool> *cancel_;
    Clock::time_point end_;
};

/** Reads another source until the deadline has passed or the user asks the program to end; from then on every read
 * fails, so that the work on the file ends. */
class WatchedSource final : public base::ByteSource {
public:
    /** `source` and `profile` must outlive the object; `profile`, if not null, measures the time of reading. */
    WatchedSource(base::ByteSource &source, const Deadline &deadline, Profile *profile = nullptr)
        : source_(source), deadline_(deadline), profile_(profile) {}

    uint64_t size() const override { return source_.size(); }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override;
    const std::string &error() const override { return error_.empty() ? source_.error() : error_; }
    base::ErrorCode error_code() const override { return error_.empty() ? source_.error_code() : error_code_; }
    uint64_t bytes_read() const override { return source_.bytes_read(); }

    /** Whether the user asked to end before everything was read. */
    bool was_interrupted() const { return was_interrupted_; }

private:
    base::ByteSource &source_;
    Deadline deadline_;
    Profile *profile_;
    std::string error_;
    base::ErrorCode error_code_ = base::ErrorCode::TimedOut; // of `error_`
    bool was_interrupted_ = false;
};

} // namespace tavrik::scanner

#endif
