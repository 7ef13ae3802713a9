// Rules of strings only, which no header value decides: 1,000 rules with three strings of 12 to 40 bytes each, of which
// the first two or the third must be anywhere in the file, in files on the disk. The host next to libyara, one thread
// each. Both must give the same results on every file.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "bench/row.h"
#include "evaluation/features.h"
#include "evaluation/rule_index.h"
#include "rules/record/record_builder.h"
#include "rules/text/parser.h"
#include "rules/yara/export.h"
#include "tests/support/packaged_files.h"
#ifdef TAVRIK_HAS_LIBYARA
#include "tests/support/yara_scanner.h"
#endif

namespace {

using namespace tavrik;
using Paths = std::vector<std::filesystem::path>;

constexpr std::size_t kRules = 1000;
constexpr std::size_t kShortest = 12; // bytes of a string
constexpr std::size_t kLongest = 40;
constexpr std::size_t kOneIn = 4; // of the packaged files
constexpr int kRounds = 5;
constexpr double kTargetRate = 2; // GB/s
constexpr double kTargetRatio = 15;

std::vector<uint8_t> ReadWhole(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Of a file, so that it is found, or of random bytes. Parts of few different bytes make no rule.
std::string StringText(const std::vector<uint8_t> &file, std::mt19937 &random) {
    const std::size_t length = kShortest + random() % (kLongest - kShortest + 1);
    std::vector<uint8_t> bytes(length);
    std::ranges::generate(bytes, [&] { return static_cast<uint8_t>(random()); });
    if (random() % 2 == 0 && file.size() > kLongest)
        for (int attempt = 0; attempt < 100; ++attempt) {
            const auto at = static_cast<std::ptrdiff_t>(random() % (file.size() - length));
            std::vector<uint8_t> part(file.begin() + at, file.begin() + at + static_cast<std::ptrdiff_t>(length));
            std::vector<uint8_t> values = part;
            std::ranges::sort(values);
            if (static_cast<std::size_t>(std::unique(values.begin(), values.end()) - values.begin()) < length / 2)
                continue;
            bytes = part;
            break;
        }
    std::string text;
    for (const uint8_t byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, " %02X", byte);
        text += digits;
    }
    return "{" + text + " } in file\n";
}

rules::RuleSet Rules(const Paths &paths) {
    std::mt19937 random(7);
    std::string text;
    for (std::size_t rule = 1; rule <= kRules; ++rule) {
        const std::vector<uint8_t> file = ReadWhole(paths[random() % paths.size()]);
        text += "rule " + std::to_string(rule) + " \"Bench.Strings.A" + std::to_string(rule) + "\" {\nstrings {\n";
        for (const char letter : {'A', 'B', 'C'})
            text += std::string(1, letter) + " = " + StringText(file, random);
        text += "}\nwhen ((A&B)|C)\n}\n";
    }
    rules::text::ParsedFile parsed = rules::text::ParseRules(text);
    if (!parsed.diagnostics.empty())
        throw std::runtime_error("the rules do not parse: " + parsed.diagnostics.front().message);
    return std::move(parsed.set);
}

// Processor time of the thread, which other work on the machine hardly lengthens.
template <typename Function>
double Seconds(Function function) {
    const std::clock_t start = std::clock();
    function();
    return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

// The names of the rules that match a file, in their order.
using Search = std::function<std::vector<std::string>(const std::filesystem::path &path)>;

// The least time of all files in several rounds, the searches by turns; checks that they agree and stay the same.
std::vector<double> LeastSeconds(const std::vector<Search> &searches, const Paths &paths, std::size_t &matches) {
    std::vector<std::vector<std::string>> expected;
    for (const std::filesystem::path &path : paths) {
        expected.push_back(searches.front()(path));
        matches += expected.back().size();
    }
    std::vector<double> least(searches.size(), 1e9);
    for (int round = 0; round < kRounds; ++round)
        for (std::size_t search = 0; search < searches.size(); ++search) {
            bool is_equal = true;
            least[search] = std::min(least[search], Seconds([&] {
                                         for (std::size_t i = 0; i < paths.size(); ++i)
                                             is_equal = searches[search](paths[i]) == expected[i] && is_equal;
                                     }));
            if (!is_equal)
                throw std::runtime_error("the two sides, or two rounds, differ");
        }
    return least;
}

} // namespace

int main() try {
    Paths paths;
    uint64_t size = 0;
    const Paths all = tests::PackagedFiles();
    for (std::size_t i = 0; i < all.size(); i += kOneIn) {
        paths.push_back(all[i]);
        size += std::filesystem::file_size(all[i]);
    }
    const rules::RuleSet set = Rules(paths);
    if (rules::yara::ExportYara(set).exported.size() != kRules)
        throw std::runtime_error("not all rules can be exported");
    const rules::record::RecordSet records(set);
    const evaluation::RuleIndex index(records.rules());
    std::vector<Search> searches = {[&](const std::filesystem::path &path) {
        base::FileSource file(path);
        evaluation::Features features(file);
        std::vector<std::string> names;
        for (const uint32_t place : index.Match(features))
            names.push_back(rules::yara::YaraRuleName(set, place));
        std::ranges::sort(names);
        return names;
    }};
    const char *peer = "none, libyara is not installed";
#ifdef TAVRIK_HAS_LIBYARA
    peer = "libyara " YR_VERSION;
    const tests::YaraLibrary library;
    tests::YaraScanner yara(rules::yara::ExportYara(set).text);
    searches.push_back([&](const std::filesystem::path &path) {
        const std::vector<const char *> &found = yara.MatchFile(path.string());
        std::vector<std::string> names(found.begin(), found.end());
        std::ranges::sort(names);
        return names;
    });
#endif
    std::size_t matches = 0;
    const std::vector<double> least = LeastSeconds(searches, paths, matches);
    const double megabytes = static_cast<double>(size) / 1e6;
    std::printf("%zu rules, %zu files, %.0f MB, %zu matches on each side, one thread; peer: %s\n", kRules, paths.size(),
                megabytes, matches, peer);
    const auto rate = [&](double seconds) { return megabytes / 1e3 / seconds; };
    const bool has_peer = least.size() > 1;
    bench::PrintRow({"1,000 rules of strings only", rate(least[0]), "GB/s", has_peer ? "libyara" : "",
                     has_peer ? rate(least[1]) : 0, kTargetRate});
    if (has_peer)
        bench::PrintRow({"1,000 rules of strings only, to libyara", least[1] / least[0], "times", "", 0, kTargetRatio});
} catch (const std::exception &error) {
    std::fprintf(stderr, "string_rules_bench: %s\n", error.what());
    return 1;
}
