#include "database/generator/written.h"

#include <algorithm>
#include <span>
#include <stdexcept>

#include "database/generator/random.h"

namespace tavrik::generator {
namespace {

constexpr uint64_t kSeed = 0x68616E64;
constexpr uint32_t kFirstFamily = 0x10000; // away from those of generated rules

constexpr uint16_t kIcons[] = {3, 3, 14};
constexpr uint16_t kPayload[] = {10};
constexpr uint16_t kDialogs[] = {5, 2, 1};
constexpr StringKey kVersionTexts[] = {{16, 2}, {16, 5}, {16, 8}};
constexpr StringKey kManifestTexts[] = {{24, 30}, {24, 34}, {16, 3}};
constexpr StringKey kTableTexts[] = {{6, 102}, {6, 103}};
constexpr uint32_t kTypes[] = {rules::kAnyResource, 101};

/** What determines a specimen besides its archetype. */
struct WrittenSpecimen {
    uint32_t rule_id;
    std::string_view category;
    uint32_t target;
    Toolchain toolchain;
    uint32_t traits = 0;
    uint32_t modules = 0; // import_modules at least
    uint32_t functions = 0;
    uint32_t exports = 0;
    uint32_t objects = 0; // Visual Basic objects with methods at least
    std::span<const uint16_t> resources = {};
    std::span<const StringKey> texts = {};
    std::span<const uint32_t> types = {};
};

constexpr WrittenSpecimen kWritten[] = {
    {.rule_id = 12, .category = "Worm", .target = 1, .toolchain = Toolchain::Msvc6, .modules = 3, .functions = 3},
    {.rule_id = 58, .category = "Worm", .target = 1, .toolchain = Toolchain::Delphi, .resources = kPayload},
    {.rule_id = 147,
     .category = "TrojanPWS",
     .target = 0,
     .toolchain = Toolchain::Msvc6,
     .modules = 2,
     .functions = 3,
     .exports = 2},
    {.rule_id = 173,
     .category = "Worm",
     .target = 1,
     .toolchain = Toolchain::Packer,
     .traits = 32,
     .modules = 2,
     .resources = kIcons},
    {.rule_id = 175,
     .category = "TrojanDownloader",
     .target = 1,
     .toolchain = Toolchain::VisualBasic,
     .traits = 64,
     .objects = 2},
    {.rule_id = 203, .category = "Worm", .target = 1, .toolchain = Toolchain::MinGw, .functions = 2},
    {.rule_id = 310, .category = "TrojanPWS", .target = 1, .toolchain = Toolchain::Msvc6, .texts = kVersionTexts},
    {.rule_id = 377, .category = "TrojanPWS", .target = 1, .toolchain = Toolchain::Packer, .traits = 36},
    {.rule_id = 501,
     .category = "TrojanDownloader",
     .target = 1,
     .toolchain = Toolchain::Msvc6,
     .traits = 16,
     .functions = 2},
    {.rule_id = 640,
     .category = "TrojanDownloader",
     .target = 1,
     .toolchain = Toolchain::Msvc9,
     .texts = kManifestTexts},
    {.rule_id = 905,
     .category = "TrojanDropper",
     .target = 1,
     .toolchain = Toolchain::Msvc6,
     .traits = 1,
     .resources = kPayload,
     .types = kTypes},
    {.rule_id = 1012, .category = "TrojanDropper", .target = 1, .toolchain = Toolchain::Protector, .traits = 10},
    {.rule_id = 1300, .category = "Backdoor", .target = 1, .toolchain = Toolchain::Delphi, .modules = 4},
    {.rule_id = 1333, .category = "Backdoor", .target = 1, .toolchain = Toolchain::Msvc14, .functions = 3},
    {.rule_id = 1507, .category = "Backdoor", .target = 1, .toolchain = Toolchain::Protector, .traits = 18},
    {.rule_id = 1750, .category = "TrojanSpy", .target = 1, .toolchain = Toolchain::Msvc9, .texts = kTableTexts},
    {.rule_id = 2048, .category = "Ransom", .target = 1, .toolchain = Toolchain::Msvc14, .resources = kDialogs},
    {.rule_id = 2222, .category = "Virus", .target = 1, .toolchain = Toolchain::Msvc6, .traits = 2},
    {.rule_id = 2500,
     .category = "FakeAlert",
     .target = 1,
     .toolchain = Toolchain::Msvc9,
     .traits = 17,
     .resources = kIcons},
    {.rule_id = 2718,
     .category = "Adware",
     .target = 1,
     .toolchain = Toolchain::Delphi,
     .traits = 1,
     .texts = kVersionTexts},
    {.rule_id = 3001, .category = "Packed", .target = 1, .toolchain = Toolchain::Packer, .traits = 34},
    {.rule_id = 3141, .category = "Packed", .target = 1, .toolchain = Toolchain::Protector, .traits = 4},
    {.rule_id = 3500,
     .category = "Worm",
     .target = 1,
     .toolchain = Toolchain::VisualBasic,
     .traits = 192,
     .objects = 3},
    {.rule_id = 3777,
     .category = "Trojan",
     .target = 1,
     .toolchain = Toolchain::VisualBasic,
     .traits = 64,
     .objects = 2},
    {.rule_id = 4404, .category = "TrojanHijack", .target = 0, .toolchain = Toolchain::Msvc6, .exports = 3},
    {.rule_id = 4500,
     .category = "Backdoor",
     .target = 0,
     .toolchain = Toolchain::Msvc9,
     .modules = 2,
     .functions = 3,
     .exports = 1},
    {.rule_id = 5005,
     .category = "Adware",
     .target = 0,
     .toolchain = Toolchain::Msvc9,
     .exports = 2,
     .texts = kVersionTexts},
    {.rule_id = 5550, .category = "Rootkit", .target = 2, .toolchain = Toolchain::Driver},
    {.rule_id = 6006, .category = "TrojanMSIL", .target = 5, .toolchain = Toolchain::Managed},
    {.rule_id = 6500,
     .category = "Worm",
     .target = 72,
     .toolchain = Toolchain::Msvc9,
     .traits = 1,
     .texts = kManifestTexts},
    {.rule_id = 7007,
     .category = "Adware",
     .target = 8,
     .toolchain = Toolchain::Msvc6,
     .traits = 1,
     .resources = kDialogs,
     .types = kTypes},
    {.rule_id = 8080, .category = "Virus", .target = 144, .toolchain = Toolchain::Protector, .traits = 4},
};

const Archetype &FindArchetype(const WrittenSpecimen &written) {
    const auto found = std::ranges::find_if(Archetypes(), [&](const Archetype &archetype) {
        return archetype.category == written.category && archetype.target == written.target &&
               archetype.toolchain == written.toolchain;
    });
    if (found == Archetypes().end())
        throw std::logic_error("rule " + std::to_string(written.rule_id) + ": no archetype fits its specimen");
    return *found;
}

} // namespace

std::vector<uint32_t> WrittenIds() {
    std::vector<uint32_t> ids;
    for (const WrittenSpecimen &written : kWritten)
        ids.push_back(written.rule_id);
    return ids;
}

std::optional<RulePlan> WrittenPlan(uint32_t rule_id) {
    const auto written = std::ranges::find(kWritten, rule_id, &WrittenSpecimen::rule_id);
    if (written == std::end(kWritten))
        return std::nullopt;
    RulePlan plan;
    plan.rule_id = rule_id;
    plan.archetype = &FindArchetype(*written);
    plan.family = kFirstFamily + rule_id;
    plan.seed = Mix(kSeed ^ rule_id);
    plan.traits = written->traits;
    plan.kernel_name = rule_id % 2 == 1;
    plan.counts[kImportModules] = written->modules;
    plan.counts[kImportFunctions] = written->functions;
    plan.counts[kExportFunctions] = written->exports;
    plan.counts[kExportModule] = written->exports != 0 ? 1 : 0;
    plan.counts[kObjectNames] = written->objects;
    plan.counts[kMemberNames] = written->objects;
    plan.resource_types.assign(written->resources.begin(), written->resources.end());
    plan.string_keys.assign(written->texts.begin(), written->texts.end());
    plan.resource_numbers.assign(written->types.begin(), written->types.end());
    return plan;
}

} // namespace tavrik::generator
