// All strings of the rules, searched in one pass over files: our search compared with Hyperscan in block mode, on one
// thread. Ours also decides whether each string is in its region and window; Hyperscan only reports that its bytes
// occur. A few strings that repeat one byte slow Hyperscan down a lot, so it is also measured without them.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#ifdef TAVRIK_HAS_HYPERSCAN
#include <hs/hs.h>
#endif

#include "bench/ratio_reporter.h"
#include "bench/row.h"
#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "evaluation/features.h"
#include "evaluation/string_pass.h"
#include "evaluation/string_pattern.h"
#include "scanner/module.h"
#include "tests/support/packaged_files.h"

namespace {

using namespace tavrik;
using Clock = std::chrono::steady_clock;
using Strings = std::vector<const StringFeature *>;

constexpr char kEasedPeer[] = "HyperscanWithoutRuns_";

double Milliseconds(Clock::time_point since) {
    return std::chrono::duration<double, std::milli>(Clock::now() - since).count();
}

/** A file in memory with its features, which find the regions. */
struct File {
    explicit File(std::vector<uint8_t> content) : bytes(std::move(content)) {}

    std::vector<uint8_t> bytes;
    base::MemorySource source{bytes};
    evaluation::Features features{source};
};

struct Corpus {
    const char *name;
    std::vector<std::unique_ptr<File>> files;
    double target = 0.5; // GB/s
};

std::size_t SizeOf(const Corpus &corpus) {
    std::size_t size = 0;
    for (const auto &file : corpus.files)
        size += file->bytes.size();
    return size;
}

[[maybe_unused]] bool IsRun(const StringFeature *string) {
    const std::span<const uint8_t> bytes(string->bytes, string->length);
    const auto other = std::ranges::find_if(bytes, [](uint8_t byte) { return byte != 0; });
    return std::all_of(other, bytes.end(), [&](uint8_t byte) { return byte == 0 || byte == *other; });
}

#ifdef TAVRIK_HAS_HYPERSCAN
/** Strings in a Hyperscan database, for the life of the program. */
struct Hyperscan {
    explicit Hyperscan(const Strings &strings) : count(strings.size()) {
        const Clock::time_point start = Clock::now();
        std::vector<std::string> expressions(count);
        std::vector<const char *> texts;
        std::vector<unsigned> flags;
        std::vector<unsigned> numbers;
        for (const StringFeature *string : strings) {
            const evaluation::StringPattern pattern(*string);
            std::string &expression = expressions[numbers.size()];
            for (std::size_t i = 0; i < pattern.length; ++i) {
                char byte[8];
                std::snprintf(byte, sizeof(byte), "\\x%02x", pattern.value[i]);
                expression += pattern.care[i] == 0 ? "." : byte;
            }
            const bool ignores_case = (string->param_e & rules::kStringNoCase) != 0;
            texts.push_back(expression.c_str());
            flags.push_back(HS_FLAG_DOTALL | HS_FLAG_SINGLEMATCH | (ignores_case ? HS_FLAG_CASELESS : 0u));
            numbers.push_back(static_cast<unsigned>(numbers.size()));
        }
        hs_compile_error_t *error = nullptr;
        std::size_t size = 0;
        if (hs_compile_multi(texts.data(), flags.data(), numbers.data(), static_cast<unsigned>(count), HS_MODE_BLOCK,
                             nullptr, &database, &error) != HS_SUCCESS ||
            hs_alloc_scratch(database, &scratch) != HS_SUCCESS || hs_database_size(database, &size) != HS_SUCCESS) {
            std::fprintf(stderr, "string_pass_bench: Hyperscan: %s\n", error != nullptr ? error->message : "no memory");
            std::exit(2);
        }
        std::printf("Hyperscan: %zu strings, built in %.0f ms, %zu KiB\n", count, Milliseconds(start), size / 1024);
    }

    std::vector<bool> Search(const File &file) const {
        std::vector<bool> found(count);
        const auto on_match = [](unsigned number, unsigned long long, unsigned long long, unsigned, void *to) {
            (*static_cast<std::vector<bool> *>(to))[number] = true;
            return 0;
        };
        hs_scan(database, reinterpret_cast<const char *>(file.bytes.data()), static_cast<unsigned>(file.bytes.size()),
                0, scratch, on_match, &found);
        return found;
    }

    std::size_t count;
    hs_database_t *database = nullptr;
    hs_scratch_t *scratch = nullptr;
};
#endif

// Files made to be slow: parts of four bytes of the strings, and the strings with one byte altered.
std::vector<uint8_t> Hostile(const Strings &strings, bool whole) {
    constexpr std::size_t kSize = 4 << 20;
    std::mt19937 random(2);
    std::vector<uint8_t> bytes;
    while (bytes.size() < kSize) {
        evaluation::StringPattern pattern(*strings[random() % strings.size()]);
        const std::size_t at = random() % pattern.length;
        pattern.value[at] ^= 0x11;
        const std::size_t first = whole ? 0 : at + 1;
        const std::size_t count = whole ? pattern.length : 4;
        if (first + count <= pattern.length)
            bytes.insert(bytes.end(), &pattern.value[first], &pattern.value[first] + count);
    }
    return bytes;
}

// The four bytes, none of them zero, that are in most strings, over and over.
std::vector<uint8_t> MostFrequentPart(const Strings &strings) {
    constexpr std::size_t kSize = 4 << 20;
    std::map<std::array<uint8_t, 4>, std::size_t> counts;
    for (const StringFeature *string : strings) {
        const evaluation::StringPattern pattern(*string);
        std::set<std::array<uint8_t, 4>> parts;
        for (std::size_t at = 0; at + 4 <= pattern.length; ++at) {
            const auto *bytes = &pattern.value[at];
            if (std::all_of(bytes, bytes + 4, [](uint8_t byte) { return byte != 0; }))
                parts.insert({bytes[0], bytes[1], bytes[2], bytes[3]});
        }
        for (const auto &part : parts)
            ++counts[part];
    }
    const auto most = std::ranges::max_element(counts, {}, [](const auto &count) { return count.second; });
    std::vector<uint8_t> bytes;
    while (bytes.size() < kSize)
        bytes.insert(bytes.end(), most->first.begin(), most->first.end());
    return bytes;
}

std::vector<Corpus> Corpora(const Strings &strings) {
    constexpr std::size_t kOneIn = 8;
    constexpr std::size_t kLarge = 16 << 20;
    std::vector<Corpus> corpora(7);
    const auto add = [&](std::size_t corpus, std::vector<uint8_t> bytes) {
        corpora[corpus].files.push_back(std::make_unique<File>(std::move(bytes)));
    };
    corpora[0].name = "packaged";
    corpora[0].target = 1.5;
    const std::vector<std::filesystem::path> paths = tests::PackagedFiles();
    for (std::size_t i = 0; i < paths.size(); i += kOneIn) {
        std::ifstream file(paths[i], std::ios::binary);
        add(0, {std::istreambuf_iterator<char>(file), {}});
    }
    corpora[1].name = "specimens";
    corpora[1].target = 0.6;
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    for (std::size_t place = 0; place < generator.size(); place += kOneIn)
        add(1, *generator.SpecimenImage(place));
    corpora[2].name = "zeros";
    corpora[2].target = 10;
    add(2, std::vector<uint8_t>(kLarge));
    corpora[3].name = "random";
    corpora[3].target = 3;
    std::vector<uint8_t> bytes(kLarge);
    std::ranges::generate(bytes, [random = std::mt19937(1)]() mutable { return static_cast<uint8_t>(random()); });
    add(3, std::move(bytes));
    corpora[4].name = "string_parts";
    add(4, Hostile(strings, false));
    corpora[5].name = "near_misses";
    add(5, Hostile(strings, true));
    corpora[6].name = "frequent_part";
    add(6, MostFrequentPart(strings));
    return corpora;
}

} // namespace

int main(int argc, char **argv) {
    const scanner::Module module;
    Strings strings;
    for (const HeuristicRule *rule : module.rules())
        for (uint32_t i = 0; i < rule->strings.count; ++i)
            strings.push_back(&rule->strings.elements[i]);
    const Clock::time_point start = Clock::now();
    const evaluation::StringPass pass(strings);
    std::printf("StringPass: %zu strings, built in %.0f ms, %zu KiB, at most %zu compared at one place\n",
                strings.size(), Milliseconds(start), pass.MemorySize() / 1024, pass.LargestBucket());
    const auto own = [&](File &file) {
        return pass.Search(file.features.bytes(),
                           [&](const StringFeature &string) { return file.features.StringRegion(string); });
    };
    std::vector<std::pair<std::string, std::function<std::vector<bool>(File &)>>> searches = {{"StringPass_", own}};
#ifdef TAVRIK_HAS_HYPERSCAN
    const Hyperscan all(strings);
    Strings eased = strings;
    std::erase_if(eased, IsRun);
    const Hyperscan without_runs(eased);
    searches.emplace_back("Hyperscan_", [&](const File &file) { return all.Search(file); });
    searches.emplace_back(kEasedPeer, [&](const File &file) { return without_runs.Search(file); });
#else
    std::printf("without Hyperscan, which is not installed\n");
#endif
    std::vector<Corpus> corpora = Corpora(strings);
    for (Corpus &corpus : corpora) {
        const std::size_t size = SizeOf(corpus);
        for (const auto &file : corpus.files) {
            const std::vector<bool> present = own(*file);
            const std::vector<bool> somewhere = searches[searches.size() > 1 ? 1 : 0].second(*file);
            for (std::size_t i = 0; i < strings.size(); ++i)
                if (present[i] && !somewhere[i]) {
                    std::fprintf(stderr, "string_pass_bench: Hyperscan does not find string %zu\n", i);
                    return 1;
                }
        }
        for (const auto &[name, search] : searches) {
            const auto run = [&corpus, &search = search, size](benchmark::State &state) {
                for (auto _ : state)
                    for (const auto &file : corpus.files)
                        benchmark::DoNotOptimize(search(*file));
                state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
            };
            benchmark::RegisterBenchmark((name + corpus.name).c_str(), run)->Unit(benchmark::kMillisecond);
        }
    }
    bench::RatioReporter reporter(bench::RatioReporter::Times::Processor);
    if (!bench::Run(argc, argv, reporter))
        return 2;
    for (const Corpus &corpus : corpora) {
        const auto rate = [&](const char *name) {
            const double time = reporter.Nanoseconds(name + std::string(corpus.name));
            return time > 0 ? static_cast<double>(SizeOf(corpus)) / time : 0;
        };
        const bool has_peer = rate(kEasedPeer) > 0;
        if (rate("StringPass_") > 0)
            bench::PrintRow({std::string("all strings in one pass, ") + corpus.name, rate("StringPass_"), "GB/s",
                             has_peer ? "Hyperscan, 43 strings less" : "", rate(kEasedPeer), corpus.target});
    }
    for (const Corpus &corpus : corpora)
        for (const char *peer : {"Hyperscan_", kEasedPeer})
            reporter.PrintRatio(std::string("StringPass_") + corpus.name, std::string(peer) + corpus.name);
}
