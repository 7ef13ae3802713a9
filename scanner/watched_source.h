/* A source whose reads fail after a deadline or an interruption. */
#ifndef TAVRIK_SCANNER_WATCHED_SOURCE_H
#define TAVRIK_SCANNER_WATCHED_SOURCE_H

#include <chrono>
#include <cstdint>
#include <string>

#include "base/byte_source.h"

namespace tavrik::scanner {

class Profile;

/** How long work on one file may take. */
class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    /** Begins now; `seconds` 0 is for ever. */
    explicit Deadline(double seconds);

    bool HasPassed() const { return seconds_ > 0 && Clock::now() > end_; }
    double seconds() const { return seconds_; }

private:
    double seconds_;
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
    base::ErrorCode error_code() const override {
        return error_.empty() ? source_.error_code() : base::ErrorCode::TimedOut;
    }

    /** Whether the user asked to end before everything was read. */
    bool was_interrupted() const { return was_interrupted_; }

private:
    base::ByteSource &source_;
    Deadline deadline_;
    Profile *profile_;
    std::string error_;
    bool was_interrupted_ = false;
};

} // namespace tavrik::scanner

#endif
