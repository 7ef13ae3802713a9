
#include <fmt/format.h>

#include "base/cpp_literal.h"
#include "database/name_compiler/name_tables.h"
#include "tavrik2/rules/name_tables.h"

namespace tavrik::name_compiler {
namespace {

using namespace tavrik2;

constexpr size_t kPointerSize = 8;

std::string Store(std::string text) {
    for (char &byte : text)
        byte = static_cast<char>(byte + kStoredShift);
    return text;
}

// A text of a section name slot; one that fills its slot has no terminator, and so cannot be written as a literal.
std::string QuoteSlot(const std::string &text) {
    if (text.size() < kSectionNameSlot)
        return base::CppLiteral(text);
    std::string out;
    for (const char byte : text)
        out += fmt::format("{}0x{:02X}", out.empty() ? "{" : ", ", static_cast<uint8_t>(byte));
    return out + '}';
}

template <typename Items, typename Write>
std::string Lines(const Items &items, Write write) {
    std::string out;
    for (const auto &item : items)
        out += "    " + write(item) + ",\n";
    return out;
}

// An object of an array and its count, and the names by which the code knows the two. `row_size` is in bytes.
std::string Counted(std::string_view name, std::string_view row, size_t row_size, size_t count,
                    const std::string &rows) {
    const size_t size = row_size * count;
    return fmt::format("extern const CountedArray<{1}, {2}> {0}Image;\n"
                       "TAVRIK_KEEP constinit const CountedArray<{1}, {2}> {0}Image = {{{{\n{3}}}, {2}}};\n"
                       "static_assert(offsetof(decltype({0}Image), count) == {4});\n"
                       "TAVRIK_IMAGE_SYMBOL({0}, {0}Image, 0, {4});\n"
                       "TAVRIK_IMAGE_SYMBOL({0}Count, {0}Image, {4}, 4);\n\n",
                       name, row, count, rows, size);
}

std::string NameTable(size_t number, const Words &names) {
    return fmt::format("constinit NameEntry NameTable{0}[] = {{\n{1}}};\n"
                       "constinit const uint32_t NameTable{0}Count = {2};\n\n",
                       number, Lines(names, [](const std::string &name) { return base::CppLiteral(Store(name)); }),
                       names.size());
}

std::string DetectionMap(std::string_view name, const std::vector<DetectionRow> &rows) {
    const auto write = [](const DetectionRow &row) {
        return fmt::format("{{NameTable1[{}], NameTable2[{}], {}, {}}}", row.first, row.second, row.gen ? 1 : 0,
                           base::CppLiteral(row.detection));
    };
    return Counted(name, "NameDetection", sizeof(NameDetection), rows.size(), Lines(rows, write));
}

std::string PairTable(const std::vector<PairRow> &rows) {
    const auto write = [](const PairRow &row) {
        return fmt::format("{{NameTable3[{}], NameTable4[{}]}}", row.first, row.second);
    };
    return Counted("NamePairTable", "NamePair", sizeof(NamePair), rows.size(), Lines(rows, write));
}

std::string CountedWords(std::string_view name, const Words &words) {
    return Counted(name, "const char *", kPointerSize, words.size(), Lines(words, base::CppLiteral));
}

// One object holds patterns, records and the array of pointers to the records.
std::string PackerTable(const std::vector<PackerRow> &packers) {
    std::string members;
    std::string values;
    std::string pointers;
    size_t size = 0;
    for (const PackerRow &row : packers) {
        members += fmt::format("    PackerSignatureImage<{}> packer_{};\n", row.pattern.size(), row.id);
        std::string bytes;
        for (const uint8_t byte : row.pattern)
            bytes += fmt::format("{}0x{:02X}", bytes.empty() ? "" : ", ", byte);
        values +=
            fmt::format("    {{{{{}}}, {{{}, PackerSignaturesImage.packer_{}.pattern, {}, {}, {}, {}, 1}}}},\n", bytes,
                        row.id, row.id, row.pattern.size(), row.param, row.kind, base::CppLiteral(row.packer));
        pointers += fmt::format("    &PackerSignaturesImage.packer_{}.record,\n", row.id);
        size += row.pattern.size() + sizeof(PackerSignature);
    }
    const size_t table = (size + kPointerSize - 1) / kPointerSize * kPointerSize;
    return fmt::format("struct PackerSignaturesInOrder {{\n{0}    const PackerSignature *table[{1}];\n}};\n"
                       "extern const PackerSignaturesInOrder PackerSignaturesImage;\n"
                       "TAVRIK_KEEP constinit const PackerSignaturesInOrder PackerSignaturesImage = {{\n{2}    "
                       "{{\n{3}    }},\n}};\n"
                       "static_assert(offsetof(PackerSignaturesInOrder, table) == {4});\n"
                       "TAVRIK_IMAGE_SYMBOL(PackerSignatures, PackerSignaturesImage, {4}, {5});\n\n",
                       members, packers.size(), values, pointers, table, packers.size() * kPointerSize);
}

std::string WordLists(const std::array<Words, 3> &lists) {
    static constexpr std::string_view kNames[] = {"VisualBasicRuntimes", "Wildcards", "ExecutionLevels"};
    std::string arrays;
    std::string rows;
    for (size_t index = 0; index < lists.size(); ++index) {
        const std::string_view name = kNames[index];
        arrays += fmt::format("static constinit const char *const {}[] = {{\n{}}};\n\n", name,
                              Lines(lists[index], base::CppLiteral));
        rows += fmt::format("    {{{}, {}}},\n", name, lists[index].size());
    }
    return fmt::format("{}TAVRIK_KEEP constinit const WordList WordListTable[] = {{\n{}}};\n\n", arrays, rows);
}

} // namespace

std::string WriteNameTables(const NameTables &tables) {
    std::string out = "// Generated by tavrik-names from database/names. Edit those texts instead.\n"
                      "#include \"tavrik2/rules/name_tables.h\"\n\n"
                      "#include \"tavrik2/rules/image_symbol.h\"\n\n"
                      "namespace tavrik2 {\n\nextern \"C\" {\n\n";
    for (size_t index = 0; index < tables.names.size(); ++index)
        out += NameTable(index + 1, tables.names[index]);
    out += DetectionMap("NameDetectionMap", tables.detections);
    out += DetectionMap("SecondNameDetectionMap", tables.second_detections);
    out += PairTable(tables.pairs);
    out += PackerTable(tables.packers);
    out += fmt::format("TAVRIK_KEEP constinit const char *const ModuleNames[] = {{\n{}}};\n\n",
                       Lines(tables.module_names, base::CppLiteral));
    out += CountedWords("Keywords", tables.keywords);
    out += CountedWords("ProductWords", tables.product_words);
    out += WordLists(tables.word_lists);
    out += fmt::format("TAVRIK_KEEP constinit const char FunctionNames[][kFunctionNameSlot] = {{\n{}}};\n\n",
                       Lines(tables.function_names, base::CppLiteral));
    out += fmt::format("TAVRIK_KEEP constinit const char SectionNames[][kSectionNameSlot] = {{\n{}}};\n\n",
                       Lines(tables.section_names, QuoteSlot));
    return out + "} // extern \"C\"\n\n} // namespace tavrik2\n";
}

} // namespace tavrik::name_compiler
