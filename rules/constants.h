/* Names of values: the constants of the PE format that the text of a rule may write in place of numbers. */
#ifndef TAVRIK_RULES_CONSTANTS_H
#define TAVRIK_RULES_CONSTANTS_H

#include <cstdint>
#include <span>
#include <string_view>

#include "rules/names.h"

namespace tavrik::rules {

/** The constants of one field. */
struct ConstantGroup {
    std::string_view prefix;            // of the full names in the PE/COFF format, which may be written too
    bool are_flags = false;             // several are joined by +
    std::span<const NamedNumber> names; // the first of several names of a number is the usual one
};

/** The constants of a field in one of the tables of names.h; null when it has none. */
const ConstantGroup *ConstantsOf(std::span<const Field> fields, uint32_t number);

/** The data directories by their index. */
const ConstantGroup &Directories();

/** The constant of that name, with or without its prefix; null when there is none. */
const NamedNumber *FindConstant(const ConstantGroup &group, std::string_view name);

} // namespace tavrik::rules

#endif
