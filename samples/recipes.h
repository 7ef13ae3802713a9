/* The recipes of the sample set: how each sample with a payload, and each clean program, is made. */
#ifndef TAVRIK_SAMPLES_RECIPES_H
#define TAVRIK_SAMPLES_RECIPES_H

#include <cstdint>
#include <span>
#include <string_view>

#include "pe/builder/builder.h"
#include "tavrik2/payload_locator.h"

namespace tavrik::samples {

/** A manifest resource of that text. */
inline pe::builder::Resource Manifest(std::string_view text) {
    return {.type = pe::resource_type::kManifest, .data = base::Bytes(text.begin(), text.end())};
}

/** A file with a payload, and what the locator that it is for reports of it. */
struct Made {
    pe::builder::PeFile file;
    LocatorResult finding;
};

/** A sample for an entry. Its distances and offsets are those of the builds that the locators recognise. */
struct Recipe {
    uint32_t entry;
    const char *name;
    const char *about;
    Made (*make)();
};

/** The samples with a payload, one for each entry that can find something, in the order of the entries. */
std::span<const Recipe> Recipes();

/** A program without a payload. */
struct CleanProgram {
    const char *file_name;
    const char *about;
    pe::builder::PeImage (*make)();
};

std::span<const CleanProgram> CleanPrograms();

} // namespace tavrik::samples

#endif
