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

    /** Adds to the time of reading, which is part of the steps. */
    void AddReading(Duration time) { reading_ += time; }

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

/** Adds the life of the object to the time of reading; does nothing without a profile. */
class ReadTimer {
public:
    explicit ReadTimer(Profile *profile) : profile_(profile) {
        if (profile_ != nullptr)
            start_ = Profile::Clock::now();
    }
    ~ReadTimer() {
        if (profile_ != nullptr)
            profile_->AddReading(Profile::Clock::now() - start_);
    }
    ReadTimer(const ReadTimer &) = delete;
    ReadTimer &operator=(const ReadTimer &) = delete;

private:
    Profile *profile_;
    Profile::Clock::time_point start_;
};

} // namespace tavrik::scanner

#endif
