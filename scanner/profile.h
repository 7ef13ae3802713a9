/* The time that the steps and the rules of a scan take. Each thread has its own measurements; at the end they are added
 * up. */
#ifndef TAVRIK_SCANNER_PROFILE_H
#define TAVRIK_SCANNER_PROFILE_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>

#include "base/byte_source.h"
#include "evaluation/rule_index.h"

namespace tavrik::scanner {

/** The steps of scanning a file; they do not overlap. */
enum class Step : uint8_t { Other, Open, Sha256, Headers, Rules, CleanAction, Locators, Unpack, Carve, Output, Count };

/** Measurements of one thread. */
class Profile final : public evaluation::RuleObserver {
public:
    using Clock = std::chrono::steady_clock;
    using Duration = std::chrono::nanoseconds;

    /** Begins with Step::Other. */
    Profile() : since_(Clock::now()) {}

    /** Ends the current step and begins another. Returns the step that ended. */
    Step Enter(Step step);

    /** Adds a read that took `time`, which is part of the steps; `bytes` came from where the source has them. */
    void AddReading(Duration time, uint64_t bytes) {
        reading_ += time;
        Reading &read = read_[static_cast<std::size_t>(step_)];
        read.calls += bytes > 0 ? 1 : 0;
        read.bytes += bytes;
    }

    /** What a step has read: bytes from where the source has them, and the calls that fetched some. */
    struct Reading {
        uint64_t calls = 0;
        uint64_t bytes = 0;
    };
    const Reading &ReadBy(Step step) const { return read_[static_cast<std::size_t>(step)]; }

    /** The time of a step so far. */
    Duration TimeOf(Step step) const { return steps_[static_cast<std::size_t>(step)]; }

    void OnConditions(uint32_t rule, Duration time) override;
    void OnStrings(uint32_t rule, Duration time) override;

    /** Adds the measurements of another thread. */
    void Add(const Profile &other);

    /** What one rule cost, by its position in the table. */
    struct RuleCost {
        uint64_t asked = 0; // times
        Duration conditions = {};
        Duration strings = {};
    };
    RuleCost CostOf(uint32_t rule) const;

    /** The measurements as lines of text, each with its line feed. `rules` is the table that the positions of the
     * observed rules refer to. */
    std::string Text(std::span<HeuristicRule *const> rules) const;

private:
    std::array<Duration, static_cast<std::size_t>(Step::Count)> steps_ = {};
    Duration reading_ = {};
    std::array<Reading, static_cast<std::size_t>(Step::Count)> read_ = {};
    std::unordered_map<uint32_t, RuleCost> rules_;
    Step step_ = Step::Other;
    Clock::time_point since_;
};

/** Measures a step for the life of the object; does nothing without a profile. */
class StepTimer {
public:
    StepTimer(Profile *profile, Step step) : profile_(profile), before_(profile ? profile->Enter(step) : step) {}
    ~StepTimer() {
        if (profile_ != nullptr)
            profile_->Enter(before_);
    }
    StepTimer(const StepTimer &) = delete;
    StepTimer &operator=(const StepTimer &) = delete;

private:
    Profile *profile_;
    Step before_;
};

/** Measures one read, as long as the object lives, from a source that counts its bytes; does nothing without a profile.
 */
class ReadTimer {
public:
    ReadTimer(Profile *profile, const base::ByteSource &source) : profile_(profile), source_(source) {
        if (profile_ == nullptr)
            return;
        before_ = source_.bytes_read();
        start_ = Profile::Clock::now();
    }
    ~ReadTimer() {
        if (profile_ != nullptr)
            profile_->AddReading(Profile::Clock::now() - start_, source_.bytes_read() - before_);
    }
    ReadTimer(const ReadTimer &) = delete;
    ReadTimer &operator=(const ReadTimer &) = delete;

private:
    Profile *profile_;
    const base::ByteSource &source_;
    uint64_t before_ = 0;
    Profile::Clock::time_point start_;
};

} // namespace tavrik::scanner

#endif
