/* The tables that a PE section can hold: resources, imports, exports. */
#ifndef TAVRIK_PE_BUILDER_TABLES_H
#define TAVRIK_PE_BUILDER_TABLES_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "base/byte_writer.h"

namespace tavrik::pe::builder {

// ---- Resources -----------------------------------------------------------------------------------------------------

/** A resource's type or name: a number or a text. */
using ResourceId = std::variant<uint16_t, std::u16string>;

inline constexpr uint16_t kEnglish = 0x409;

/** One resource in one language. */
struct Resource {
    ResourceId type;
    ResourceId name = uint16_t{1};
    uint16_t language = kEnglish;
    base::Bytes data;
    std::optional<uint32_t> offset = {}; // of the data, from the start of the directory; by default after the others
    uint32_t CodePage = 0;
};

/** A resource directory of the usual three levels with its data. The order of `resources` is the order of the data;
 * the directories are sorted as Windows wants them, texts before numbers. */
struct ResourceTable {
    std::vector<Resource> resources;
};

/** A version resource: the fixed numbers, high part first, and strings such as {"CompanyName", "..."}. */
struct VersionInfo {
    uint16_t file_version[4] = {1, 0, 0, 0};
    uint16_t product_version[4] = {1, 0, 0, 0};
    uint16_t language = kEnglish;
    uint16_t code_page = 1200;
    std::vector<std::pair<std::u16string, std::u16string>> strings;

    /** The resource's data. */
    base::Bytes Lay() const;
};

// ---- Imports and exports -------------------------------------------------------------------------------------------

/** An imported function: by its name or, with an empty name, by its ordinal. */
struct ImportedFunction {
    std::string name;
    uint16_t ordinal = 0; // the hint when there is a name

    ImportedFunction(const char *function) : name(function) {}
    ImportedFunction(std::string function) : name(std::move(function)) {}
    ImportedFunction(uint16_t number) : ordinal(number) {}
};

struct ImportedModule {
    std::string name;
    std::vector<ImportedFunction> functions;
};

struct ImportTable {
    std::vector<ImportedModule> modules;
};

/** An exported function: with an empty name it has its ordinal only; with a forwarder it has no address. */
struct ExportedFunction {
    std::string name;
    uint32_t rva = 0;
    std::string forwarder = {};
};

struct ExportTable {
    std::string module_name;
    std::vector<ExportedFunction> functions; // in the order of their ordinals
    uint32_t ordinal_base = 1;
};

// ---- Layout --------------------------------------------------------------------------------------------------------

/** A table's bytes, and where its directories are in them. */
struct LaidTable {
    struct Place {
        uint32_t offset;
        uint32_t size;
    };
    base::Bytes bytes;
    Place directory;             // what the data directory points to
    std::optional<Place> thunks; // the import address table
};

/** Lays a table out for the address `rva`. The number of bytes does not depend on it. Throws std::invalid_argument when
 * two resources share type, name and language, or a resource's place overlaps what is before it. */
LaidTable LayOut(const ResourceTable &table, uint32_t rva);
LaidTable LayOut(const ImportTable &table, uint32_t rva, bool is_pe32_plus);
LaidTable LayOut(const ExportTable &table, uint32_t rva);

} // namespace tavrik::pe::builder

#endif
