// The section table reader: which calls it makes, in which order, and what it makes of what they deliver.
#include <gtest/gtest.h>

#include "tavrik2/pe/section_table.h"
#include "tests/support/pe_file.h"

namespace tavrik::tests {
namespace {

using namespace tavrik2;

constexpr char kReadsDos[] = "T S0 R64 S12"; // from position 12
constexpr char kReadsFileHeader[] = "T T S0 R64 S12 S132 R20 S12";
constexpr char kReadsOptionalHeader[] = "T T S0 R64 S12 S152 R96 S12";

std::string Calls(std::initializer_list<const char *> parts) {
    std::string all;
    for (const char *part : parts)
        all += std::string(all.empty() ? "" : " ") + part;
    return all;
}

const std::string kTableOffset = Calls({kReadsFileHeader, kReadsDos});

class SectionTable : public testing::Test {
protected:
    SectionTable() {
        file_.sections = {Section(".text", 0x1000, 0x10, 0x400, 0x200), Section(".azAZ[@x", 0x2000, 0x20, 0x600, 0x200),
                          Section(".text", 0x3000, 0x30, 0x800, 0x200)};
        Start();
    }

    // Writes the headers anew; the stream is at position 12.
    void Start(Fault fault = {}) {
        file_.PutInto(stream_);
        stream_.Restart(12, fault);
    }

    PeFile file_;
    RecordingStream stream_;
};

TEST_F(SectionTable, CountAndOffsetRestoreThePosition) {
    EXPECT_EQ(GetSectionCount(&stream_, kHandle), 3u);
    EXPECT_EQ(stream_.TakeCalls(), kReadsFileHeader);
    EXPECT_EQ(GetSectionTableOffset(&stream_, kHandle), 0x178u);
    EXPECT_EQ(stream_.TakeCalls(), kTableOffset);
    EXPECT_EQ(stream_.position(), 12u);
}

TEST_F(SectionTable, CountAndOptionalHeaderSizeHaveSixteenBits) {
    for (const uint16_t value : {uint16_t{0x0103}, uint16_t{0x8001}}) {
        file_.optional_header_size = value;
        Start();
        EXPECT_EQ(GetSectionTableOffset(&stream_, kHandle), 0x80u + 24 + value);
        stream_.Put(0x80 + 6, Bytes(value));
        EXPECT_EQ(GetSectionCount(&stream_, kHandle), value);
    }
}

TEST_F(SectionTable, WithoutOptionalHeaderSizeTheDirectoriesAreCounted) {
    file_.optional_header_size = 0;
    file_.directory_count = 0x20000003; // eight times this wraps
    Start();
    EXPECT_EQ(GetSectionTableOffset(&stream_, kHandle), 0x80u + 24 + 96 + 24);
    EXPECT_EQ(stream_.TakeCalls(), Calls({kTableOffset.c_str(), kReadsOptionalHeader}));
}

TEST_F(SectionTable, HeadersWrapAtTheEndOfTheOffsets) {
    file_.PutInto(stream_);
    stream_.Put(60, Bytes(0xFFFFFFFEu));
    stream_.Restart();
    GetSectionCount(&stream_, kHandle);
    EXPECT_EQ(stream_.TakeCalls(), "T T S0 R64 S0 S2 R20 S0");
}

TEST_F(SectionTable, ShortDosHeaderDoesNotRestoreThePosition) {
    stream_.Restart(12, {Fault::ReadShort, 1, 64});
    EXPECT_EQ(GetSectionCount(&stream_, kHandle), 0u);
    EXPECT_EQ(stream_.TakeCalls(), "T T S0 R64 S4 R20 S12");
}

TEST_F(SectionTable, BytesThatAShortReadDoesNotDeliverAreZero) {
    stream_.Resize(0x80 + 7); // half of NumberOfSections
    stream_.Restart(12);
    EXPECT_EQ(GetSectionCount(&stream_, kHandle), 3u);
    stream_.Resize(0x80 + 6);
    EXPECT_EQ(GetSectionCount(&stream_, kHandle), 0u);
}

TEST_F(SectionTable, HeaderByIndexIsReadTwiceSoughtAndLeftAtItsStart) {
    SectionHeader header;
    EXPECT_EQ(GetSectionHeader(&stream_, kHandle, 1, &header), 1);
    EXPECT_EQ(stream_.TakeCalls(), Calls({kTableOffset.c_str(), "S416 T S416 R40 S416"}));
    EXPECT_EQ(header.VirtualAddress, 0x2000u);
    // An index past the table reads what is there.
    stream_.Put(0x178 + 40 * 9, Bytes(Section("beyond", 9, 9, 9, 9)));
    EXPECT_EQ(GetSectionHeader(&stream_, kHandle, 9, &header), 1);
    EXPECT_EQ(header.VirtualAddress, 9u);
}

TEST_F(SectionTable, HeaderByIndexFailsOnlyWhenTheSeekDoes) {
    const SectionHeader untouched = Section("same", 1, 2, 3, 4);
    SectionHeader header = untouched;
    stream_.Restart(12, {Fault::SeekElsewhere, 7}); // six belong to the table's offset
    EXPECT_EQ(GetSectionHeader(&stream_, kHandle, 1, &header), 0);
    EXPECT_EQ(Bytes(header), Bytes(untouched));
    EXPECT_EQ(stream_.TakeCalls(), Calls({kTableOffset.c_str(), "S416"}));
    // The offset -1 is refused even though the stream goes there: index * 40 wraps round to it.
    file_.lfanew = 0xFF;
    file_.optional_header_size = 0x40; // the table is at 0x157
    Start();
    constexpr uint32_t kIndex = 0x19999991;
    static_assert(0x157 + 40 * kIndex == 0xFFFFFFFF);
    EXPECT_EQ(GetSectionHeader(&stream_, kHandle, kIndex, &header), 0);
    EXPECT_EQ(Bytes(header), Bytes(untouched));
    // Nothing else counts: a header that cannot be read is a success that delivers nothing.
    stream_.Resize(0x100);
    EXPECT_EQ(GetSectionHeader(&stream_, kHandle, 1, &header), 1);
    EXPECT_EQ(Bytes(header), Bytes(untouched));
}

TEST_F(SectionTable, FindByNameStopsAtTheFirstAndComparesWholeNames) {
    const std::string start = Calls({kTableOffset.c_str(), kReadsFileHeader, "S376"});
    const struct {
        const char *name;
        int32_t offset;
        const char *reads;
    } cases[] = {
        {".text", 0x178, "R40 T"},       {".TEXT", 0x178, "R40 T"},       {".AZaz[@X", 0x178 + 40, "R40 R40 T"},
        {".azAZ[@", -1, "R40 R40 R40"},  {"text", -1, "R40 R40 R40"},     {".text2", -1, "R40 R40 R40"},
        {".azAZ{@x", -1, "R40 R40 R40"}, {".azAZ[`x", -1, "R40 R40 R40"}, {".azAZ[@xX", -1, "R40 R40 R40"},
    };
    for (const auto &test : cases) {
        stream_.Restart(12);
        EXPECT_EQ(FindSectionByName(&stream_, kHandle, test.name), test.offset) << test.name;
        EXPECT_EQ(stream_.TakeCalls(), Calls({start.c_str(), test.reads})) << test.name;
    }
    file_.sections.clear();
    Start();
    EXPECT_EQ(FindSectionByName(&stream_, kHandle, ".text"), -1);
    EXPECT_EQ(stream_.TakeCalls(), start);
}

TEST_F(SectionTable, HeaderByNameReturnsToWhereTheSearchLeftOff) {
    SectionHeader header = {};
    EXPECT_EQ(GetSectionHeaderByName(&stream_, kHandle, ".AZAZ[@x", &header), 1);
    EXPECT_EQ(stream_.TakeCalls(), Calls({kTableOffset.c_str(), kReadsFileHeader, "S376 R40 R40 T T S416 R40 S456"}));
    EXPECT_EQ(header.VirtualAddress, 0x2000u);
    EXPECT_EQ(GetSectionHeaderByName(&stream_, kHandle, ".none", &header), 0);
    EXPECT_EQ(header.VirtualAddress, 0x2000u);
}

} // namespace
} // namespace tavrik::tests
