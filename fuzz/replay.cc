// A fuzz target without a fuzzer, for compilers that have none: runs it over its corpus and over files that are altered
// at random, the same ones in each run. A fault ends the program, and the last line names the file or the alteration.
//
// usage: tavrik_corpus_replay TARGET CORPUS ALTERED
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/byte_writer.h"

// TARGET(name) for each target of this build, in a list that the build writes; it also names each target's function.
#define TARGET(name) extern "C" int name##_target(const uint8_t *data, size_t size);
#include "targets.inc"
#undef TARGET

namespace {

using tavrik::base::Bytes;
using Target = int (*)(const uint8_t *data, size_t size);

constexpr struct {
    std::string_view name;
    Target run;
} kTargets[] = {
#define TARGET(name) {#name, name##_target},
#include "targets.inc"
#undef TARGET
};

constexpr std::size_t kLongest = 32768; // bytes of an altered input, as of those that ./run fuzz makes

/** Makes new inputs of those of a corpus. */
class Alterations {
public:
    explicit Alterations(const std::vector<Bytes> &corpus) : corpus_(corpus) {}

    Bytes Next() {
        Bytes bytes = corpus_[Below(corpus_.size())];
        for (std::size_t changes = 1 + Below(8); changes > 0; --changes)
            Change(bytes);
        bytes.resize(std::min(bytes.size(), kLongest));
        return bytes;
    }

private:
    std::size_t Below(std::size_t end) { return random_() % end; }

    void Change(Bytes &bytes) {
        constexpr uint8_t kBytes[] = {0, 1, 0x7F, 0x80, 0xFF};
        if (bytes.empty())
            bytes.push_back(0);
        const std::size_t place = Below(bytes.size());
        const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(place);
        const std::size_t length = 1 + Below(std::min<std::size_t>(bytes.size() - place, 64));
        const auto end = at + static_cast<std::ptrdiff_t>(length);
        switch (Below(6)) {
        case 0:
            *at = static_cast<uint8_t>(*at ^ 1u << Below(8));
            break;
        case 1:
            *at = kBytes[Below(std::size(kBytes))];
            break;
        case 2:
            std::fill(at, end, kBytes[Below(std::size(kBytes))]);
            break;
        case 3:
            bytes.erase(at, end);
            break;
        case 4: { // twice
            const Bytes part(at, end);
            bytes.insert(at, part.begin(), part.end());
            break;
        }
        default: { // goes on as another one does
            const Bytes &other = corpus_[Below(corpus_.size())];
            bytes.resize(place);
            bytes.insert(bytes.end(), other.begin() + static_cast<std::ptrdiff_t>(std::min(place, other.size())),
                         other.end());
            break;
        }
        }
    }

    const std::vector<Bytes> &corpus_;
    std::minstd_rand random_;
};

Bytes ReadAll(const std::filesystem::path &file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

int Replay(Target run, const std::filesystem::path &folder, unsigned altered) {
    std::vector<std::filesystem::path> files{std::filesystem::directory_iterator(folder), {}};
    std::sort(files.begin(), files.end());
    std::vector<Bytes> corpus;
    for (const std::filesystem::path &file : files) {
        std::fprintf(stderr, "%s\n", file.string().c_str());
        const Bytes &bytes = corpus.emplace_back(ReadAll(file));
        run(bytes.data(), bytes.size());
    }
    if (corpus.empty())
        return 2;
    Alterations alterations(corpus);
    for (unsigned number = 1; number <= altered; ++number) {
        std::fprintf(stderr, "altered file %u\n", number);
        const Bytes bytes = alterations.Next();
        run(bytes.data(), bytes.size());
    }
    return 0;
}

} // namespace

int main(int count, char **arguments) {
    unsigned altered = 0;
    if (count != 4)
        return 2;
    const std::string_view number = arguments[3];
    if (std::from_chars(number.data(), number.data() + number.size(), altered).ec != std::errc())
        return 2;
    for (const auto &[name, run] : kTargets)
        if (name == arguments[1])
            return Replay(run, arguments[2], altered);
    return 2;
}
