// The store of features at the size of a large corpus: bytes a file, all rules and one rule over ten million files, and
// adding files compared with scanning them.
//
// The stored files are the packaged programs and the specimens, over and over. Each copy is changed as a new build of a
// program differs from the one before: time stamp, checksum, entry point, sizes of code, data and image, the first
// section's sizes, the overlay, digest, path and time are drawn anew, and three of the names that it imports, exports
// or has in resources are replaced by names of its own. Specimens are one in fifty copies, so that most rules find
// something in the corpus, and what is drawn anew makes most of these copies differ from what their rules ask for.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "base/ordered_pool.h"
#include "base/system.h"
#include "bench/row.h"
#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "rules/numbers.h"
#include "rules/record/record_builder.h"
#include "store/hunt.h"
#include "store/store.h"
#include "tests/support/packaged_files.h"

namespace {

using namespace tavrik;
namespace fs = std::filesystem;
namespace field = rules::header_field;
using Clock = std::chrono::steady_clock;

constexpr unsigned kThreads = 2;
constexpr std::size_t kSpecimenOneIn = 50;
constexpr std::size_t kUsualFiles = 524'280;
constexpr std::size_t kSegmentFiles = store::kMostRows;
constexpr double kFilesOfBounds = 10'000'000;
constexpr double kBoundAll = 10;     // seconds, for so many files; for fewer in proportion
constexpr double kBoundOne = 1;      // likewise
constexpr double kBoundHeader = 100; // bytes a file
constexpr double kBoundBytes = 400;
constexpr double kBoundAdd = 0.85; // of the scanner's rate

double Since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class Copies {
public:
    Copies() {
        for (const fs::path &path : tests::PackagedFiles())
            programs_.push_back(store::ReadFeatures(path));
        const rules::RuleSet written = generator::WrittenRules();
        const generator::Generator generator(written);
        for (std::size_t place = 0; place < generator.size(); ++place) {
            const auto image = *generator.SpecimenImage(place);
            base::MemorySource source(image);
            specimens_.push_back(store::ReadFeatures(source));
        }
    }

    std::size_t programs() const { return programs_.size(); }
    std::size_t specimens() const { return specimens_.size(); }

    // The same copy for the same number.
    store::StoredFile Make(uint64_t number) const {
        std::mt19937_64 random(number);
        const bool is_specimen = number % kSpecimenOneIn == 0;
        const std::vector<store::StoredFile> &from = is_specimen ? specimens_ : programs_;
        store::StoredFile file = from[number / (is_specimen ? kSpecimenOneIn : 1) % from.size()];
        for (const uint16_t changed : {field::kTimeDateStamp, field::kCheckSum, field::kEntryBytes0, field::kRichKey})
            if (file.has[changed] && file.header[changed] != 0)
                file.header[changed] = static_cast<uint32_t>(random());
        const auto grow = static_cast<uint32_t>(random() % 512 * 512);
        for (const uint16_t changed : {field::kSizeOfCode, field::kSizeOfInitializedData, field::kSizeOfImage,
                                       field::kFileSize, field::kOverlayOffset})
            file.header[changed] += grow;
        file.header[field::kAddressOfEntryPoint] += static_cast<uint32_t>(random() % 4096 * 16);
        file.stamp = {file.header[field::kFileSize],
                      static_cast<int64_t>(1'700'000'000'000'000'000 + random() % (uint64_t{1} << 55))};
        if (!file.sections.empty()) {
            file.sections[0].VirtualSize += static_cast<uint32_t>(random() % 4096);
            file.sections[0].SizeOfRawData += grow;
        }
        for (int name = 0; name < 3 && !file.tokens.tokens.empty(); ++name)
            file.tokens.tokens[random() % file.tokens.tokens.size()] = static_cast<store::Token>(random());
        std::ranges::sort(file.tokens.tokens);
        file.tokens.tokens.erase(std::unique(file.tokens.tokens.begin(), file.tokens.tokens.end()),
                                 file.tokens.tokens.end());
        for (uint8_t &byte : file.digest)
            byte = static_cast<uint8_t>(random());
        file.path = fmt::format("/corpus/{:04}/{:016x}.exe", number / 1000, random());
        return file;
    }

private:
    std::vector<store::StoredFile> programs_;
    std::vector<store::StoredFile> specimens_;
};

void Fill(const fs::path &path, const Copies &copies, std::size_t files) {
    struct Encoded {
        std::size_t rows;
        std::vector<store::Piece> pieces;
    };
    store::Store store(path, store::Store::Access::Create);
    base::OrderedPool<std::size_t, Encoded> pool(
        kThreads,
        [&](std::size_t &first, unsigned) {
            std::vector<store::StoredFile> segment;
            for (std::size_t number = first; number < std::min(files, first + kSegmentFiles); ++number)
                segment.push_back(copies.Make(number));
            return Encoded{segment.size(), store::EncodeSegment(segment)};
        },
        [&](Encoded &encoded) {
            store.Begin();
            store.Append(encoded.pieces, encoded.rows);
            store.Commit();
        });
    for (std::size_t first = 0; first < files; first += kSegmentFiles)
        pool.Submit(first);
    pool.Finish();
}

// Searches all segments in two threads; returns the number of hits, and of those that are no matches.
std::pair<std::size_t, std::size_t> Search(const fs::path &path, std::span<HeuristicRule *const> rules) {
    const store::Hunt hunt(rules);
    std::vector<std::unique_ptr<store::Store>> stores(kThreads);
    for (auto &store : stores)
        store = std::make_unique<store::Store>(path, store::Store::Access::Read);
    std::size_t hits = 0;
    std::size_t looks = 0;
    base::OrderedPool<store::SegmentEntry, std::vector<store::Hit>> pool(
        kThreads,
        [&](store::SegmentEntry &entry, unsigned thread) {
            return hunt.Search(*stores[thread]->Open(entry), entry.is_gone);
        },
        [&](std::vector<store::Hit> &found) {
            hits += found.size();
            looks += static_cast<std::size_t>(std::ranges::count(found, false, &store::Hit::is_match));
        });
    store::Store list(path, store::Store::Access::Read);
    for (store::SegmentEntry &entry : list.Segments())
        pool.Submit(std::move(entry));
    pool.Finish();
    return {hits, looks};
}

void PrintSizes(const fs::path &path, std::size_t files) {
    store::Store store(path, store::Store::Access::Read);
    double header = 0;
    for (const store::PieceSize &size : store.PieceSizes())
        if (size.number < store::ValuesPiece(store::kFirstSectionColumn))
            header += static_cast<double>(size.bytes);
    const double count = static_cast<double>(files);
    bench::PrintRow({"store: header values, a file", header / count, "bytes", "", 0, kBoundHeader, false});
    bench::PrintRow({"store: a file", static_cast<double>(store.size()) / count, "bytes", "", 0, kBoundBytes, false});
}

void TimeRules(const fs::path &path, std::size_t files) {
    const double part = static_cast<double>(files) / kFilesOfBounds;
    const rules::RuleSet written = generator::WrittenRules();
    const rules::RuleSet all = generator::Generator(written).Rules();
    const rules::record::RecordSet records(all);
    const std::span<HeuristicRule *const> rules = records.rules();
    Search(path, rules.first(1)); // into the page cache
    Clock::time_point start = Clock::now();
    const auto [hits, looks] = Search(path, rules);
    const double all_rules = Since(start);
    std::printf("%zu hits, %zu of them files to look at\n", hits, looks);
    bench::PrintRow({fmt::format("store: all {} rules, {} files", rules.size(), files), all_rules, "s", "", 0,
                     kBoundAll * part, false});
    std::vector<double> times;
    for (std::size_t place = 0; place < rules.size(); place += rules.size() / 40) {
        start = Clock::now();
        Search(path, rules.subspan(place, 1));
        times.push_back(Since(start));
    }
    std::ranges::sort(times);
    bench::PrintRow({fmt::format("store: slowest of {} single rules, {} files", times.size(), files), times.back(), "s",
                     "median", times[times.size() / 2], kBoundOne * part, false});
}

double TimeOf(const std::string &command) {
    const Clock::time_point start = Clock::now();
    const int status = std::system(command.c_str());
    if (status == -1)
        std::exit(2);
    return Since(start);
}

// The same files by both programs, with options that make them read the same bytes.
void CompareWithScanner(const fs::path &folder, const char *what, const char *scan_option, const char *add_option) {
    const std::string list = (folder / "list").string();
    const std::string store = (folder / "add.store").string();
    const std::string programs = base::ProgramFolder().string();
    {
        std::ofstream lines(list);
        for (const fs::path &path : tests::PackagedFiles())
            lines << path.string() << '\n';
    }
    std::vector<double> ratios;
    for (int round = 0; round < 7; ++round) {
        fs::remove(store);
        const double scan = TimeOf(fmt::format("'{}/tavrik-scan' -q --json -j 2 {} --files-from '{}' >/dev/null",
                                               programs, scan_option, list));
        const double add = TimeOf(fmt::format("'{}/tavrik-corpus' add '{}' -q -j 2 {} --files-from '{}' >/dev/null",
                                              programs, store, add_option, list));
        ratios.push_back(scan / add);
    }
    std::ranges::sort(ratios);
    bench::PrintRow({fmt::format("rate of add next to tavrik-scan, {}", what), ratios[ratios.size() / 2], "times", "",
                     0, kBoundAdd, true});
}

} // namespace

// The number of files may be given; the store is removed at the end.
int main(int argc, char **argv) {
    const std::size_t files =
        argc > 1 && std::atoll(argv[1]) > 0 ? static_cast<std::size_t>(std::atoll(argv[1])) : kUsualFiles;
    const fs::path folder = fs::current_path() / "store_bench_files";
    fs::remove_all(folder);
    fs::create_directories(folder);
    CompareWithScanner(folder, "with digests", "--sha256", "");
    CompareWithScanner(folder, "without digests", "", "--no-digests");
    const Copies copies;
    std::printf("%zu stored files, made of %zu packaged programs and %zu specimens\n", files, copies.programs(),
                copies.specimens());
    const Clock::time_point start = Clock::now();
    Fill(folder / "large.store", copies, files);
    std::printf("encoding and writing: %.1f us a file\n", 1e6 * Since(start) / static_cast<double>(files));
    PrintSizes(folder / "large.store", files);
    TimeRules(folder / "large.store", files);
    fs::remove_all(folder);
}
