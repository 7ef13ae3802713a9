// The scans that several locators share, at their edges.
#include <gtest/gtest.h>

#include "tavrik2/locators/autoit/header.h"
#include "tavrik2/locators/scans/altered_autoit_scan.h"
#include "tavrik2/locators/scans/autoit_ea06_scan.h"
#include "tavrik2/locators/scans/autoit_script_scan.h"
#include "tavrik2/locators/scans/autoit_signature_scan.h"
#include "tavrik2/locators/scans/chunk_search.h"
#include "tests/support/payloads.h"
#include "tests/support/recording_stream.h"
#include "tests/support/sampling.h"

namespace tavrik::tests {
namespace {

using namespace tavrik2;

constexpr int32_t kStart = 0x100;
constexpr uint32_t kBlock = 0x1000;
constexpr uint32_t kNotFound = 0;

struct Placed {
    uint32_t offset; // from the scan's start
    std::string bytes;
};

class Scans : public testing::Test {
protected:
    // The offset that a scan of `size` bytes after the start finds, from the start; kNotFound when it fails.
    uint32_t Run(HeaderScan scan, uint32_t size, const std::vector<Placed> &contents, Fault fault = {}) {
        stream_.Resize(0);
        stream_.Resize(kStart + size);
        for (const Placed &placed : contents)
            stream_.Put(kStart + placed.offset, placed.bytes);
        stream_.Resize(kStart + size);
        stream_.Restart(0, fault);
        uint32_t found = 77;
        const int answer = scan(kHandle, static_cast<int32_t>(stream_.size()), kStart, &found, &stream_);
        EXPECT_EQ(answer, found == 0 ? 0 : 1);
        return answer == 1 ? found - kStart : kNotFound;
    }

    RecordingStream stream_;
};

struct ScanTraits {
    const char *name;
    HeaderScan scan;
    std::string header;
    uint32_t tail;    // the walk ends this many bytes before the file's end
    uint32_t minimum; // the shortest block that is searched
};

const ScanTraits kScans[] = {{"signature", FindAutoItSignature, kSignature, 32, 4096},
                             {"script", FindAutoItScript, kScript5, 80, 2560},
                             {"EA06 header", FindAutoItEA06Header, kEA06, 80, 2560},
                             {"altered header", FindAlteredAutoItHeader, kAlteredHeaders[0], 32, 4096}};

TEST_F(Scans, WalkBlocksThatDoNotOverlap) {
    for (const ScanTraits &test : kScans) {
        SCOPED_TRACE(test.name);
        const auto length = static_cast<uint32_t>(test.header.size());
        EXPECT_EQ(Run(test.scan, 2 * kBlock, {{4, test.header}}), 4u);
        EXPECT_EQ(stream_.TakeCalls(), "S256 R0x1000");
        const uint32_t last = test.scan == FindAutoItSignature ? 4063 : kBlock - length;
        EXPECT_EQ(Run(test.scan, 2 * kBlock, {{kBlock + last, test.header}}), kBlock + last);
        EXPECT_EQ(stream_.TakeCalls(), "S256 R0x1000 S0x1100 R0x1000");
        EXPECT_EQ(Run(test.scan, 501 * kBlock, {{500 * kBlock, test.header}}), 500 * kBlock);
        // A header across two blocks is passed over.
        EXPECT_EQ(Run(test.scan, 3 * kBlock, {{kBlock - length + 1, test.header}, {2 * kBlock + 9, test.header}}),
                  2 * kBlock + 9);
    }
}

TEST_F(Scans, FindHeadersAtEveryPlaceOfABlock) {
    const std::pair<HeaderScan, const std::string *> kHeaders[] = {{FindAutoItSignature, &kSignature},
                                                                   {FindAutoItSignature, &kAltMarkers[3]},
                                                                   {FindAutoItScript, &kScript5},
                                                                   {FindAutoItScript, &kScript6A},
                                                                   {FindAutoItScript, &kScript6B},
                                                                   {FindAutoItEA06Header, &kEA06},
                                                                   {FindAlteredAutoItHeader, kAlteredHeaders},
                                                                   {FindAlteredAutoItHeader, &kAlteredHeaders[3]}};
    for (const auto &[scan, header] : kHeaders) {
        const auto last = header == &kSignature ? 4063 : kBlock - static_cast<uint32_t>(header->size());
        for (uint32_t place = 1; place <= last; place += kSampling)
            ASSERT_EQ(Run(scan, kBlock, {{place, *header}}), place);
    }
}

TEST_F(Scans, EndWhereTheFileOrTheStreamDoes) {
    for (const ScanTraits &test : kScans) {
        SCOPED_TRACE(test.name);
        const std::vector<Placed> header = {{kBlock, test.header}};
        EXPECT_EQ(Run(test.scan, kBlock + test.minimum, header), kBlock);
        EXPECT_EQ(Run(test.scan, kBlock + test.minimum - 1, header), kNotFound);
        // A block is begun up to the tail, not in it.
        Run(test.scan, kBlock + test.tail + 1, {});
        EXPECT_EQ(stream_.TakeCalls(), "S256 R0x1000 S0x1100 R0x1000");
        Run(test.scan, kBlock + test.tail, {});
        EXPECT_EQ(stream_.TakeCalls(), "S256 R0x1000");
        for (const Fault::Kind kind : {Fault::SeekElsewhere, Fault::ReadNothing, Fault::ReadTooMuch})
            EXPECT_EQ(Run(test.scan, 2 * kBlock, header, {kind, 2}), kNotFound) << kind;
        EXPECT_EQ(Run(test.scan, 2 * kBlock, header, {Fault::ReadShort, 2}),
                  test.minimum == kBlock ? kNotFound : kBlock);
        uint32_t found = 77;
        EXPECT_EQ(test.scan(kHandle, 0x9000, 0, &found, nullptr), 0);
        EXPECT_EQ(found, 77u);
        EXPECT_EQ(test.scan(kHandle, 0x9000, 0, nullptr, &stream_), 0);
    }
}

TEST_F(Scans, SizesAndOffsetsAreSigned) {
    for (const ScanTraits &test : kScans) {
        SCOPED_TRACE(test.name);
        for (const auto &[size, start] : {std::pair{-1, 0}, {0x1000, 0x2000}, {INT32_MAX, INT32_MAX - 16}}) {
            stream_.Restart();
            uint32_t found = 77;
            EXPECT_EQ(test.scan(kHandle, size, start, &found, &stream_), 0);
            EXPECT_EQ(found, 0u);
            EXPECT_FALSE(stream_.WasCalled());
        }
        uint32_t found;
        EXPECT_EQ(test.scan(kHandle, 0x1000, -4096, &found, &stream_), 0);
        EXPECT_EQ(stream_.TakeCalls(), "S0xFFFFF000 R0x1000") << "a negative start is sought";
    }
}

TEST_F(Scans, SignatureAlternatives) {
    const std::string prefix = kMarker.substr(0, 7);
    for (const uint32_t place : {40u, 41u, 42u, 43u, 4063u})
        EXPECT_EQ(Run(FindAutoItSignature, kBlock, {{place, kSignature}}), place);
    EXPECT_EQ(Run(FindAutoItSignature, kBlock, {{4064, kSignature}}), kNotFound); // too near the block's end
    EXPECT_EQ(Run(FindAutoItSignature, kBlock, {{4064, kSignature}, {8, kAltMarkers[6]}}), 8u);
    EXPECT_EQ(Run(FindAutoItSignature, kBlock, {{9, prefix}, {100, kSignature}}), kNotFound); // the first one only
    EXPECT_EQ(Run(FindAutoItSignature, kBlock, {{9, prefix}, {100, kSignature}, {900, kAltMarkers[0]}}), 900u);
    EXPECT_EQ(Run(FindAutoItSignature, kBlock, {{900, kSignature}, {8, kAltMarkers[0]}}), 900u);
    for (const size_t byte : {16u, 19u, 20u, 21u}) {
        std::string broken = kSignature;
        broken[byte] ^= 1;
        EXPECT_EQ(Run(FindAutoItSignature, kBlock, {{9, broken}}), kNotFound) << byte;
    }
    for (size_t index = 0; index < 7; ++index) {
        for (const uint32_t place : {40u, 41u, 42u, 43u, kBlock - 16})
            EXPECT_EQ(Run(FindAutoItSignature, kBlock, {{place, kAltMarkers[index]}}), place) << index;
        for (size_t later = index + 1; later < 7; ++later)
            EXPECT_EQ(Run(FindAutoItSignature, kBlock, {{800, kAltMarkers[index]}, {40, kAltMarkers[later]}}), 800u);
        // A marker that is almost there hides neither a later copy nor a later marker.
        std::string broken = kAltMarkers[index];
        broken[15] ^= 1;
        EXPECT_EQ(Run(FindAutoItSignature, kBlock, {{40, broken}, {60, kAltMarkers[index]}}), 60u);
        EXPECT_EQ(Run(FindAutoItSignature, kBlock, {{40, broken}, {56, kAltMarkers[6 - index]}}), 56u);
    }
}

TEST_F(Scans, ScriptForms) {
    const std::string tag5 = "AU3!EA05", tag6 = "AU3!EA06";
    EXPECT_EQ(Run(FindAutoItScript, kBlock, {{9, kScript6A}}), 9u);
    EXPECT_EQ(Run(FindAutoItScript, kBlock, {{9, kScript6B}}), 9u);
    // An EA05 tag in the block hides the EA06 form; in the block before it does not.
    EXPECT_EQ(Run(FindAutoItScript, kBlock, {{9, kScript6A}, {900, tag5}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItScript, 2 * kBlock, {{kBlock + 9, kScript6A}, {900, tag5}}), kBlock + 9);
    // Only the first tag, marker or pattern of a block counts.
    EXPECT_EQ(Run(FindAutoItScript, kBlock, {{9, tag5}, {100, kScript5}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItScript, kBlock, {{9, kMarker}, {100, kScript5}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItScript, kBlock, {{9, tag6}, {100, kScript6A}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItScript, kBlock, {{9, kPatternA}, {100, kScript6A}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItScript, kBlock, {{9, kPatternA}, {100, kScript6B}}), 100u);
    EXPECT_EQ(Run(FindAutoItScript, kBlock, {{9, kPatternB}, {100, kScript6B}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItScript, kBlock, {{100, kMarker}, {117, tag5}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItScript, kBlock, {{100, tag6}, {123, kPatternA}}), kNotFound);
    // A header that begins before the start fails the search, whatever follows.
    EXPECT_EQ(Run(FindAutoItScript, 2 * kBlock, {{0, kScript6A.substr(1)}, {kBlock, kScript5}}), kNotFound);
    EXPECT_EQ(stream_.TakeCalls(), "S256 R0x1000");
    EXPECT_EQ(Run(FindAutoItScript, 2 * kBlock, {{kBlock, kScript6A.substr(1)}}), kBlock - 1);
    // So may a tag at a block's first byte; the marker of an EA05 header would be in another block.
    EXPECT_EQ(Run(FindAutoItScript, 2 * kBlock, {{kBlock, kScript6A.substr(16)}}), kBlock - 16);
    EXPECT_EQ(Run(FindAutoItScript, 2 * kBlock, {{kBlock - 16, kScript5}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItScript, 2 * kBlock, {{kBlock, tag5}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItScript, 2 * kBlock, {{0, tag5}, {kBlock, kScript5}}), kBlock);
}

TEST_F(Scans, EA06Forms) {
    EXPECT_EQ(Run(FindAutoItEA06Header, kBlock, {{9, kScript6A}}), 9u);
    EXPECT_EQ(Run(FindAutoItEA06Header, kBlock, {{9, kScript6B}}), kNotFound); // the other pattern
    EXPECT_EQ(Run(FindAutoItEA06Header, kBlock, {{9, "EA06"}, {100, kEA06}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItEA06Header, kBlock, {{9, kPatternA}, {100, kEA06}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItEA06Header, kBlock, {{100, "EA06"}, {121, kPatternA}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItEA06Header, 2 * kBlock, {{0, kEA06.substr(1)}, {kBlock, kEA06}}), kNotFound);
    EXPECT_EQ(Run(FindAutoItEA06Header, 2 * kBlock, {{kBlock, kEA06.substr(1)}}), kBlock - 1);
    EXPECT_EQ(Run(FindAutoItEA06Header, 2 * kBlock, {{kBlock, kEA06.substr(20)}}), kBlock - 20);
    EXPECT_EQ(Run(FindAutoItEA06Header, 2 * kBlock, {{0, kPatternA.substr(4)}, {kBlock, kEA06}}), kBlock);
}

TEST_F(Scans, AlteredHeadersInTheirOrder) {
    for (size_t index = 0; index < 4; ++index) {
        EXPECT_EQ(Run(FindAlteredAutoItHeader, kBlock, {{9, kAlteredHeaders[index]}}), 9u);
        for (size_t later = index + 1; later < 4; ++later)
            EXPECT_EQ(
                Run(FindAlteredAutoItHeader, kBlock, {{800, kAlteredHeaders[index]}, {40, kAlteredHeaders[later]}}),
                800u);
    }
}

class ChunkSearch : public testing::Test {
protected:
    // The reported offset; kNotFound when the search declines.
    uint32_t Search(ChunkRange range, Fault fault = {}) {
        stream_.Restart(0, fault);
        TargetFile file = {};
        file.stream = &stream_;
        file.handle = kHandle;
        Finding finding = {kNotFound, 0};
        if (SearchChunks(file, range, &finding) == 1) {
            EXPECT_EQ(finding.size, 256u);
        }
        return finding.offset;
    }

    RecordingStream stream_;
};

TEST_F(ChunkSearch, OverlapsByTheMarkersLength) {
    for (const uint32_t place : {1u, 0x3FF0u, 0x3FF1u, 0x3FFFu, 0x4000u, 0x7FD1u, 0x9000u - 16}) {
        stream_.Resize(0);
        stream_.Resize(0x9000);
        stream_.Put(place, kMarker);
        EXPECT_EQ(Search({0, 0x9000, 100}), place);
    }
    EXPECT_EQ(stream_.TakeCalls(), "S0 R0x4000 S0x3FF0 R0x4000 S0x7FE0 R0x4000");
    stream_.Put(0, kMarker); // offset 0 counts as none
    EXPECT_EQ(Search({0, 0x9000, 100}), kNotFound);
}

TEST_F(ChunkSearch, EndsAtItsLimits) {
    stream_.Resize(0x20000);
    stream_.Put(0x8000, kMarker);
    EXPECT_EQ(Search({0, 0x7FE1, 3}), 0x8000u);
    EXPECT_EQ(Search({0, 0x7FE0, 3}), kNotFound); // the third chunk would begin at the limit
    EXPECT_EQ(Search({0, 0x20000, 2}), kNotFound);
    EXPECT_EQ(stream_.TakeCalls(), "S0 R0x4000 S0x3FF0 R0x4000");
    EXPECT_EQ(Search({-1, 0x20000, 9}), kNotFound);
    EXPECT_EQ(stream_.TakeCalls(), "");
    EXPECT_EQ(Search({0, 0x20000, 9}, {Fault::SeekElsewhere, 3}), kNotFound);
    // A short chunk is searched, and is the last.
    EXPECT_EQ(Search({0, 0x20000, 9}, {Fault::ReadShort, 3}), 0x8000u);
    EXPECT_EQ(Search({0, 0x20000, 9}, {Fault::ReadShort, 1}), kNotFound);
    EXPECT_EQ(stream_.TakeCalls(), "S0 R0x4000");
    EXPECT_EQ(Search({0, 0x20000, 9}, {Fault::ReadTooMuch, 1}), 0x8000u);
}

} // namespace
} // namespace tavrik::tests
