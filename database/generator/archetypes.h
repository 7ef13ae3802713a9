/* What the programs look like that the rules are made from: a table of archetypes, each with its compiler or packer,
 * its imports and the texts its authors leave in it. */
#ifndef TAVRIK_DATABASE_GENERATOR_ARCHETYPES_H
#define TAVRIK_DATABASE_GENERATOR_ARCHETYPES_H

#include <cstdint>
#include <span>
#include <string_view>

namespace tavrik::generator {

/** Who made the file's headers and sections. */
enum class Toolchain : uint8_t {
    Msvc6,
    Msvc9,
    Msvc14,
    Delphi,
    MinGw,
    VisualBasic,
    Packer,    // a hole, the packed data with the loader, resources
    Protector, // the original sections, packed, and the loader's own after them
    Driver,
    Managed,
};

struct Archetype {
    std::string_view category; // first part of the detection name
    std::string_view family;   // its second part; empty: an invented word
    uint32_t target;           // attribute_a
    Toolchain toolchain;
    uint32_t weight;                         // how often, among those of the same target
    std::string_view modules;                // letters of Modules()
    std::span<const std::string_view> texts; // templates, see ExpandText
    std::span<const uint32_t> traits;        // values of attribute_b that its rules may carry
};

std::span<const Archetype> Archetypes();

/** A module with the functions that programs take from it. "#n" is an ordinal. */
struct ModuleFunctions {
    char letter;
    std::string_view name;
    std::span<const std::string_view> functions;
};

/** The modules that archetypes name by letter; the first is the kernel's. */
std::span<const ModuleFunctions> Modules();

/** Names of DLLs and exports that hijackers and components use. */
std::span<const std::string_view> ExportModules();
std::span<const std::string_view> ExportNames();

/** Names of Visual Basic forms, modules and methods. */
std::span<const std::string_view> FormNames();
std::span<const std::string_view> ModuleNames();
std::span<const std::string_view> MethodNames();

/** Names of resources given by authors instead of numbers, and of types. */
std::span<const std::string_view> ResourceNames();
std::span<const std::string_view> ResourceTypeNames();

/** Section names of packers and protectors, besides the usual ones. */
std::span<const std::string_view> OddSectionNames();

} // namespace tavrik::generator

#endif
