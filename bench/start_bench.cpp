// The module's start: loading it, and its first initialisation, which prepares the whole database, compared with one
// pass over the same bytes. Every round loads the module again, since it prepares its data once.

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "base/system.h"
#include "bench/ratio_reporter.h"
#include "bench/row.h"
#include "tavrik2/tavrik2.h"

namespace {

using tavrik::base::DynamicLibrary;
using Clock = std::chrono::steady_clock;

std::filesystem::path ModulePath() {
    return tavrik::base::ProgramFolder() / "tavrik2.hbx";
}

template <typename Function>
Function *Export(const DynamicLibrary &module, const char *name) {
    return reinterpret_cast<Function *>(module.Symbol(name));
}

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

uint32_t Service114() {
    return 0;
}

uint32_t CreateLock(void **slot, uint8_t, uint32_t) {
    static int lock;
    *slot = &lock;
    return 1;
}

void DestroyLock(void *) {}

void *GetInterfaceOf(uint32_t, uint32_t) {
    return nullptr;
}

const HostConfig &Config() {
    static HostServices services = {};
    static HostConfig config = [] {
        services.Service114 = Service114;
        services.CreateLock = CreateLock;
        services.DestroyLock = DestroyLock;
        HostConfig made = {};
        const std::string folder = tavrik::base::ProgramFolder().string();
        std::memcpy(made.decoder_directory, folder.c_str(), folder.size() + 1);
        made.services = &services;
        return made;
    }();
    return config;
}

void Initialise(benchmark::State &state, bool with_load) {
    for (auto _ : state) {
        const Clock::time_point load = Clock::now();
        const DynamicLibrary module(ModulePath());
        const auto init = Export<decltype(YNLibInit)>(module, "YNLibInit");
        const Clock::time_point start = with_load ? load : Clock::now();
        if (init(nullptr, &Config(), GetInterfaceOf, nullptr) != 1) {
            state.SkipWithError("the module does not initialise");
            break;
        }
        state.SetIterationTime(SecondsSince(start));
        Export<decltype(YNLibDeinit)>(module, "YNLibDeinit")();
    }
}

void FirstInit(benchmark::State &state) {
    Initialise(state, false);
}
BENCHMARK(FirstInit)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);

void LoadAndFirstInit(benchmark::State &state) {
    Initialise(state, true);
}
BENCHMARK(LoadAndFirstInit)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);

// Writes every byte that the preparation writes, once, in the same order.
void TouchSameBytes(benchmark::State &state) {
    for (auto _ : state) {
        const DynamicLibrary module(ModulePath());
        HeuristicRule *const *table;
        uint32_t count;
        Export<decltype(HeurGetDetectionInfo)>(module, "HeurGetDetectionInfo")(&table, &count);
        const Clock::time_point start = Clock::now();
        for (uint32_t rule = 0; rule < count; ++rule) {
            for (uint32_t index = 0; index < table[rule]->strings.count; ++index) {
                const StringFeature &string = table[rule]->strings.elements[index];
                for (uint32_t byte = 0; byte < string.length; ++byte) {
                    volatile uint8_t *const place = string.bytes + byte;
                    *place = *place;
                }
            }
            *static_cast<volatile uint8_t *>(&table[rule]->feature_flags) = 0;
        }
        state.SetIterationTime(SecondsSince(start));
    }
}
BENCHMARK(TouchSameBytes)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(200);

} // namespace

int main(int argc, char **argv) {
    tavrik::bench::RatioReporter reporter;
    if (!tavrik::bench::Run(argc, argv, reporter))
        return 2;
    const auto milliseconds = [&](const char *name) { return reporter.Nanoseconds(name) / 1e6; };
    constexpr double kTargetInit = 3; // ms
    constexpr double kTargetLoad = 10;
    tavrik::bench::PrintRow({"the module's first initialisation", milliseconds("FirstInit"), "ms",
                             "one pass of writes over the same bytes", milliseconds("TouchSameBytes"), kTargetInit,
                             false});
    tavrik::bench::PrintRow(
        {"loading and initialising the module", milliseconds("LoadAndFirstInit"), "ms", "", 0, kTargetLoad, false});
    reporter.PrintRatio("FirstInit", "TouchSameBytes");
}
