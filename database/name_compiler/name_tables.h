/* The name tables of the database: read from text, written as generated source. */
#ifndef TAVRIK_DATABASE_NAME_COMPILER_NAME_TABLES_H
#define TAVRIK_DATABASE_NAME_COMPILER_NAME_TABLES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "database/name_compiler/text_source.h"

namespace tavrik::name_compiler {

using Words = std::vector<std::string>;

/** Indexes into NameTable1 and NameTable2. */
struct DetectionRow {
    size_t first = 0;
    size_t second = 0;
    bool gen = false;
    std::string detection;
};

/** Indexes into NameTable3 and NameTable4. */
struct PairRow {
    size_t first = 0;
    size_t second = 0;
};

struct PackerRow {
    uint32_t id = 0;
    std::string packer;
    uint8_t param = 0;
    uint8_t kind = 0;
    std::vector<uint8_t> pattern;
};

/** Everything in working form. */
struct NameTables {
    std::array<Words, 4> names;
    std::vector<DetectionRow> detections;
    std::vector<DetectionRow> second_detections;
    std::vector<PairRow> pairs;
    std::vector<PackerRow> packers;
    Words module_names;
    Words keywords;
    Words product_words;
    std::array<Words, 3> word_lists;
    Words function_names;
    Words section_names;
};

/** Makes the tables from the sections of all sources. What is wrong is reported to `sources`; the tables are complete
 * only when nothing was. */
NameTables BuildNameTables(const std::vector<Section> &sections, Sources &sources);

/** The tables as C++ source, in stored form. */
std::string WriteNameTables(const NameTables &tables);

} // namespace tavrik::name_compiler

#endif
