/* The resources of a specimen: what the plan's resource conditions need, and what such programs have besides. */
#ifndef TAVRIK_DATABASE_GENERATOR_RESOURCES_H
#define TAVRIK_DATABASE_GENERATOR_RESOURCES_H

#include <string>
#include <vector>

#include "database/generator/plan.h"
#include "database/generator/random.h"
#include "pe/builder/tables.h"

namespace tavrik::generator {

struct PlannedResources {
    pe::builder::ResourceTable table;
    std::vector<rules::ResourceString> strings;
    std::vector<rules::ResourceTypeEntry> types;
};

/** The resources of the plan's specimen. Nothing is in the table when the program has none. */
PlannedResources MakeResources(const RulePlan &plan, const std::string &family, Random &random);

} // namespace tavrik::generator

#endif
