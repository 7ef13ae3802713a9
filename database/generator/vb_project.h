/* The structures that a Visual Basic 5/6 program carries: its project header and the structures it leads to. */
#ifndef TAVRIK_DATABASE_GENERATOR_VB_PROJECT_H
#define TAVRIK_DATABASE_GENERATOR_VB_PROJECT_H

#include <cstdint>
#include <string>
#include <vector>

#include "database/generator/content.h"
#include "database/generator/plan.h"

namespace tavrik::generator {

struct VbObject {
    std::string name;
    std::vector<std::string> methods;
    bool is_form = false;
};

struct VbProject {
    Content content;
    uint32_t entry = 0; // of the code that pushes the header's address, into the content
    std::vector<VbObject> objects;
};

/** Lays out a project for a section at `address`, a virtual address. */
VbProject MakeVbProject(const RulePlan &plan, const std::string &family, uint32_t address, Random &random);

} // namespace tavrik::generator

#endif
