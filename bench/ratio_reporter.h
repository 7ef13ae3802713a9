/* A console reporter that remembers what it printed, so that a benchmark can be compared with its peer of the same run.
 */
#ifndef TAVRIK_BENCH_RATIO_REPORTER_H
#define TAVRIK_BENCH_RATIO_REPORTER_H

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace tavrik::bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    // By the clock, or of the processor, which other work on the machine lengthens less.
    enum class Times { Clock, Processor };
    explicit RatioReporter(Times times = Times::Clock) : ConsoleReporter(OO_None), times_(times) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            // With repetitions the median is used, without them the only run.
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
            if ((median || single) && !run.error_occurred)
                nanoseconds_[run.run_name.function_name] =
                    (times_ == Times::Clock ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime()) *
                    ToNanoseconds(run.time_unit);
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Time of one run in nanoseconds; 0 when a filter left the benchmark out.
    double Nanoseconds(const std::string &name) const {
        const auto found = nanoseconds_.find(name);
        return found == nanoseconds_.end() ? 0 : found->second;
    }

    // "fast is N times as fast as peer", when both ran.
    void PrintRatio(const std::string &fast, const std::string &peer) const {
        const double own = Nanoseconds(fast);
        const double other = Nanoseconds(peer);
        if (own > 0 && other > 0)
            std::printf("ratio: %s runs at %.2f times the speed of %s\n", fast.c_str(), other / own, peer.c_str());
    }

private:
    static double ToNanoseconds(benchmark::TimeUnit unit) { return 1e9 / benchmark::GetTimeUnitMultiplier(unit); }

    Times times_;
    std::map<std::string, double> nanoseconds_;
};

// Runs the benchmarks through `reporter`, each several times, unless the arguments say otherwise; false when they are
// wrong.
inline bool Run(int argc, char **argv, RatioReporter &reporter) {
    std::string defaults[] = {"--benchmark_repetitions=5", "--benchmark_min_time=0.1",
                              "--benchmark_report_aggregates_only=true"};
    std::vector<char *> arguments = {argv[0]};
    for (std::string &argument : defaults)
        arguments.push_back(argument.data());
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return false;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return true;
}

} // namespace tavrik::bench

#endif
