/* Makes the rule of a specimen: picks as many features of each list as the plan allots, all of them read from the
 * specimen's bytes. */
#ifndef TAVRIK_DATABASE_GENERATOR_EXTRACT_H
#define TAVRIK_DATABASE_GENERATOR_EXTRACT_H

#include <string_view>

#include "database/generator/image_facts.h"
#include "database/generator/plan.h"
#include "database/generator/random.h"
#include "database/generator/specimen.h"

namespace tavrik::generator {

/** What the features of one rule are picked from. */
struct Source {
    const RulePlan &plan;
    const Specimen &specimen;
    const ImageFacts &facts;
    Random &random;
};

/** Throws std::logic_error: the specimen cannot supply what the plan asks of a list. */
[[noreturn]] void FailShort(const RulePlan &plan, std::string_view what);

void ExtractHeaders(const Source &source, rules::Rule &rule);
void ExtractSections(const Source &source, rules::Rule &rule);
void ExtractTables(const Source &source, rules::Rule &rule); // imports, exports, resources
void ExtractObjects(const Source &source, rules::Rule &rule);
void ExtractStrings(const Source &source, rules::Rule &rule);
void ExtractMeasures(const Source &source, rules::Rule &rule);

/** The rule of a plan, with all its lists. */
rules::Rule ExtractRule(const RulePlan &plan, const Specimen &specimen);

} // namespace tavrik::generator

#endif
