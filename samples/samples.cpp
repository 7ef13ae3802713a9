#include "samples/samples.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include "pe/format.h"
#include "samples/recipes.h"

namespace tavrik::samples {
namespace {

using namespace pe::optional_header;

// ---- Near misses ---------------------------------------------------------------------------------------------------

// A sample with one header value just outside its entry's gate.
struct NearMiss {
    uint32_t entry;
    const char *name;
    const char *about;
    uint32_t byte; // after the PE signature's offset
    uint8_t value; // that is there instead
};

constexpr uint32_t OptionalHeaderByte(uint32_t field, uint32_t byte = 0) {
    return pe::kOptionalHeaderOffset + field + byte;
}

constexpr NearMiss kNearMisses[] = {
    {7, "nullsoft", "as entry 7's installer, but for the console", OptionalHeaderByte(kSubsystem), 3},
    {32, "autoit", "as entry 32's script wrapper, but with an entry point below 0x16000",
     OptionalHeaderByte(kAddressOfEntryPoint, 2), 0},
    {38, "cabinet", "as entry 38's self-extractor, but of image version 14", OptionalHeaderByte(kMajorImageVersion),
     14},
    {39, "rar", "as entry 39's self-extractor, but with an entry point below 0xB000",
     OptionalHeaderByte(kAddressOfEntryPoint, 1), 0xAF},
};

// ---- The set -------------------------------------------------------------------------------------------------------

Sample MakeEntrySample(const Recipe &recipe) {
    Made made = recipe.make();
    return {fmt::format("entry{:02}-{}.exe", recipe.entry, recipe.name), recipe.about, recipe.entry, made.finding,
            std::move(made.file.bytes)};
}

Sample MakeNearMiss(const NearMiss &miss) {
    const std::span<const Recipe> recipes = Recipes();
    const auto recipe =
        std::find_if(recipes.begin(), recipes.end(), [&](const Recipe &one) { return one.entry == miss.entry; });
    Made made = recipe->make();
    const uint32_t signature = made.file.bytes[pe::kLfanewOffset]; // the usual DOS stub ends below byte 256
    made.file.bytes[signature + miss.byte] = miss.value;
    return {fmt::format("near-miss-{}.exe", miss.name), miss.about, miss.entry, std::nullopt,
            std::move(made.file.bytes)};
}

} // namespace

std::size_t SampleCount() {
    return Recipes().size() + std::size(kNearMisses) + CleanPrograms().size();
}

Sample MakeSample(std::size_t index) {
    if (index < Recipes().size())
        return MakeEntrySample(Recipes()[index]);
    index -= Recipes().size();
    if (index < std::size(kNearMisses))
        return MakeNearMiss(kNearMisses[index]);
    const CleanProgram &clean = CleanPrograms()[index - std::size(kNearMisses)];
    return {clean.file_name, clean.about, std::nullopt, std::nullopt, clean.make().Build().bytes};
}

} // namespace tavrik::samples
