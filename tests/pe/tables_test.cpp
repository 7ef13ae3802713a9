// Import and export tables that no linker writes: one thunk array or two different ones, names and counts at their
// bounds.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/byte_source.h"
#include "base/byte_writer.h"
#include "pe/builder/builder.h"
#include "pe/export_table.h"
#include "pe/import_table.h"

namespace tavrik::tests {
namespace {

using base::Bytes;
using base::ByteWriter;
using Names = std::unordered_set<std::string>;

constexpr uint32_t kTableAddress = 0x1000; // of the only section
constexpr uint32_t kNowhere = 0x800000;

/** A parsed file whose section holds `table`, to which one data directory points. */
struct TableFile {
    TableFile(Bytes table, pe::Directory directory, bool is_pe32_plus = false)
        : bytes(Build(std::move(table), directory, is_pe32_plus)) {}

    static Bytes Build(Bytes table, pe::Directory directory, bool is_pe32_plus) {
        pe::builder::PeImage image;
        image.is_pe32_plus = is_pe32_plus;
        image.headers.AddressOfEntryPoint = 0;
        image.sections.push_back(
            {.name = ".tab", .VirtualAddress = kTableAddress, .pieces = {{std::move(table), {}, directory}}});
        return image.Build().bytes;
    }

    Bytes bytes;
    base::MemorySource source{bytes};
    base::FileBytes reader{source};
    pe::Image image{reader};
};

struct Descriptor {
    uint32_t original_first_thunk;
    uint32_t name;
    uint32_t first_thunk;
};

/** A writer after these descriptors; addresses in them are relative to the section and 0 where they are 0. */
ByteWriter Descriptors(const std::vector<Descriptor> &descriptors, std::size_t least = 0) {
    ByteWriter table;
    const auto rva = [](uint32_t place) { return place == 0 || place == kNowhere ? place : kTableAddress + place; };
    for (std::size_t i = 0; i < std::max(descriptors.size(), least); ++i) {
        const Descriptor &each = descriptors[std::min(i, descriptors.size() - 1)];
        table.U32(rva(each.original_first_thunk));
        table.U32(0x11111111); // TimeDateStamp
        table.U32(0x22222222); // ForwarderChain
        table.U32(rva(each.name));
        table.U32(rva(each.first_thunk));
    }
    for (int word = 0; word < 5; ++word)
        table.U32(word == 3 ? 0 : 0xFFFFFFFF); // only a Name of 0 ends the descriptors
    return table;
}

void PutThunks(ByteWriter &table, uint32_t place, const std::vector<uint64_t> &thunks, bool is_pe32_plus) {
    table.FillTo(place);
    for (const uint64_t thunk : thunks)
        is_pe32_plus ? table.U64(thunk) : table.U32(static_cast<uint32_t>(thunk));
    is_pe32_plus ? table.U64(0) : table.U32(0);
}

void PutFunction(ByteWriter &table, uint32_t place, std::string_view name) {
    table.FillTo(place);
    table.U16(0x4141); // the hint, which is no part of the name
    table.Text(name);
}

TEST(ImportTable, TakesTheOriginalThunksWhereThereAreSome) {
    for (const bool plus : {false, true}) {
        SCOPED_TRACE(plus);
        const uint64_t ordinal = uint64_t{1} << (plus ? 63 : 31);
        ByteWriter table = Descriptors({{0x200, 0x100, 0x280},          // both, with different contents
                                        {0, 0x108, 0x280},              // only FirstThunk
                                        {0x200, 0x110, 0},              // only OriginalFirstThunk
                                        {kNowhere, 0x118, 0x280},       // OriginalFirstThunk is not in the file
                                        {kNowhere, kNowhere, kNowhere}, // neither
                                        {0x2F0, 0x100, 0x280}});        // an OriginalFirstThunk of no functions
        for (const auto &[place, name] :
             {std::pair(0x100u, "a.dll"), {0x108u, "b.dll"}, {0x110u, "c.dll"}, {0x118u, "d.dll"}}) {
            table.FillTo(place);
            table.Text(name);
        }
        PutThunks(table, 0x200, {kTableAddress + 0x300, ordinal | 0x12345}, plus);
        PutThunks(table, 0x280, {kTableAddress + 0x320, kTableAddress + 0x340, ordinal | 7}, plus);
        PutThunks(table, 0x2F0, {}, plus);
        PutFunction(table, 0x300, "Original");
        PutFunction(table, 0x320, "Bound");
        PutFunction(table, 0x340, "");
        TableFile file(table.Take(), pe::kImportDirectory, plus);
        pe::ImportTable imports(file.image);
        const Names original = {"Original", "#9029"}; // 0x2345: an ordinal has 16 bits
        const Names bound = {"Bound", "", "#7"};
        ASSERT_EQ(imports.descriptors().size(), 6u);
        EXPECT_EQ(imports.FunctionsOf(0), original);
        EXPECT_EQ(imports.FunctionsOf(1), bound);
        EXPECT_EQ(imports.FunctionsOf(2), original);
        EXPECT_EQ(imports.FunctionsOf(3), bound);
        EXPECT_EQ(imports.FunctionsOf(4), Names());
        EXPECT_EQ(imports.FunctionsOf(5), Names());
        EXPECT_EQ(imports.function_count(), 2u + 3 + 2 + 3);
        for (const auto &[index, name] : {std::pair(0u, "a.dll"), {1u, "b.dll"}, {2u, "c.dll"}, {3u, "d.dll"}})
            EXPECT_EQ(imports.descriptors()[index].module, name);
        EXPECT_FALSE(imports.descriptors()[4].module);
        EXPECT_EQ(imports.descriptors()[1].fields,
                  (std::array<uint32_t, 5>{0, 0x11111111, 0x22222222, kTableAddress + 0x108, kTableAddress + 0x280}));
    }
}

TEST(ImportTable, ReadsNamesOfUpTo255Bytes) {
    ByteWriter table = Descriptors({{0x200, 0x400, 0}, {0x200, 0x600, 0}});
    PutThunks(table, 0x200, {kTableAddress + 0x800, kTableAddress + 0xA00, kNowhere, 0x7FFFFFFF}, false);
    for (const auto &[place, length] : {std::pair(0x400u, 255u), {0x600u, 256u}}) {
        table.FillTo(place);
        table.Text(std::string(length, 'm'));
    }
    PutFunction(table, 0x800, std::string(255, 'f'));
    PutFunction(table, 0xA00, std::string(256, 'g'));
    TableFile file(table.Take(), pe::kImportDirectory);
    pe::ImportTable imports(file.image);
    EXPECT_EQ(imports.descriptors()[0].module, std::string(255, 'm'));
    EXPECT_FALSE(imports.descriptors()[1].module);
    EXPECT_EQ(imports.FunctionsOf(0), Names{std::string(255, 'f')});
    EXPECT_EQ(imports.function_count(), 8u) << "functions count without names too";
}

TEST(ImportTable, EndsAtItsBounds) {
    constexpr uint32_t kName = 0x6000;
    const auto with_thunks = [&](std::size_t descriptors, uint32_t thunks) {
        ByteWriter table = Descriptors({{kName + 0x10, kName, 0}}, descriptors);
        table.FillTo(kName);
        table.Text("x.dll");
        PutThunks(table, kName + 0x10, std::vector<uint64_t>(thunks, 0x80000001), false);
        return TableFile(table.Take(), pe::kImportDirectory);
    };
    for (const std::size_t count : {1023u, 1024u, 1025u}) {
        TableFile file = with_thunks(count, 1);
        pe::ImportTable imports(file.image);
        EXPECT_EQ(imports.descriptors().size(), std::min<std::size_t>(count, 1024));
        EXPECT_EQ(imports.function_count(), std::min<std::size_t>(count, 1024));
    }
    for (const uint32_t count : {4095u, 4096u, 4097u}) {
        TableFile file = with_thunks(1, count);
        EXPECT_EQ(pe::ImportTable(file.image).function_count(), std::min(count, 4096u));
        TableFile many = with_thunks(17, count);
        EXPECT_EQ(pe::ImportTable(many.image).function_count(), std::min(17 * count, 65536u));
    }
    TableFile none(Bytes(0x40, 0), pe::kExportDirectory);
    EXPECT_TRUE(pe::ImportTable(none.image).descriptors().empty());
}

/** An export directory at the section's start. */
Bytes Exports(uint32_t name, uint32_t count, uint32_t names, const std::vector<uint32_t> &rvas) {
    ByteWriter table;
    for (int field = 0; field < 10; ++field)
        table.U32(field == 3 ? name : field == 6 ? count : field == 8 ? names : 0xFFFFFFFF);
    for (const uint32_t rva : rvas)
        table.U32(rva);
    return table.Take();
}

TEST(ExportTable, ReadsTheNamesThatCount) {
    constexpr uint32_t kNames = kTableAddress + 40;
    Bytes table = Exports(kTableAddress + 0x80, 4, kNames,
                          {kTableAddress + 0x90, kNowhere, kTableAddress + 0xA0, kTableAddress + 0x98});
    table.resize(0xA8);
    std::memcpy(&table[0x80], "own.dll", 8);
    std::memcpy(&table[0x90], "First", 6);
    std::memcpy(&table[0x98], "Second", 7);
    std::memcpy(&table[0xA0], "Third", 6);
    TableFile file(table, pe::kExportDirectory);
    pe::ExportTable exports(file.image);
    EXPECT_EQ(exports.module(), "own.dll");
    EXPECT_EQ(exports.name_count(), 4u);
    EXPECT_EQ(exports.Names(), (Names{"First", "Second", "Third"}));

    TableFile fewer(Exports(kNowhere, 0xFFFFFFFF, kNowhere, {}), pe::kExportDirectory);
    pe::ExportTable odd(fewer.image);
    EXPECT_FALSE(odd.module());
    EXPECT_EQ(odd.name_count(), 0xFFFFFFFFu);
    EXPECT_TRUE(odd.Names().empty());

    // The name at the bound counts, the one after it does not.
    std::vector<uint32_t> rvas(16385, kNowhere);
    rvas[16383] = kTableAddress + 40 + 4 * 16385;
    rvas[16384] = rvas[16383] + 4;
    Bytes bound = Exports(0, 16385, kNames, rvas);
    bound.insert(bound.end(), {'l', 'a', 's', 0, 'b', 'y', 0});
    TableFile long_table(bound, pe::kExportDirectory);
    EXPECT_EQ(pe::ExportTable(long_table.image).Names(), Names{"las"});

    TableFile none(Bytes(0x40, 1), pe::kImportDirectory);
    EXPECT_FALSE(pe::ExportTable(none.image).module());
    EXPECT_EQ(pe::ExportTable(none.image).name_count(), 0u);
}

} // namespace
} // namespace tavrik::tests
