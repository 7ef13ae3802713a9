// The scanner on folders: one thread compared with two, and the peak memory as the number of files grows.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "base/system.h"
#include "bench/row.h"
#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "tests/support/packaged_files.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kScanRounds = 7;
constexpr std::size_t kFiles = 50000; // that a run scans at least, so that the program's start hardly counts
constexpr double kBoundSpeedup = 1.9;
constexpr double kBoundMemory = 12; // MiB

struct Cost {
    double seconds;
    double megabytes; // peak resident memory
};

// Runs the scanner without showing its output. Exits when it fails.
Cost Scan(std::vector<std::string> arguments) {
    const std::string program = (tavrik::base::ProgramFolder() / "tavrik-scan").string();
    std::vector<char *> argv = {const_cast<char *>(program.c_str())};
    for (std::string &argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    const Clock::time_point start = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    int status = 0;
    rusage usage = {};
    if (child < 0 || wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) > 1) {
        std::fprintf(stderr, "scanner_bench: tavrik-scan failed\n");
        std::exit(2);
    }
    return {std::chrono::duration<double>(Clock::now() - start).count(), static_cast<double>(usage.ru_maxrss) / 1024};
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// One thread and two in alternating runs, on the files repeated until there are enough.
void CompareThreads(const char *title, const std::vector<fs::path> &files, const fs::path &list,
                    const std::vector<std::string> &options) {
    const std::size_t times_over = (kFiles + files.size() - 1) / files.size();
    {
        std::ofstream out(list);
        for (std::size_t time = 0; time < times_over; ++time)
            for (const fs::path &file : files)
                out << file.string() << '\n';
    }
    std::vector<double> one;
    std::vector<double> two;
    std::vector<double> ratios;
    for (int round = 0; round < kScanRounds; ++round) {
        for (const auto &[threads, times] : {std::pair("1", &one), std::pair("2", &two)}) {
            std::vector<std::string> arguments = {"-q", "-j", threads, "--files-from", list.string()};
            arguments.insert(arguments.end(), options.begin(), options.end());
            times->push_back(Scan(arguments).seconds);
        }
        ratios.push_back(one.back() / two.back());
    }
    std::printf("%s: %zu files %zu times over, the program's start and end included\n", title, files.size(),
                times_over);
    for (const auto &[name, times] : {std::pair("one thread", &one), std::pair("two threads", &two)})
        std::printf("  %-12s median %.3f s (%.3f to %.3f), %.0f files a second\n", name, Median(*times),
                    *std::min_element(times->begin(), times->end()), *std::max_element(times->begin(), times->end()),
                    static_cast<double>(times_over * files.size()) / Median(*times));
    std::printf("  ratio        median %.2f (%.2f to %.2f), bound %.1f\n", Median(ratios),
                *std::min_element(ratios.begin(), ratios.end()), *std::max_element(ratios.begin(), ratios.end()),
                kBoundSpeedup);
    tavrik::bench::PrintRow(
        {std::string("two threads, ") + title, Median(ratios), "times", "", 0, kBoundSpeedup, true});
}

} // namespace

int main() {
    const tavrik::rules::RuleSet written = tavrik::generator::WrittenRules();
    const tavrik::generator::Generator generator(written);
    const fs::path root = fs::current_path() / "scanner_bench_files";
    fs::remove_all(root);
    const auto fill = [&](const fs::path &folder, std::size_t count) {
        std::vector<fs::path> files;
        fs::create_directories(folder);
        for (std::size_t i = 0; i < count; ++i) {
            const auto image = *generator.SpecimenImage(i);
            files.push_back(folder / (std::to_string(i) + ".exe"));
            std::ofstream(files.back(), std::ios::binary)
                .write(reinterpret_cast<const char *>(image.data()), static_cast<std::streamsize>(image.size()));
        }
        return files;
    };

    std::printf("%ld processors\n", sysconf(_SC_NPROCESSORS_ONLN));
    const std::vector<fs::path> specimens = fill(root / "all", generator.size());
    CompareThreads("specimens", specimens, root / "list", {});
    CompareThreads("specimens, --json", specimens, root / "list", {"--json"});
    CompareThreads("packaged programs", tavrik::tests::PackagedFiles(), root / "list", {});

    std::vector<double> peaks;
    for (const std::size_t count : {std::size_t{100}, std::size_t{1000}, std::size_t{6000}}) {
        const fs::path folder = root / std::to_string(count);
        fill(folder, count);
        peaks.push_back(Scan({"-r", "-q", "--json", "-j", "2", folder.string()}).megabytes);
        std::printf("peak memory with %zu files, two threads: %.1f MiB\n", count, peaks.back());
    }
    tavrik::bench::PrintRow({"peak memory, 6000 files, two threads", peaks.back(), "MiB", "with 100 files",
                             peaks.front(), kBoundMemory, false});
    fs::remove_all(root);
}
