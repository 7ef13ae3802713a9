// The cost of a file that no locator recognises: all gates, compared with reading the file's first page.

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

#include "bench/memory_stream.h"
#include "bench/ratio_reporter.h"
#include "bench/row.h"
#include "tavrik2/tavrik2.h"

namespace {

using tavrik::bench::MemoryStream;

// The headers of a typical current program.
const FileHeader kFileHeader = {.Machine = 0x14C,
                                .NumberOfSections = 5,
                                .TimeDateStamp = 0x5F000000,
                                .PointerToSymbolTable = 0,
                                .NumberOfSymbols = 0,
                                .SizeOfOptionalHeader = 224,
                                .Characteristics = 0x102};

OptionalHeader MakeOptionalHeader() {
    OptionalHeader header = {};
    header.Magic = 0x10B;
    header.MajorLinkerVersion = 14;
    header.MinorLinkerVersion = 29;
    header.SizeOfCode = 0x5A000;
    header.SizeOfInitializedData = 0x30000;
    header.AddressOfEntryPoint = 0x2F1C0;
    header.BaseOfCode = 0x1000;
    header.ImageBase = 0x400000;
    header.BaseOfData = 0x5B000;
    header.SectionAlignment = 0x1000;
    header.FileAlignment = 0x200;
    header.MajorOperatingSystemVersion = 6;
    header.MajorSubsystemVersion = 6;
    header.SizeOfImage = 0x90000;
    header.SizeOfHeaders = 0x400;
    header.Subsystem = 2;
    header.DllCharacteristics = 0x8140;
    header.NumberOfRvaAndSizes = 16;
    return header;
}

SectionHeader MakeSection(const char *name, uint32_t address, uint32_t size, uint32_t characteristics) {
    SectionHeader section = {};
    std::memcpy(section.Name, name, std::strlen(name));
    section.VirtualSize = size;
    section.VirtualAddress = address;
    section.SizeOfRawData = size;
    section.PointerToRawData = address - 0xC00;
    section.Characteristics = characteristics;
    return section;
}

void SweepAllGates(benchmark::State &state) {
    const LocatorTableEntry *table;
    uint32_t count;
    HeurGetLocatorTable(&table, &count);
    const OptionalHeader opt_header = MakeOptionalHeader();
    const SectionHeader first = MakeSection(".text", 0x1000, 0x5A000, 0x60000020);
    const SectionHeader last = MakeSection(".reloc", 0x88000, 0x4000, 0x42000040);
    const uint32_t data_dirs[DATA_DIRECTORY_WORDS] = {0, 0, 0x70000, 0xC8, 0x80000, 0x7000};
    const uint8_t entry_code[ENTRY_CODE_BYTES] = {0xE8, 0x10, 0x05, 0, 0, 0xE9};
    MemoryStream stream;
    int found = 0;
    for (auto _ : state) {
        for (uint32_t entry = 0; entry < count; ++entry) {
            LocatorResult result;
            found += table[entry].locator(&stream.base, 1, 0x98000, data_dirs, &kFileHeader, &opt_header, &first, &last,
                                          entry_code, &result);
        }
        benchmark::DoNotOptimize(found);
    }
    if (found != 0 || stream.calls != 0)
        state.SkipWithError("the sweep touched the stream or found something");
}
BENCHMARK(SweepAllGates);

void ReadFirstPage(benchmark::State &state) {
    char path[] = "gates_bench_XXXXXX";
    const int file = mkstemp(path);
    if (file < 0) {
        state.SkipWithError("cannot make a file in the current folder");
        return;
    }
    unlink(path);
    std::vector<uint8_t> page(4096, 0x5A);
    if (write(file, page.data(), page.size()) != static_cast<ssize_t>(page.size()))
        state.SkipWithError("cannot write the file");
    for (auto _ : state)
        benchmark::DoNotOptimize(pread(file, page.data(), page.size(), 0));
    close(file);
}
BENCHMARK(ReadFirstPage);

} // namespace

int main(int argc, char **argv) {
    tavrik::bench::RatioReporter reporter(tavrik::bench::RatioReporter::Times::Processor);
    if (!tavrik::bench::Run(argc, argv, reporter))
        return 2;
    const double sweep = reporter.Nanoseconds("SweepAllGates");
    constexpr double kTarget = 1000; // ns
    if (sweep > 0)
        tavrik::bench::PrintRow({"all 50 gates on a file that matches none", sweep, "ns", "reading its first page",
                                 reporter.Nanoseconds("ReadFirstPage"), kTarget, false});
    reporter.PrintRatio("SweepAllGates", "ReadFirstPage");
}
