// The probe of a table of known builds.
#include <gtest/gtest.h>

#include "tavrik2/locators/scans/offset_table_probe.h"
#include "tests/support/pe_file.h"

namespace tavrik::tests {
namespace {

using namespace tavrik2;

constexpr uint32_t kMarkers[] = {0xBE4B48A3, 0x3750DFC6};
constexpr int32_t kFileSize = 0x4000;

class OffsetProbe : public testing::Test {
protected:
    OffsetProbe() {
        PeFile{{Section(".text", 0x1000, 0, 0x400, 0x200), Section(".rsrc", 0x2000, 0, 0x1000, 0x800)}}.PutInto(
            stream_);
        stream_.Resize(kFileSize);
        opt_header_.SizeOfCode = 0x111;
        opt_header_.SizeOfInitializedData = 0x222;
        data_dirs_[4] = 0x333;
    }

    int Probe(const std::vector<OffsetProbeRow> &rows, bool ignore_resource_rva = false, Fault fault = {}) {
        stream_.Restart(0, fault);
        finding_ = {2, 3};
        return ProbeOffsetTable(&stream_, kHandle, file_size_, data_dirs_, &opt_header_, &last_section_, &finding_,
                                rows.data(), static_cast<uint32_t>(rows.size()), ignore_resource_rva, {kMarkers, 2});
    }

    // The blocks that a probe reads, by their offsets.
    std::string ReadsOf(const std::vector<OffsetProbeRow> &rows) {
        EXPECT_EQ(Probe(rows), 0);
        const std::string calls = stream_.TakeCalls();
        std::string reads;
        for (size_t read = calls.find(" R256"); read != std::string::npos; read = calls.find(" R256", read + 1))
            reads += calls.substr(calls.rfind('S', read), read - calls.rfind('S', read)) + " ";
        return calls.starts_with("S") && reads.empty() ? calls : reads;
    }

    RecordingStream stream_;
    int32_t file_size_ = kFileSize;
    OptionalHeader opt_header_ = {};
    uint32_t data_dirs_[DATA_DIRECTORY_WORDS] = {};
    SectionHeader last_section_ = Section("last", 0, 0, 0x2000, 0x600);
    Finding finding_ = {};
};

constexpr auto kBadAnchor = static_cast<ProbeAnchor>(5);
constexpr auto kBadDirection = static_cast<ProbeDirection>(3);
// A row that is read when the probe comes to it.
constexpr OffsetProbeRow kNext = {0, 0, 0, LastSectionStart, At, 0, ""};
constexpr char kNextRead[] = "S0x2000 ";

TEST_F(OffsetProbe, AnchorsAndDirections) {
    const struct {
        OffsetProbeRow row;
        const char *reads; // "": the whole probe ends
    } cases[] = {
        {{0, 0, 0, EndOfFile, Before, 0x200, ""}, "S0x3E00 "},
        {{0, 0, 0, EndOfFile, After, 0, ""}, ""},
        {{0, 0, 0, EndOfFile, At, 0, ""}, ""},
        {{0, 0, 0, LastSectionStart, At, 9, ""}, "S0x2000 "},
        {{0, 0, 0, LastSectionStart, After, 0, ""}, "S0x2000 "},
        {{0, 0, 0, LastSectionStart, After, 9, ""}, "S0x2009 "},
        {{0, 0, 0, LastSectionStart, Before, 9, ""}, "S0x1FF7 "},
        {{0, 0, 0, LastSectionEnd, At, 9, ""}, ""},
        {{0, 0, 0, LastSectionEnd, After, 9, ""}, "S0x2609 "},
        {{0, 0, 0, LastSectionEnd, Before, 9, ""}, "S0x25F7 "},
        {{0, 0, 0, NamedSectionStart, At, 9, ".RSRC"}, "S0x1000 "},
        {{0, 0, 0, NamedSectionStart, After, 9, ".rsrc"}, "S0x1009 "},
        {{0, 0, 0, NamedSectionStart, Before, 9, ".rsrc"}, "S4087 "},
        {{0, 0, 0, NamedSectionEnd, At, 9, ".rsrc"}, ""},
        {{0, 0, 0, NamedSectionEnd, After, 9, ".rsrc"}, "S0x1809 "},
        {{0, 0, 0, NamedSectionEnd, Before, 9, ".rsrc"}, "S0x17F7 "},
        {{0, 0, 0, NamedSectionStart, After, 0, ".rrdata"}, ""},
        {{0, 0, 0, kBadAnchor, At, 0, ""}, ""},
        {{0, 0, 0, LastSectionStart, kBadDirection, 0, ""}, ""},
        {{0, 0, 0, NamedSectionEnd, kBadDirection, 0, ".rsrc"}, ""},
    };
    for (const auto &[row, reads] : cases) {
        const std::string expected = *reads == '\0' ? "" : std::string(reads) + kNextRead;
        EXPECT_EQ(ReadsOf({row, kNext}), expected)
            << "anchor " << row.anchor << " direction " << row.direction << " " << row.section_name;
    }
}

TEST_F(OffsetProbe, OffsetsOutsideTheFileSkipTheirRow) {
    const struct {
        uint32_t distance; // before the end
        bool is_read;
    } cases[] = {{257, true},        {256, false},           {0, false},         {kFileSize - 1, true},
                 {kFileSize, false}, {kFileSize + 1, false}, {0x80000000, false}};
    for (const auto &[distance, is_read] : cases) {
        const std::string reads = ReadsOf({{0, 0, 0, EndOfFile, Before, distance, ""}, kNext});
        EXPECT_EQ(reads != kNextRead, is_read) << distance;
    }
    EXPECT_EQ(ReadsOf({{0, 0, 0, LastSectionStart, After, 0x80000000, ""}, kNext}), kNextRead);
    // An end that wraps to a negative number lies before the end of the file.
    file_size_ = INT32_MAX;
    EXPECT_EQ(ReadsOf({{0, 0, 0, LastSectionStart, After, 0x7FFFFFF0 - 0x2000, ""}, kNext}),
              std::string("S0x7FFFFFF0 ") + kNextRead);
    // A header that cannot be read is all zeros, so its section begins at 0.
    EXPECT_EQ(Probe({{0, 0, 0, NamedSectionStart, At, 0, ".rsrc"}, kNext}, false, {Fault::ReadNothing, 3, 40}), 0);
    EXPECT_TRUE(stream_.HasFailed());
    const std::string calls = stream_.TakeCalls();
    EXPECT_EQ(calls.find(" R256"), calls.size() - 5) << "more than one block in " << calls;
}

TEST_F(OffsetProbe, KeysAreTestedBeforeTheFileIsRead) {
    const OffsetProbeRow skipped[] = {{0x112, 0x222, 0x333, NamedSectionStart, At, 0, "none"},
                                      {0x111, 0x221, 0x333, NamedSectionStart, At, 0, "none"},
                                      {0x111, 0x222, 0x334, NamedSectionStart, At, 0, "none"}};
    for (const OffsetProbeRow &row : skipped) {
        EXPECT_EQ(Probe({row}), 0);
        EXPECT_FALSE(stream_.WasCalled());
    }
    stream_.Put(0x2000, Bytes(kMarkers[0]));
    for (const OffsetProbeRow &row : {OffsetProbeRow{0x111, 0x222, 0x333, LastSectionStart, At, 0, ""}, kNext})
        EXPECT_EQ(Probe({row}), 1);
    EXPECT_EQ(Probe({{0x111, 0x222, 0x334, LastSectionStart, At, 0, ""}}, true), 1);
}

TEST_F(OffsetProbe, TheFirstRowWithAMarkerWins) {
    const std::vector<OffsetProbeRow> rows = {
        kNext, {0, 0, 0, LastSectionStart, After, 0x20, ""}, {0, 0, 0, LastSectionStart, After, 0x10, ""}};
    stream_.Put(0x2010, Bytes(kMarkers[0]));
    stream_.Put(0x2020, Bytes(kMarkers[1]));
    EXPECT_EQ(Probe(rows), 1);
    EXPECT_EQ(Bytes(finding_), Bytes(Finding{0x2020, 256}));
    EXPECT_EQ(stream_.TakeCalls(), "S0x2000 R256 S0x2020 R256");
    // Only what is read counts, not what Seek answers.
    EXPECT_EQ(Probe(rows, false, {Fault::SeekMisreported, 2}), 1);
    EXPECT_EQ(finding_.offset, 0x2020u);
    // A short block skips its row only.
    EXPECT_EQ(Probe(rows, false, {Fault::ReadShort, 2, 256}), 1);
    EXPECT_EQ(finding_.offset, 0x2010u);
    EXPECT_EQ(Probe({kNext}), 0);
    EXPECT_EQ(Bytes(finding_), Bytes(Finding{2, 3}));
}

} // namespace
} // namespace tavrik::tests
