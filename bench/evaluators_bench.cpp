// The time to evaluate all rules on one file whose features are known: the indexed evaluator compared with the plain
// one, on files that no rule matches and on files that one does. The plain one evaluates every rule.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/row.h"
#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "evaluation/evaluator.h"
#include "evaluation/rule_index.h"
#include "scanner/module.h"
#include "tests/support/packaged_files.h"

namespace {

using namespace tavrik;
using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

constexpr double kBoundMicroseconds = 10;
constexpr double kBoundRatio = 20;
constexpr double kBoundPlainNanoseconds = 15; // per rule
constexpr int kRounds = 9;

double Quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

// The median time of a call, in microseconds.
template <typename Function>
double Median(Function function) {
    std::vector<double> times;
    for (int round = 0; round < kRounds; ++round) {
        const Clock::time_point start = Clock::now();
        function();
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    return Quantile(times, 0.5);
}

std::size_t Sum(const std::vector<uint32_t> &matches) {
    return matches.size();
}

struct Times {
    std::vector<double> first; // the indexed evaluator with only the headers known; includes extracting features
    std::vector<double> fast;
    std::vector<double> plain;
};

void Measure(const char *name, const std::vector<Bytes> &files, std::span<HeuristicRule *const> rules) {
    const evaluation::RuleIndex index(rules);
    index.Prepare();
    Times times;
    std::size_t matches = 0;
    for (const Bytes &bytes : files) {
        base::MemorySource source(bytes);
        times.first.push_back(Median([&] {
            evaluation::Features fresh(source);
            matches += Sum(index.Match(fresh));
        }));
        evaluation::Features features(source);
        std::size_t found = 0;
        const auto plain = [&] {
            found = 0;
            for (const HeuristicRule *rule : rules)
                found += evaluation::Matches(*rule, features) ? 1U : 0U;
        };
        plain(); // extracts the features
        if (found != index.Match(features).size()) {
            std::fprintf(stderr, "%s: the evaluators differ\n", name);
            std::exit(1);
        }
        times.plain.push_back(Median(plain));
        times.fast.push_back(Median([&] { matches += Sum(index.Match(features)); }));
    }
    const double fast = Quantile(times.fast, 0.5);
    const double plain = Quantile(times.plain, 0.5);
    std::printf("%s: %zu files, %zu rules\n", name, files.size(), rules.size());
    std::printf("  fast evaluator, features known:   median %8.2f us, 95%% %8.2f us, worst %8.2f us (bound: %.0f us)\n",
                fast, Quantile(times.fast, 0.95), Quantile(times.fast, 1), kBoundMicroseconds);
    std::printf("  plain evaluator, features known:  median %8.2f us, 95%% %8.2f us, worst %8.2f us\n", plain,
                Quantile(times.plain, 0.95), Quantile(times.plain, 1));
    std::printf("    that is %.1f ns a rule (bound: %.0f ns)\n", 1000 * plain / static_cast<double>(rules.size()),
                kBoundPlainNanoseconds);
    std::printf("  fast evaluator and its features:  median %8.2f us, 95%% %8.2f us, worst %8.2f us\n",
                Quantile(times.first, 0.5), Quantile(times.first, 0.95), Quantile(times.first, 1));
    bench::PrintRow({std::string("all rules on one file, ") + name, fast, "us", "plain evaluator", plain,
                     kBoundMicroseconds, false});
    bench::PrintRow({std::string("the same, ratio, ") + name, plain / fast, "times", "", 0, kBoundRatio});
}

} // namespace

int main() {
    const scanner::Module module;
    std::vector<Bytes> clean;
    for (const std::filesystem::path &path : tests::PackagedFiles()) {
        std::ifstream file(path, std::ios::binary);
        clean.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    std::vector<Bytes> specimens;
    for (std::size_t place = 0; place < generator.size(); place += 8)
        specimens.push_back(*generator.SpecimenImage(place));

    const Clock::time_point start = Clock::now();
    const evaluation::RuleIndex index(module.rules());
    index.Prepare();
    std::printf("building the index: %.1f ms, once; %zu rules are asked of every file\n",
                std::chrono::duration<double, std::milli>(Clock::now() - start).count(), index.unfiled());
    Measure("packaged programs", clean, module.rules());
    Measure("specimens (every eighth)", specimens, module.rules());
}
