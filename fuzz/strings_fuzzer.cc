// Any strings, windows and regions in any bytes: the search for all of them in one pass, the one for a single string
// and the comparison at every position must say the same, in memory and read piece by piece.

#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <vector>

#include "evaluation/string_pass.h"
#include "evaluation/string_search.h"
#include "fuzz/streamed_source.h"
#include "rules/model.h"

namespace {

using namespace tavrik;

constexpr std::size_t kMostStrings = 24;

struct Wanted {
    StringFeature string = {};
    std::vector<uint8_t> bytes;
    base::Region region;
};

// Bytes out of the content, so that they are there, or of the input's own.
Wanted Take(FuzzedDataProvider &input, const std::vector<uint8_t> &content) {
    Wanted wanted;
    const auto longest = static_cast<std::size_t>(rules::kMaxStringLength);
    if (input.ConsumeBool() && !content.empty()) {
        const std::size_t at = input.ConsumeIntegralInRange<std::size_t>(0, content.size() - 1);
        const std::size_t length = input.ConsumeIntegralInRange<std::size_t>(1, std::min(longest, content.size() - at));
        wanted.bytes.assign(content.begin() + static_cast<std::ptrdiff_t>(at),
                            content.begin() + static_cast<std::ptrdiff_t>(at + length));
    } else {
        wanted.bytes = input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange<std::size_t>(1, longest));
        if (wanted.bytes.empty())
            wanted.bytes.push_back(0);
    }
    StringFeature &string = wanted.string;
    string.length = static_cast<uint8_t>(wanted.bytes.size());
    for (auto count = input.ConsumeIntegralInRange<std::size_t>(0, 4); count > 0; --count) {
        const std::size_t place = input.ConsumeIntegralInRange<std::size_t>(0, wanted.bytes.size() - 1);
        string.mask[place / 8] = static_cast<uint8_t>(string.mask[place / 8] | 1u << place % 8);
    }
    string.param_a = input.ConsumeIntegralInRange<uint8_t>(0, static_cast<uint8_t>(string.length - 1));
    string.param_b = input.ConsumeIntegral<uint16_t>();
    string.param_c = input.ConsumeBool() ? input.ConsumeIntegral<uint16_t>() : uint16_t{0};
    string.param_e = input.ConsumeIntegralInRange<uint8_t>(0, 3);
    string.param_f = input.ConsumeBool() ? input.ConsumeIntegral<uint16_t>() : uint16_t{0};
    string.string_kind = input.ConsumeIntegralInRange<uint8_t>(1, static_cast<uint8_t>(rules::kMaxStringKind));
    wanted.region.offset = input.ConsumeIntegralInRange<uint64_t>(0, content.size());
    wanted.region.length = input.ConsumeIntegralInRange<uint64_t>(0, content.size() - wanted.region.offset);
    return wanted;
}

void Require(bool holds) {
    if (!holds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const auto content = input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange<std::size_t>(0, size));
    std::vector<Wanted> all;
    while (input.remaining_bytes() > 0 && all.size() < kMostStrings)
        all.push_back(Take(input, content));
    std::vector<const StringFeature *> strings;
    for (std::size_t i = 0; i < all.size(); ++i) {
        all[i].string.bytes = all[i].bytes.data();
        all[i].string.param_d = static_cast<uint8_t>(i); // names the region
        strings.push_back(&all[i].string);
    }
    const evaluation::StringPass pass(strings);
    base::MemorySource memory(content);
    fuzz::StreamedSource streamed(content);
    base::FileBytes in_memory(memory);
    base::FileBytes in_pieces(streamed);
    const auto region = [&](const StringFeature &string) { return all[string.param_d].region; };
    const std::vector<bool> passed = pass.Search(in_memory, region);
    Require(pass.Search(in_pieces, region) == passed);
    for (std::size_t i = 0; i < all.size(); ++i) {
        const bool plainly = evaluation::IsStringPresentPlainly(in_memory, all[i].region, all[i].string);
        Require(passed[i] == plainly);
        Require(evaluation::IsStringPresent(in_memory, all[i].region, all[i].string) == plainly);
        Require(evaluation::IsStringPresent(in_pieces, all[i].region, all[i].string) == plainly);
    }
    return 0;
}
