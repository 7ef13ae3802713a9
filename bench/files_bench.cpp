// Whole scans of many files next to what the system needs for them alone: opening each, reading its first 16 KiB and
// closing it; what scans read and why, which rule costs most, the first answer after the start, and SHA-256 next to
// openssl's. Times are processor times, which other work on the machine lengthens less; each is the least of several.
// All programs have one thread, and the files are in the page cache.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

#include "base/system.h"
#include "bench/row.h"
#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "scanner/profile.h"
#include "scanner/scan.h"
#include "tests/support/packaged_files.h"

namespace {

using namespace tavrik;
namespace fs = std::filesystem;

constexpr int kRounds = 7;
constexpr std::size_t kFewestFiles = 6000; // that a run scans, so that preparing the rules hardly counts

struct Target {
    double ratio;  // of the whole scan to opening, reading and closing
    double share;  // per cent, of the files' bytes that are read; 0: none is set
    double of_all; // per cent, that one rule may take of the time of all
};

constexpr Target kSpecimens = {1.5, 0, 0};
constexpr Target kPackaged = {2.5, 15, 5};
constexpr double kFirstAnswer = 3; // ms
constexpr double kSha256 = 1;      // times openssl's time

[[noreturn]] void Fail(const char *what) {
    std::fprintf(stderr, "files_bench: %s\n", what);
    std::exit(2);
}

double Milliseconds(const timeval &time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

// The processor time of `work` in a process of its own, in ms: the least of several.
double Cost(const std::function<void()> &work) {
    double least = 1e12;
    for (int round = 0; round < kRounds; ++round) {
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            work();
            _exit(0);
        }
        int status = 0;
        rusage usage = {};
        if (child < 0 || wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) > 1)
            Fail("a process failed");
        least = std::min(least, Milliseconds(usage.ru_utime) + Milliseconds(usage.ru_stime));
    }
    return least;
}

// Replaces the process by a program that writes to nowhere.
void Run(const std::vector<std::string> &arguments) {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    std::vector<char *> argv;
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    _exit(127);
}

bool IsInstalled(const std::string &program) {
    return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

void OpenReadClose(const std::vector<std::string> &files) {
    static std::array<char, 16 * 1024> page;
    for (const std::string &file : files) {
        const int descriptor = open(file.c_str(), O_RDONLY);
        if (descriptor < 0 || pread(descriptor, page.data(), page.size(), 0) < 0)
            _exit(2);
        close(descriptor);
    }
}

fs::path WriteList(const fs::path &folder, const std::vector<std::string> &files) {
    const fs::path list = folder / "list";
    std::ofstream out(list);
    for (const std::string &file : files)
        out << file << '\n';
    return list;
}

uint64_t ReadsSoFar(const scanner::Profile &profile) {
    uint64_t reads = 0;
    for (int step = 0; step < static_cast<int>(scanner::Step::Count); ++step)
        reads += profile.ReadBy(static_cast<scanner::Step>(step)).calls;
    return reads;
}

// What the scans of the files read, by step.
void CountReads(const scanner::Scanner &scanner, const std::string &name, const std::vector<std::string> &files,
                const Target &target) {
    scanner::Profile profile;
    uint64_t size = 0;
    uint64_t read = 0;
    std::vector<uint64_t> reads;
    for (const std::string &file : files) {
        const uint64_t before = ReadsSoFar(profile);
        const scanner::FileReport report = scanner.Scan(fs::path(file), &profile);
        size += report.size.value_or(0);
        read += report.bytes_read;
        reads.push_back(ReadsSoFar(profile) - before);
    }
    std::ranges::sort(reads);
    constexpr std::pair<scanner::Step, const char *> kSteps[] = {{scanner::Step::Headers, "headers and entry point"},
                                                                 {scanner::Step::Rules, "rules"},
                                                                 {scanner::Step::Locators, "locators and payloads"},
                                                                 {scanner::Step::Unpack, "files inside"}};
    std::printf("%s: %zu files of %.1f MB, %.1f MB read; reads of the system a file: median %llu, most %llu\n",
                name.c_str(), files.size(), static_cast<double>(size) / 1e6, static_cast<double>(read) / 1e6,
                static_cast<unsigned long long>(reads[reads.size() / 2]),
                static_cast<unsigned long long>(reads.back()));
    for (const auto &[step, text] : kSteps)
        std::printf("  %-24s %8llu reads, %10.1f MB\n", text,
                    static_cast<unsigned long long>(profile.ReadBy(step).calls),
                    static_cast<double>(profile.ReadBy(step).bytes) / 1e6);
    if (target.share > 0)
        bench::PrintRow({"bytes read of " + name, 100.0 * static_cast<double>(read) / static_cast<double>(size), "%",
                         "", 0, target.share, false});
}

// The share of the time of the step of rules that the rule which costs most takes, of the least of several rounds.
void FindCostliestRule(const scanner::Scanner &scanner, const std::string &name, const std::vector<std::string> &files,
                       const Target &target) {
    std::vector<double> least(scanner.rules().size(), 1e18); // ns
    double all = 1e18;
    for (int round = 0; round < kRounds; ++round) {
        scanner::Profile profile;
        for (const std::string &file : files)
            scanner.Scan(fs::path(file), &profile);
        all = std::min(all, static_cast<double>(profile.TimeOf(scanner::Step::Rules).count()));
        for (std::size_t place = 0; place < least.size(); ++place) {
            const scanner::Profile::RuleCost cost = profile.CostOf(static_cast<uint32_t>(place));
            least[place] = std::min(least[place], static_cast<double>((cost.conditions + cost.strings).count()));
        }
    }
    const auto most = std::ranges::max_element(least);
    const HeuristicRule &rule = *scanner.rules()[static_cast<std::size_t>(most - least.begin())];
    std::printf("%s: rules take %.3f ms, of which rule %u %.3f ms\n", name.c_str(), all / 1e6,
                static_cast<unsigned>(rule.rule_id), *most / 1e6);
    if (target.of_all > 0)
        bench::PrintRow(
            {"the rule that costs most, " + name, 100.0 * *most / all, "% of rule time", "", 0, target.of_all, false});
}

void CompareScan(const std::string &name, const std::vector<std::string> &each, const fs::path &folder,
                 const std::string &program, const Target &target) {
    std::vector<std::string> files = each;
    while (files.size() < kFewestFiles && !each.empty())
        files.insert(files.end(), each.begin(), each.end());
    const std::string list = WriteList(folder, files).string();
    const std::string none = (folder / "none").string();
    std::ofstream{none};
    const double start = Cost([&] { Run({program, "-q", "-j", "1", "--files-from", none}); });
    const double scan = Cost([&] { Run({program, "-q", "-j", "1", "--files-from", list}); }) - start;
    const double nothing = Cost([] {});
    const double pass = Cost([&] { OpenReadClose(files); }) - nothing;
    const auto a_file = [&](double milliseconds) { return 1e3 * milliseconds / static_cast<double>(files.size()); };
    std::printf("%s: %zu files, %zu times over; the program's start, %.1f ms, is left out\n", name.c_str(), each.size(),
                files.size() / each.size(), start);
    bench::PrintRow({"whole scan of " + name + ", a file", a_file(scan), "us", "open, read 16 KiB, close", a_file(pass),
                     target.ratio * a_file(pass), false});
    bench::PrintRow({"the same, ratio, " + name, scan / pass, "times", "", 0, target.ratio, false});
    if (!IsInstalled("rg")) {
        std::printf("without rg, which is not installed\n");
        return;
    }
    std::vector<std::string> arguments = {"rg", "-j", "1", "-a", "-m", "1", "-c", "--no-config", "MZ"};
    const double rg_start = Cost([&] { Run({"rg", "--version"}); });
    arguments.insert(arguments.end(), files.begin(), files.end());
    std::printf("%s: rg -j 1 -a -m 1 -c MZ %.2f us a file\n", name.c_str(),
                a_file(Cost([&] { Run(arguments); }) - rg_start));
}

void CompareSha256(const std::vector<std::string> &files, const fs::path &folder, const std::string &program) {
    const std::string list = WriteList(folder, files).string();
    const auto scan = [&](const std::string &format, const std::vector<std::string> &more) {
        std::vector<std::string> arguments = {program, "-q", "-j", "1", format, "--files-from", list};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Cost([&] { Run(arguments); });
    };
    const double without = scan("--json", {});
    const double with = scan("--json", {"--sha256"});
    if (!IsInstalled("openssl")) {
        std::printf("SHA-256: scan with it %.0f ms, without %.0f ms; openssl is not installed\n", with, without);
        return;
    }
    std::vector<std::string> arguments = {"openssl", "dgst", "-sha256"};
    arguments.insert(arguments.end(), files.begin(), files.end());
    const double peer = Cost([&] { Run(arguments); });
    std::printf("SHA-256: scan with it %.0f ms, without %.0f ms; openssl dgst %.0f ms\n", with, without, peer);
    bench::PrintRow({"--sha256, on top of a scan", with - without, "ms", "openssl dgst", peer, kSha256 * peer, false});
}

// From the program's start to its end, on one small file; and of that the part after its libraries are loaded.
void MeasureFirstAnswer(const std::string &specimen, const std::string &program) {
    const double inside = Cost([&] {
        const scanner::Scanner scanner(std::make_shared<const scanner::Module>());
        if (scanner.Scan(fs::path(specimen)).status != scanner::ScanStatus::Scanned)
            _exit(2);
    });
    std::printf("first answer: %.2f ms of the processor for loading the module, the rules and one scan\n",
                inside - Cost([] {}));
    const double whole = Cost([&] { Run({program, "-q", specimen}); });
    bench::PrintRow({"first answer: tavrik-scan with one small file", whole, "ms", "a program that does nothing",
                     Cost([] { Run({"true"}); }), kFirstAnswer, false});
}

} // namespace

int main() {
    const std::string program = (base::ProgramFolder() / "tavrik-scan").string();
    const fs::path folder = fs::current_path() / "files_bench_files";
    fs::remove_all(folder);
    fs::create_directories(folder);
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    std::vector<std::string> specimens;
    for (std::size_t place = 0; place < generator.size(); ++place) {
        const auto image = *generator.SpecimenImage(place);
        specimens.push_back((folder / (std::to_string(place) + ".exe")).string());
        std::ofstream(specimens.back(), std::ios::binary)
            .write(reinterpret_cast<const char *>(image.data()), static_cast<std::streamsize>(image.size()));
    }
    std::vector<std::string> packaged;
    for (const fs::path &path : tests::PackagedFiles())
        packaged.push_back(path.string());

    // Before this process has a module of its own.
    MeasureFirstAnswer(specimens.front(), program);
    CompareScan("specimens", specimens, folder, program, kSpecimens);
    CompareScan("packaged programs", packaged, folder, program, kPackaged);
    CompareSha256(packaged, folder, program);
    const scanner::Scanner scanner(std::make_shared<const scanner::Module>());
    for (const auto &[name, files, target] :
         {std::tuple("specimens", &specimens, kSpecimens), std::tuple("packaged programs", &packaged, kPackaged)}) {
        CountReads(scanner, name, *files, target);
        FindCostliestRule(scanner, name, *files, target);
    }
    fs::remove_all(folder);
}
