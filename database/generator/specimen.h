/* The specimen of a rule: a PE image of its archetype that shows everything the rule's plan asks for. */
#ifndef TAVRIK_DATABASE_GENERATOR_SPECIMEN_H
#define TAVRIK_DATABASE_GENERATOR_SPECIMEN_H

#include <string>
#include <vector>

#include "database/generator/content.h"
#include "database/generator/plan.h"
#include "database/generator/vb_project.h"

namespace tavrik::generator {

/** An image's bytes, with what its author knew when writing it. */
struct Specimen {
    Bytes image;
    std::vector<Mark> marks; // by file offset
    std::string export_module;
    std::vector<std::string> exports;
    std::vector<VbObject> objects;
    std::vector<rules::ResourceString> resource_strings;  // as planned; all present
    std::vector<rules::ResourceTypeEntry> resource_types; // as planned; all met
};

/** The specimen of `plan`; the same for equal plans. */
Specimen MakeSpecimen(const RulePlan &plan);

} // namespace tavrik::generator

#endif
