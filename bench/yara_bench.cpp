// The host's evaluation compared with libyara's, on one thread, with the same rules on the same files in memory: the
// rules that tavrik-rules export-yara can express exactly. Before anything is timed both must give the same results on
// every file and on altered files.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/row.h"
#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "rules/record/reader.h"
#include "scanner/module.h"
#include "tests/support/packaged_files.h"
#include "tests/support/yara_scanner.h"

namespace {

using namespace tavrik;
using tests::BothSides;
using tests::YaraScanner;
using Bytes = std::vector<uint8_t>;
using Places = std::vector<uint32_t>; // of rules among those exported

constexpr double kBoundEvaluation = 100;
constexpr double kBoundEndToEnd = 10;
constexpr int kYaraRounds = 5;
constexpr std::size_t kSpecimenStep = 8;
constexpr std::size_t kPackagedStep = 4;
constexpr uint16_t kLastHeaderField = 263;

std::size_t AssertEqual(const char *name, const std::vector<Bytes> &files, BothSides &all) {
    std::size_t matches = 0;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const Places ours = all.MatchOurs(files[i]);
        const Places theirs = all.MatchYara(files[i]);
        if (ours != theirs)
            throw std::runtime_error("the two sides differ on file " + std::to_string(i) + " of the " + name);
        matches += ours.size();
    }
    return matches;
}

struct Spread {
    double median;
    double low;
    double high;
};

Spread SpreadOf(std::vector<double> values) {
    std::ranges::sort(values);
    return {values[values.size() / 2], values.front(), values.back()};
}

double Seconds(const std::function<void()> &function) {
    const auto start = std::chrono::steady_clock::now();
    function();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

enum Figure { kParse, kOne, kAll, kEvaluation, kFigures };
using Rounds = std::array<std::vector<double>, kFigures>;

void Print(const char *side, const Rounds &rounds, std::size_t files) {
    constexpr const char *kNames[kFigures] = {"parse only", "parse and one rule", "all rules", "evaluation"};
    std::printf("  %s, microseconds a file\n", side);
    for (std::size_t figure = 0; figure < kFigures; ++figure) {
        const Spread spread = SpreadOf(rounds[figure]);
        const double unit = 1e6 / static_cast<double>(files);
        std::printf("    %-20s median %10.3f   (%.3f .. %.3f)\n", kNames[figure], spread.median * unit,
                    spread.low * unit, spread.high * unit);
    }
    std::printf("    end to end           %.0f files a second\n",
                static_cast<double>(files) / SpreadOf(rounds[kAll]).median);
}

void Measure(const char *name, const std::vector<Bytes> &files, BothSides &all, BothSides &one, YaraScanner &parse) {
    const std::size_t matches = AssertEqual(name, files, all);
    std::size_t bytes = 0;
    for (const Bytes &file : files)
        bytes += file.size();
    std::printf("%s: %zu files, %.1f MB, %zu rules, %zu matches on either side\n", name, files.size(),
                static_cast<double>(bytes) / 1e6, all.rule_count(), matches);

    Rounds ours;
    Rounds theirs;
    uint64_t kept = 0; // keeps the optimiser from removing work
    for (int round = 0; round < kYaraRounds; ++round) {
        const auto time_ours = [&](Figure figure, const std::function<void(const Bytes &)> &run) {
            ours[figure].push_back(Seconds([&] { std::ranges::for_each(files, run); }));
        };
        const auto time_theirs = [&](Figure figure, YaraScanner &scanner) {
            theirs[figure].push_back(Seconds([&] {
                for (const Bytes &file : files)
                    kept += scanner.Match(file).size();
            }));
        };
        time_ours(kParse, [&](const Bytes &file) {
            base::MemorySource source(file);
            evaluation::Features features(source);
            for (uint16_t field = 0; field <= kLastHeaderField; ++field)
                kept += features.Header(field).value_or(0);
        });
        time_ours(kOne, [&](const Bytes &file) { kept += one.MatchOurs(file).size(); });
        time_ours(kAll, [&](const Bytes &file) { kept += all.MatchOurs(file).size(); });
        time_theirs(kParse, parse);
        time_theirs(kOne, one.yara());
        time_theirs(kAll, all.yara());
        for (Rounds *side : {&ours, &theirs})
            (*side)[kEvaluation].push_back((*side)[kAll].back() - (*side)[kOne].back());
    }
    Print("host", ours, files.size());
    Print("libyara", theirs, files.size());
    const auto ratio = [&](Figure figure) { return SpreadOf(theirs[figure]).median / SpreadOf(ours[figure]).median; };
    bench::PrintRow(
        {std::string("evaluation to libyara's, ") + name, ratio(kEvaluation), "times", "", 0, kBoundEvaluation});
    bench::PrintRow({std::string("end to end to libyara's, ") + name, ratio(kAll), "times", "", 0, kBoundEndToEnd});
    std::printf("\n");
    [[maybe_unused]] static volatile std::size_t needed; // keeps the optimiser from removing what was timed
    needed = kept;
}

// The rules that ask for nothing in the tables of imports, exports and resources: libyara walks over these tables in
// loops for every file, and can spend a minute on a damaged one.
rules::RuleSet WithoutTables(const rules::RuleSet &set) {
    rules::RuleSet selected;
    for (const rules::Rule &rule : set.rules)
        if (rule.import_modules.empty() && rule.import_functions.empty() && rule.export_module_names.empty() &&
            rule.export_functions.empty() && rule.resource_entries.empty() && rule.resource_type_entries.empty() &&
            rule.resource_strings.empty() &&
            rules::yara::ExportYara(rules::RuleSet{{rule}}).text.find("import_table") == std::string::npos)
            selected.rules.push_back(rule);
    return selected;
}

} // namespace

int main() try {
    const scanner::Module module;
    const rules::RuleSet every = rules::record::ReadRules(module.rules(), rules::record::RecordForm::Working);
    const rules::RuleSet set = WithoutTables(tests::Exportable(every));
    const tests::YaraLibrary library;
    std::printf("libyara %s; %zu of %zu rules can be exported and ask for no tables\n\n", YR_VERSION, set.rules.size(),
                every.rules.size());

    // The one rule has a string, so that both sides may have to read the file.
    const auto with_string = std::ranges::find_if(set.rules, [](const auto &rule) { return !rule.strings.empty(); });
    if (with_string == set.rules.end())
        throw std::runtime_error("no exported rule has a string");
    BothSides all(set);
    BothSides one(rules::RuleSet{{*with_string}});
    YaraScanner parse("import \"pe\"\nrule parse_only { condition: pe.number_of_sections < 0 }\n");

    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    std::vector<Bytes> specimens;
    for (std::size_t place = 0; place < generator.size(); place += kSpecimenStep)
        specimens.push_back(*generator.SpecimenImage(place));
    std::vector<Bytes> packaged;
    const std::vector<std::filesystem::path> paths = tests::PackagedFiles();
    for (std::size_t place = 0; place < paths.size(); place += kPackagedStep) {
        std::ifstream file(paths[place], std::ios::binary);
        packaged.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

    constexpr unsigned kAlteredCopies = 4;
    std::mt19937 random(1);
    std::vector<Bytes> altered;
    for (const Bytes &specimen : specimens)
        std::ranges::move(tests::Altered(specimen, kAlteredCopies, random), std::back_inserter(altered));
    const std::size_t found = AssertEqual("altered specimens", altered, all);
    std::printf("altered specimens: %zu files, %zu matches on either side\n\n", altered.size(), found);
    Measure("specimens (every eighth)", specimens, all, one, parse);
    Measure("packaged programs (every fourth)", packaged, all, one, parse);
} catch (const std::exception &error) {
    std::fprintf(stderr, "yara_bench: %s\n", error.what());
    return 1;
}
