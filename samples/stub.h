/* The program around a payload: an image whose headers pass an entry's gate. */
#ifndef TAVRIK_SAMPLES_STUB_H
#define TAVRIK_SAMPLES_STUB_H

#include <cstdint>
#include <string>
#include <vector>

#include "pe/builder/builder.h"
#include "samples/gate_values.h"

namespace tavrik::samples {

/** What a sample wants beyond its entry's gate. */
struct StubWishes {
    std::string path = {};   // the label of the gate's columns to take; by default the first that can be taken
    FieldValues values = {}; // of fields, within the gate's bounds or where it has none
    std::vector<std::string> names = {}; // of the sections; by default as many as the gate asks for, usual ones
    std::vector<pe::builder::Resource> resources = {}; // by default a version resource
    uint32_t resource_section_size = 0;                // its raw data in bytes, when more than the resources need
};

/** The image: headers from the gate (ends of ranges, preferably even multiples), sections, imports, resources and
 * directories where the headers say that they are. Images whose code begins after the first section are laid out as
 * packers do it: a hole, the packed code, the resources. Throws std::invalid_argument when the wishes and the gate
 * contradict each other. */
pe::builder::PeImage MakeStub(uint32_t entry, const StubWishes &wishes);

/** The same for any accepted values, without a gate. */
pe::builder::PeImage MakeStub(const GatePath &path, const StubWishes &wishes);

} // namespace tavrik::samples

#endif
