#include <algorithm>

#include <fmt/format.h>

#include "base/atomic_file.h"
#include "base/console.h"
#include "base/error.h"
#include "base/text.h"
#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "tools/tavrik-rules/commands.h"

namespace tavrik::rules_tool {

namespace {

// The ids of the table next to one that it lacks, as a sentence.
std::string NearestIds(const generator::Generator &generator, uint32_t wanted) {
    std::optional<uint32_t> below;
    std::optional<uint32_t> above;
    for (std::size_t place = 0; place < generator.size(); ++place) {
        const uint32_t id = generator.RuleId(place);
        if (id < wanted)
            below = std::max(below.value_or(id), id);
        else
            above = std::min(above.value_or(id), id);
    }
    if (below && above)
        return fmt::format("the nearest are {} and {}", *below, *above);
    return fmt::format("the nearest is {}", below ? *below : above.value_or(0));
}

std::vector<std::size_t> PlacesOf(const generator::Generator &generator, uint32_t rule_id) {
    std::vector<std::size_t> places;
    for (std::size_t place = 0; place < generator.size(); ++place)
        if (generator.RuleId(place) == rule_id)
            places.push_back(place);
    return places;
}

// The place that the options mean; nothing, after saying why, when they do not lead to one rule.
std::optional<std::size_t> Choose(const generator::Generator &generator, const SpecimenOptions &options) {
    const std::vector<std::size_t> places = PlacesOf(generator, options.rule_id);
    if (places.empty()) {
        base::PrintError(fmt::format("tavrik-rules: the reference database has no rule {}; {}\n", options.rule_id,
                                     NearestIds(generator, options.rule_id)));
        return std::nullopt;
    }
    if (!options.place && places.size() == 1)
        return places.front();
    if (options.place && std::ranges::find(places, *options.place) != places.end())
        return options.place;
    base::PrintError(fmt::format(
        "tavrik-rules: {}:\n",
        options.place ? fmt::format("rule {} is not at place {}, but here", options.rule_id, *options.place)
                      : fmt::format("{} rules have the id {}; choose one", places.size(), options.rule_id)));
    for (const std::size_t place : places)
        base::PrintError(fmt::format("  --place {:<5} \"{}\"\n", place, generator.RuleName(place)));
    return std::nullopt;
}

} // namespace

ExitCode WriteSpecimen(const SpecimenOptions &options) {
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    const auto place = Choose(generator, options);
    if (!place)
        return kErrorsFound;
    const std::filesystem::path path = base::PathOf(options.output);
    if (!options.force && std::filesystem::exists(std::filesystem::symlink_status(path)))
        throw base::Error(path, "is there already; --force overwrites it");
    const auto image = generator.SpecimenImage(*place);
    if (!image) {
        base::PrintError(
            fmt::format("tavrik-rules: rule {} \"{}\" has no specimen\n", options.rule_id, generator.RuleName(*place)));
        return kErrorsFound;
    }
    base::WriteWholeFile(path, *image);
    base::Print(fmt::format("{}: {} bytes, the specimen of rule {} \"{}\"\n", options.output, image->size(),
                            options.rule_id, generator.RuleName(*place)));
    return kFine;
}

} // namespace tavrik::rules_tool
