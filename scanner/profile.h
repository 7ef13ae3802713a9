/* What a scan's steps and rules cost. Each thread measures for itself; at the end the measurements are added up. */
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

/** The steps of scanning a file, which do not overlap. */
enum class Step : uint8_t { Other, Open, Sha256, Headers, Rules, CleanAction, Locators, Carve, Output, Count };

/** Measurements of one thread. */
class Profile final : public evaluation::RuleObserver {
public:
    using Clock = std::chrono::steady_clock;
    using Duration = std::chrono::nanoseconds;

    /** Begins with Step::Other. */
    Profile() : since_(Clock::now()) {}

    /** Ends the current step and begins another. Returns the one that ended. */
    Step Enter(Step step);

    /** Adds to the time of reading, which is part of the steps. */
    void AddReading(Duration time) { reading_ += time; }

    void OnConditions(uint32_t rule, Duration time) override;
    void OnStrings(uint32_t rule, Duration time) override;

    /** Takes the measurements of another thread in. */
    void Add(const Profile &other);

    /** Lines for people, each with its line feed. `rules` is the table whose positions the observed rules are. */
    std::string Text(std::span<HeuristicRule *const> rules) const;

private:
    struct RuleCost {
        uint64_t asked = 0; // times
        Duration conditions = {};
        Duration strings = {};
    };

    std::array<Duration, static_cast<std::size_t>(Step::Count)> steps_ = {};
    Duration reading_ = {};
    std::unordered_map<uint32_t, RuleCost> rules_;
    Step step_ = Step::Other;
    Clock::time_point since_;
};

/** Is a step for the life of the object; without a profile nothing. */
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

/** Adds its life to the time of reading; without a profile nothing. */
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
