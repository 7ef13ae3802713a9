/* A program with a Visual Basic project, at any image base. */
#ifndef TAVRIK_TESTS_SUPPORT_VB_IMAGE_H
#define TAVRIK_TESTS_SUPPORT_VB_IMAGE_H

#include <cstring>

#include <gtest/gtest.h>

#include "database/generator/archetypes.h"
#include "database/generator/vb_project.h"
#include "pe/builder/builder.h"

namespace tavrik::tests {

struct VbImage {
    struct Wishes {
        uint32_t image_base = 0x400000;
        uint64_t seed = 1;
        bool many_objects = false;
        uint32_t traits = 0;
    };

    /** The project is in ".text", the only section; `image` can be extended before it is built. */
    explicit VbImage(const Wishes &wishes) {
        generator::RulePlan plan;
        plan.many_objects = wishes.many_objects;
        plan.traits = wishes.traits;
        plan.counts[generator::kMemberNames] = 1;
        for (const generator::Archetype &archetype : generator::Archetypes())
            if (archetype.toolchain == generator::Toolchain::VisualBasic)
                plan.archetype = &archetype;
        generator::Random random(wishes.seed);
        project = generator::MakeVbProject(plan, "Family", wishes.image_base + kAddress, random);
        std::memcpy(&header, &project.content.bytes[project.entry + 1], sizeof(header));
        header -= wishes.image_base + kAddress;
        image.headers.ImageBase = wishes.image_base;
        image.headers.AddressOfEntryPoint = kAddress + project.entry;
        image.headers.SizeOfHeaders = kHeaders;
        image.sections.push_back({.name = ".text",
                                  .Characteristics = pe::builder::kCodeSection,
                                  .VirtualAddress = kAddress,
                                  .pieces = {{project.content.bytes}}});
    }

    static constexpr uint32_t kAddress = 0x1000; // of the section
    static constexpr uint32_t kHeaders = 0x400;  // bytes before its raw data

    pe::builder::PeImage image;
    generator::VbProject project;
    uint32_t header = 0; // offset of the project header in the section
};

} // namespace tavrik::tests

#endif
