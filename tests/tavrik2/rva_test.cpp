// The seven steps from an RVA to a file offset.
#include <gtest/gtest.h>

#include "tavrik2/pe/rva.h"
#include "tests/support/pe_file.h"

namespace tavrik::tests {
namespace {

using tavrik2::RvaToFileOffset;

// What is read before the first section header, with the stream at 0.
const std::string kHeaderReads = "T T S0 R64 S0 S152 R96 S0"              // optional header
                                 " T T S0 R64 S0 S132 R20 S0 T S0 R64 S0" // table offset
                                 " T T S0 R64 S0 S132 R20 S0";            // section count

struct Mapping {
    uint32_t rva;
    uint32_t offset;
};

class Rva : public testing::Test {
protected:
    uint32_t Map(uint32_t rva, Fault fault = {}) {
        file_.PutInto(stream_);
        stream_.Restart(0, fault);
        return RvaToFileOffset(&stream_, kHandle, rva);
    }

    void ExpectMaps(std::initializer_list<Mapping> mappings) {
        for (const Mapping &mapping : mappings)
            EXPECT_EQ(Map(mapping.rva), mapping.offset) << std::hex << "RVA " << mapping.rva;
    }

    PeFile file_;
    RecordingStream stream_;
};

TEST_F(Rva, EveryStepHasItsAddresses) {
    file_.sections = {Section("a", 0x1000, 0x80, 0x400, 0x200),   // the raw size is larger
                      Section("b", 0x2000, 0x1800, 0x605, 0x200), // the virtual size is larger, the pointer uneven
                      Section("none", 0x800, 0x100, 0x400, 0),    // holds nothing, but is the lowest
                      Section("c", 0x5010, 0x100, 0xA00, 0x200)};
    ExpectMaps({
        {0x1000, 0x400},
        {0x11FF, 0x5FF}, // plain lookup, both ends
        {0x2000, 0x600},
        {0x37FF, 0x600 + 0x17FF},
        {0x5010, 0xA00},
        {0x520F, 0xA00 + 0x1FF},
        {0x5210, 0xA00 + 0x200}, // the end of the last section
        {0x1200, 0xFFFFFFFF},
        {0x3800, 0xFFFFFFFF}, // the end of any other
        {0, 0},
        {0x7FF, 0x7FF}, // below every section
        {0x800, 0xFFFFFFFF},
        {0xFFF, 0xFFFFFFFF},
        {0x5211, 0xA00 + 0x201},
        {0x53FF, 0xA00 + 0x3EF}, // rounded down, the last section holds it
        {0x5400, 0xFFFFFFFF},
    });
    // A last section without raw data holds nothing and ends nowhere.
    file_.sections = {Section("a", 0x1000, 0x80, 0x400, 0x200), Section("none", 0x5000, 0x1000, 0xA00, 0)};
    ExpectMaps({{0x5010, 0xFFFFFFFF}, {0x6000, 0xFFFFFFFF}});
}

TEST_F(Rva, LaterSectionsWinAndSpansAreClamped) {
    file_.sections = {Section("a", 0x1000, 0x1000, 0x400, 0x1000), Section("b", 0x1800, 0x100, 0x2000, 0x100),
                      Section("wraps", 0xFFFF0000, 0x20000, 0x4000, 0x200), Section("z", 0x8000, 0x10, 0x6000, 0x10)};
    ExpectMaps({{0x1800, 0x2000},
                {0x1900, 0x400 + 0x900},
                {0xFFFFFFFE, 0x4000 + 0xFFFE},
                // Just below the clamped end is the last address; rounded down, the end itself is inside.
                {0xFFFFFFFF, 0x4000 + 0xFFFF}});
    // Offsets wrap like addresses.
    file_.sections = {Section("high", 0x1000, 0x200, 0xFFFFFF00, 0x200)};
    ExpectMaps({{0x1100, 0xFFFFFE00 + 0x100}, {0x1200, 0}});
}

TEST_F(Rva, AlignmentsRoundAsTheyDo) {
    const struct {
        uint32_t file_alignment;
        uint16_t subsystem;
        uint32_t offset;
    } cases[] = {
        {0x200, 2, 0x1200}, {0x1000, 2, 0x1200}, {0x1000, 1, 0x1380}, {0x80, 2, 0x1380},    {1, 2, 0x1380},
        {0, 2, 0},          {0, 1, 0x1380},      {0x300, 3, 0x1200},  {0x10000, 2, 0x1200}, {0x200, 0x101, 0x1200}};
    for (const auto &test : cases) {
        file_.file_alignment = test.file_alignment;
        file_.subsystem = test.subsystem;
        file_.sections = {Section("a", 0x1000, 0x200, 0x1380, 0x200)};
        EXPECT_EQ(Map(0x1010), test.offset + 0x10) << test.file_alignment << " " << test.subsystem;
    }
    // The section alignment decides how far above a section an address may lie.
    file_.sections = {Section("a", 0x1000, 0x210, 0x400, 0x10), Section("b", 0x9000, 1, 0x800, 1)};
    for (const auto &[alignment, mapped] :
         {std::pair{0x1000u, true}, {0x10000u, true}, {0x20u, true}, {0x10u, false}, {1u, false}}) {
        file_.section_alignment = alignment;
        EXPECT_EQ(Map(0x1218), mapped ? 0x400 + 0x218 : 0xFFFFFFFF) << alignment;
    }
    file_.section_alignment = 0; // rounds everything to 0
    EXPECT_EQ(Map(0x1218), 0xFFFFFFFFu);
}

TEST_F(Rva, WithoutSectionsEveryAddressButTheLastIsAnOffset) {
    ExpectMaps({{0, 0}, {0x1234, 0x1234}, {0xFFFFFFFE, 0xFFFFFFFE}, {0xFFFFFFFF, 0xFFFFFFFF}});
    EXPECT_EQ(stream_.TakeCalls(), kHeaderReads);
}

TEST_F(Rva, HeadersAreReadFromTheLastToTheFirstInEachStep) {
    file_.sections = {Section("a", 0x1000, 1, 0x400, 1), Section("b", 0x2000, 1, 0x600, 1)};
    Map(0x2000);
    EXPECT_EQ(stream_.TakeCalls(), kHeaderReads + " S416 R40");
    Map(0x1000);
    EXPECT_EQ(stream_.TakeCalls(), kHeaderReads + " S416 R40 S376 R40");
    Map(0x2001);
    EXPECT_EQ(stream_.TakeCalls(), kHeaderReads + " S416 R40 S376 R40 S416 R40");
    Map(0x9000);
    EXPECT_EQ(stream_.TakeCalls(), kHeaderReads + " S416 R40 S376 R40 S416 R40 S416 R40 S376 R40");
}

TEST_F(Rva, ShortHeadersEndEachStepInItsOwnWay) {
    file_.sections = {Section("a", 0x1000, 0x10, 0x400, 0x10), Section("b", 0x2000, 0x10, 0x600, 0x10)};
    const struct {
        uint32_t nth; // which 40-byte read is short
        uint32_t rva;
        uint32_t offset;
        const char *reads;
    } cases[] = {
        {1, 0x2010, 0x610, "S416 R40 S416 R40"},           // plain lookup ends, the end of the last section holds
        {1, 0x1000, 0x1000, "S416 R40 S416 R40"},          // no address was read: the lowest is above all
        {2, 0x1000, 0x1000, "S416 R40 S376 R40 S416 R40"}, // the lowest is b's: a's address is below it
        {3, 0x9000, 0x9000, "S416 R40 S376 R40 S416 R40"}, // the last section: the address itself
        {4, 0x1100, 0xFFFFFFFF, "S416 R40 S376 R40 S416 R40 S416 R40"},
        {5, 0x1100, 0xFFFFFFFF, "S416 R40 S376 R40 S416 R40 S416 R40 S376 R40"},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(Map(test.rva, {Fault::ReadShort, test.nth, 40}), test.offset) << test.nth;
        EXPECT_EQ(stream_.TakeCalls(), kHeaderReads + " " + test.reads) << test.nth;
    }
    // More than was asked for is no less.
    for (const uint32_t nth : {1u, 2u})
        EXPECT_EQ(Map(0x1000, {Fault::ReadTooMuch, nth, 40}), 0x400u) << nth;
}

} // namespace
} // namespace tavrik::tests
