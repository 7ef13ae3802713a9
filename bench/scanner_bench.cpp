// The scanner on folders: one thread beside two, and the peak of its memory as the number of files grows.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "host/system.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kRounds = 9;
constexpr double kBoundSpeedup = 1.8;

struct Cost {
    double seconds;
    double megabytes; // peak resident memory
};

// Runs the scanner on a folder without showing its output. Exits when it fails.
Cost Scan(const fs::path &folder, const char *threads) {
    const std::string program = (tavrik::host::ProgramFolder() / "tavrik-scan").string();
    const Clock::time_point start = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        execl(program.c_str(), "tavrik-scan", "-r", "-q", "--json", "-j", threads, folder.c_str(), nullptr);
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

} // namespace

int main() {
    const tavrik::rules::RuleSet written = tavrik::rulegen::WrittenRules();
    const tavrik::rulegen::Generator generator(written);
    const fs::path root = fs::current_path() / "scanner_bench_files";
    fs::remove_all(root);
    const auto fill = [&](const fs::path &folder, std::size_t count) {
        fs::create_directories(folder);
        for (std::size_t i = 0; i < count; ++i) {
            const auto image = *generator.SpecimenImage(i);
            std::ofstream(folder / (std::to_string(i) + ".exe"), std::ios::binary)
                .write(reinterpret_cast<const char *>(image.data()), static_cast<std::streamsize>(image.size()));
        }
    };
    fill(root / "all", generator.size());
    std::vector<double> one;
    std::vector<double> two;
    std::vector<double> ratios;
    for (int round = 0; round < kRounds; ++round) {
        one.push_back(Scan(root / "all", "1").seconds);
        two.push_back(Scan(root / "all", "2").seconds);
        ratios.push_back(one.back() / two.back());
    }
    std::printf("%zu specimens, start and end of the program included, %ld processors\n", generator.size(),
                sysconf(_SC_NPROCESSORS_ONLN));
    for (const auto &[name, times] : {std::pair("one thread", &one), std::pair("two threads", &two)})
        std::printf("  %-12s median %.3f s (%.3f to %.3f), %.0f files a second\n", name, Median(*times),
                    *std::min_element(times->begin(), times->end()), *std::max_element(times->begin(), times->end()),
                    static_cast<double>(generator.size()) / Median(*times));
    std::printf("ratio: two threads run at %.2f times the speed of one (bound: %.1f)\n", Median(ratios), kBoundSpeedup);

    for (const std::size_t count : {std::size_t{100}, std::size_t{1000}, std::size_t{6000}}) {
        const fs::path folder = root / std::to_string(count);
        fill(folder, count);
        std::printf("peak memory with %zu files, two threads: %.1f MiB\n", count, Scan(folder, "2").megabytes);
    }
    fs::remove_all(root);
}
