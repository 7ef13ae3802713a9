/* The tables of imports, exports and resources. Where each begins is found once a file, by private rules: one says that
 * the table is there, 32 have the bits of its offset, others bound what is in it. A condition adds the bits up. So the
 * way to the table takes no loop of the four that may nest. */
#ifndef TAVRIK_RULES_YARA_TABLES_H
#define TAVRIK_RULES_YARA_TABLES_H

#include <cstdint>
#include <string>
#include <string_view>

#include "rules/numbers.h"

namespace tavrik::rules::yara {

struct Table {
    std::string_view name; // of its private rule, and the beginning of the others' names
    uint16_t field;        // the address of its directory, a header field
};

inline constexpr Table kImports = {"import_table", header_field::kImportTable};
inline constexpr Table kExports = {"export_table", header_field::kExportTable};
inline constexpr Table kResources = {"resource_table", header_field::kResourceTable};

/** That the table is there and `body` true, in which e is its offset. Nests one loop besides those of the body. */
std::string AtTable(const Table &table, std::string_view body);

/** Numbers that are not exceeded in the file: of import descriptors, and of entries under one resource type. */
std::string MostDescriptors();
std::string MostEntries();

/** Entries of the resource directory at an offset. */
std::string EntryCount(std::string_view directory);
/** The second field of an entry of a resource directory. */
std::string EntryTarget(std::string_view directory, std::string_view index);
/** The offset of the directory to which that leads; with kIsDirectory if it leads to one. */
std::string Subdirectory(std::string_view directory, std::string_view index);
inline constexpr std::string_view kIsDirectory = " & 0x80000000 != 0";

/** The private rules of a table that `rules` make use of; `guard` is the condition that its directory is there, and
 * `rva` the address that this contains. */
std::string TableRules(const Table &table, std::string_view guard, std::string_view rva, std::string_view rules);

} // namespace tavrik::rules::yara

#endif
