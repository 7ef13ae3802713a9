// The scan for AutoIt signatures over 64 MiB without one, compared with plain searches for the same eight patterns in
// the same 4096-byte blocks.

#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include "bench/memory_stream.h"
#include "bench/ratio_reporter.h"
#include "bench/row.h"
#include "tavrik2/locators/scans/altered_autoit_scan.h"
#include "tavrik2/locators/scans/autoit_ea06_scan.h"
#include "tavrik2/locators/scans/autoit_script_scan.h"
#include "tavrik2/locators/scans/autoit_signature_scan.h"

namespace {

using tavrik::bench::MemoryStream;

constexpr int32_t kBlock = 4096;
constexpr int32_t kLength = 64 << 20;

using Pattern = std::vector<uint8_t>;

// The patterns that the scan looks for.
const std::vector<Pattern> &Patterns() {
    static const std::vector<Pattern> patterns = {
        {0xA3, 0x48, 0x4B, 0xBE, 0x98, 0x6C, 0x4A},
        {0xA3, 0xA7, 0x97, 0xE0, 0x26, 0xF9, 0x0B, 0x7D, 0xB4, 0x3B, 0x43, 0xDF, 0xC8, 0x82, 0x17, 0x45},
        {0xAE, 0xF0, 0x1A, 0x9F, 0x55, 0xDC, 0x4E, 0x9C, 0xBA, 0xBA, 0x56, 0x7C, 0xF1, 0x8D, 0x08, 0x04},
        {0x10, 0x19, 0xEE, 0x2F, 0xE4, 0xCD, 0x54, 0x56, 0xFB, 0xF9, 0xBD, 0xFD, 0xE6, 0x96, 0xA7, 0x0D},
        {0x58, 0x10, 0x00, 0xEF, 0x39, 0x5B, 0x38, 0xC6, 0x34, 0x1B, 0xD6, 0xA7, 0xE1, 0xA3, 0xC6, 0x42},
        {0xBA, 0x42, 0x54, 0x97, 0x69, 0xD9, 0xED, 0x78, 0xBA, 0xEF, 0x79, 0xEA, 0x04, 0x9A, 0xF7, 0x2E},
        {0x82, 0xA8, 0x1F, 0x96, 0x53, 0xED, 0x2D, 0xCB, 0x3A, 0x03, 0xB6, 0x6D, 0x44, 0x78, 0xF8, 0xB3},
        {0x61, 0xA3, 0x37, 0x0E, 0xBC, 0x86, 0x76, 0x8B, 0x77, 0x71, 0x30, 0x52, 0x29, 0x26, 0xC6, 0x5D},
    };
    return patterns;
}

// Half random bytes, half bytes distributed as in programs (zeros, small values, frequent opcodes).
const std::vector<uint8_t> &Data() {
    static const std::vector<uint8_t> data = [] {
        std::mt19937_64 random(20260401);
        std::vector<uint8_t> bytes(kLength);
        for (int32_t block = 0; block < kLength; block += kBlock) {
            const bool skewed = (block / kBlock) % 2 == 0;
            for (int32_t place = block; place < block + kBlock; place += 8) {
                uint64_t word = random();
                if (skewed)
                    word &= random() & 0x00FF8B1FFF00FF48;
                std::memcpy(&bytes[static_cast<size_t>(place)], &word, sizeof word);
            }
        }
        return bytes;
    }();
    return data;
}

using Scan = int(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream);

void RunScan(benchmark::State &state, Scan *scan) {
    MemoryStream stream;
    stream.bytes = Data();
    uint32_t found = 0;
    int hits = 0;
    for (auto _ : state)
        hits += scan(1, kLength, 0, &found, &stream.base);
    state.SetBytesProcessed(state.iterations() * int64_t{kLength});
    state.counters["hits"] = hits;
    // The last block ends with the file, so every block has been read: a walk that skips some would seem fast.
    if (stream.position != Data().size())
        state.SkipWithError("the scan did not reach the end of the data");
}

void FindAutoItSignature(benchmark::State &state) {
    RunScan(state, tavrik2::FindAutoItSignature);
}
BENCHMARK(FindAutoItSignature)->Unit(benchmark::kMillisecond);

void FindAutoItEA06Header(benchmark::State &state) {
    RunScan(state, tavrik2::FindAutoItEA06Header);
}
BENCHMARK(FindAutoItEA06Header)->Unit(benchmark::kMillisecond);

void FindAutoItScript(benchmark::State &state) {
    RunScan(state, tavrik2::FindAutoItScript);
}
BENCHMARK(FindAutoItScript)->Unit(benchmark::kMillisecond);

void FindAlteredAutoItHeader(benchmark::State &state) {
    RunScan(state, tavrik2::FindAlteredAutoItHeader);
}
BENCHMARK(FindAlteredAutoItHeader)->Unit(benchmark::kMillisecond);

// What the scans cannot do without: clearing each block and copying it out of memory.
void CopyBlocks(benchmark::State &state) {
    std::vector<uint8_t> block(kBlock);
    for (auto _ : state)
        for (int32_t at = 0; at < kLength; at += kBlock) {
            std::memset(block.data(), 0, kBlock);
            benchmark::DoNotOptimize(block.data());
            std::memcpy(block.data(), Data().data() + at, kBlock);
            benchmark::ClobberMemory();
        }
    state.SetBytesProcessed(state.iterations() * int64_t{kLength});
}
BENCHMARK(CopyBlocks)->Unit(benchmark::kMillisecond);

// Runs `search` (block begin, block end, pattern index; returns the number of hits) over every block.
template <typename Search>
void OverBlocks(benchmark::State &state, Search search) {
    const std::vector<uint8_t> &data = Data();
    int64_t hits = 0;
    for (auto _ : state) {
        for (int32_t block = 0; block < kLength; block += kBlock) {
            for (size_t pattern = 0; pattern < Patterns().size(); ++pattern)
                hits += search(data.data() + block, data.data() + block + kBlock, pattern);
        }
        benchmark::DoNotOptimize(hits);
    }
    state.SetBytesProcessed(state.iterations() * int64_t{kLength});
    state.counters["hits"] = static_cast<double>(hits);
}

void Memmem(benchmark::State &state) {
    OverBlocks(state, [](const uint8_t *begin, const uint8_t *end, size_t index) {
        const Pattern &pattern = Patterns()[index];
        return memmem(begin, static_cast<size_t>(end - begin), pattern.data(), pattern.size()) != nullptr;
    });
}
BENCHMARK(Memmem)->Unit(benchmark::kMillisecond);

void StdHorspool(benchmark::State &state) {
    std::vector<std::boyer_moore_horspool_searcher<Pattern::const_iterator>> searchers;
    for (const Pattern &pattern : Patterns())
        searchers.emplace_back(pattern.begin(), pattern.end());
    OverBlocks(state, [&](const uint8_t *begin, const uint8_t *end, size_t index) {
        return searchers[index](begin, end).first != end;
    });
}
BENCHMARK(StdHorspool)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv) {
    tavrik::bench::RatioReporter reporter(tavrik::bench::RatioReporter::Times::Processor);
    if (!tavrik::bench::Run(argc, argv, reporter))
        return 2;
    constexpr double kTarget = 8; // GiB/s
    const auto rate = [&](const char *name) {
        const double time = reporter.Nanoseconds(name);
        return time > 0 ? static_cast<double>(kLength) / 1.073741824 / time : 0;
    };
    tavrik::bench::PrintRow({"FindAutoItSignature, nothing to find", rate("FindAutoItSignature"), "GiB/s",
                             "eight memmem", rate("Memmem"), kTarget});
    for (const char *name : {"FindAutoItScript", "FindAutoItEA06Header", "FindAlteredAutoItHeader"})
        tavrik::bench::PrintRow({std::string(name) + ", nothing to find", rate(name), "GiB/s", "copying the blocks",
                                 rate("CopyBlocks"), kTarget});
    reporter.PrintRatio("FindAutoItSignature", "Memmem");
    reporter.PrintRatio("FindAutoItSignature", "StdHorspool");
}
