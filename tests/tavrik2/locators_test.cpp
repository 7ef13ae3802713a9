// What the locators find once their gates are passed, and what they leave alone when the file or the platform fails
// them.
#include <cstring>
#include <functional>

#include <gtest/gtest.h>

#include "tests/support/locator_scenes.h"
#include "tests/support/platform_double.h"

namespace tavrik::tests {
namespace {

// Raw data whose script would be found if its size did not matter, and a script at the end of the resource directory.
std::function<void(Scene &)> TooSmall(uint32_t size, uint32_t directory_size) {
    return [=](Scene &s) {
        s.Resource(10, {{kPayloadRva, size}});
        s.stream.Put(kResources + directory_size, kScript5 + std::string(4096, '\0'));
        s.records.file_size = static_cast<int32_t>(s.stream.size());
    };
}

std::function<void(Scene &)> NoResourceSection() {
    return [](Scene &s) { s.file.sections[4].Name[0] = '-'; };
}

// clang-format off
// The find of that name with one change: it is declined once its gate is passed, or its payload is at another offset.
struct Change {
    uint32_t entry;
    const char *find;
    uint32_t offset;
    const char *why;
    std::function<void(Scene &)> change;
};

constexpr uint32_t kNone = 0; // no offset: declined

const Change kMisses[] = {
    {8, "adjoining", kNone, "neither name nor kind", WithSection(4, Section(".rsrc1", 0, 0, 0x5000, 0x1000, 0x40000000))},
    {8, "apart", kNone, "only one bit of the kind", WithSection(4, Section("other", 0, 0, 0x5000, 0x1000, 0x40))},
    {8, "apart", kNone, "section 4 ends at 0", WithSection(4, Section(".rsrc", 0, 0, 0, 0))},
    {8, "section 4 ends last", kNone, "it ends at the file's end", [](Scene &s) { ++s.file.sections[4].SizeOfRawData; }},
    {8, "apart", kNone, "section 4 ends after the file", WithSection(4, Section(".rsrc", 0, 0, 0x7F000000, 0x1000))},
    {12, "second offset", kNone, "half a marker at each of two offsets",
     [](Scene &s) { s.stream.Resize(0xFF202); s.stream.Put(0xF2002, kMarker.substr(2, 2)); }},
    {13, "resources", kNone, "an address that nothing maps", [](Scene &s) { s.records.data_dirs[4] = 0xF0000000; }},
    {15, "section 0", kNone, "the last chunk begins at its end", [](Scene &s) { --s.file.sections[0].SizeOfRawData; }},
    {15, "section 0", kNone, "section 0 is too small", [](Scene &s) { s.file.sections[0].VirtualSize = 0x64FFF; }},
    {15, "section 0", kNone, "section 0 is too large", [](Scene &s) { s.file.sections[0].SizeOfRawData = 0x67001; }},
    {22, "seven sections", kNone, "the section is too large", [](Scene &s) { s.file.sections[6].SizeOfRawData = 0xF501; }},
    {22, "seven sections", kNone, "it begins too early", [](Scene &s) { s.file.sections[6].PointerToRawData = 0x7DFFF; }},
    {22, "seven sections", kNone, "no such section", [](Scene &s) { s.file.sections[6].Name[0] = '-'; }},
    {25, "small file", kNone, "a smaller file", [](Scene &s) { s.records.file_size = 0x300000; }},
    {25, "small file", kNone, "a second manifest", [](Scene &s) { s.Resource(24, {{kPayloadRva, 0x10}, {kPayloadRva, 0x10}}); }},
    {25, "small file", kNone, "a text half outside", [](Scene &s) { s.stream.Put(0x6800 + 24576 - 1, "'"); }},
    {25, "small file", kNone, "the last position", [](Scene &s) { s.stream.Put(0x6810 + 0x16B000 + 24571, '-' + kWord.bytes); }},
    {26, "second block", kNone, "another text", [](Scene &s) { s.stream.Put(0x6800 + 24576 - 1, "'"); }},
    {26, "short block", kNone, "the last position", [](Scene &s) { s.stream.Resize(0xE000 + 104); }},
    {28, "last row", kNone, "another row, of another resource directory",
     [](Scene &s) { s.stream.Put(kLastPointer + 0x35000, "x"); s.stream.Put(kResources + 0x35000, kWord.bytes); }},
    {28, "hidden resource directory", kNone, "one count only hides it", [](Scene &s) { --s.records.opt_header.NumberOfRvaAndSizes; }},
    {29, "a row", kNone, "another resource directory", [](Scene &s) { ++s.records.data_dirs[4]; }},
    {29, "a row", kNone, "entry 28's count that hides the resource directory",
     [](Scene &s) { ++s.records.data_dirs[4]; s.records.opt_header.NumberOfRvaAndSizes = 0x90000010; }},
    {29, "a row", kNone, "entry 28's other marker", [](Scene &s) { s.stream.Put(kLastPointer + 0x9DC00, kOtherWord.bytes); }},
    {31, "the address as an offset", kNone, "no such section", NoResourceSection()},
    {32, "resource", kNone, "a resource that is too small", TooSmall(0xBCFF, 0x24000)},
    {33, "resource", kNone, "a resource that is too small", TooSmall(0x2FF, 0x11000)},
    {37, ".rsrc, second block", kNone, "no such section", NoResourceSection()},
    {38, "resource", kNone, "only in the second resource", [](Scene &s) { s.Resource(10, {{0x90000, 9}, {kPayloadRva, 9}}); }},
    {38, "short resource", kNone, "less than the marker", [](Scene &s) { s.stream.Resize(0x6807); }},
    {38, "resource", kNone, "a marker cut short", [](Scene &s) { s.stream.Resize(0x6800 + 1016 + 6); }},
    {39, "fifth block", kNone, "a sixth block",
     [](Scene &s) { s.stream.Put(0x7000 + 4 * 4096, "x"); s.stream.Put(0x7000 + 5 * 4096, kRar); }},
    {45, "version resource", kNone, "too large", WithResource(16, 0x201)},
    {45, "version resource", kNone, "larger than a signed size", WithResource(16, 0x80000000)},
    {47, "resource", kNone, "a resource that is too small", TooSmall(0x2FF, 0x17000)},
    {48, "first message table", kNone, "larger than a signed size",
     [](Scene &s) { s.Resource(11, {{kPayloadRva, 0x80000000}, {0x90000, 1}}); }},
    {48, "first message table", kNone, "only one", [](Scene &s) { s.tree.Count(0x40, 0, 1); }},
    {49, "last type", kNone, "too small", WithResource(17, 0x25000)},
    {49, "last type", kNone, "one type on", WithResource(18, 0x25001)},
};

// Section 5 at another address, with its raw data from 0x10000 on.
std::function<void(Scene &)> WithBorderAt(uint32_t address) {
    return WithSection(5, Section(".reloc", address, 0x1000, 0x10000, 0x1000));
}

// Two types of resources: RVA and size of the only one of each.
std::function<void(Scene &)> WithTypes(uint32_t rva_3, uint32_t size_3, uint32_t rva_10, uint32_t size_10) {
    return [=](Scene &s) {
        s.tree.Directory(0, {{3, kSub | 0x40}, {10, kSub | 0x80}});
        s.tree.Directory(0x40, {{1, 0x100}});
        s.tree.Directory(0x80, {{1, 0x110}});
        s.tree.Data(0x100, rva_3, size_3);
        s.tree.Data(0x110, rva_10, size_10);
    };
}

const Change kMoved[] = {
    {11, "last section", 0x9505, "the first of two markers", [](Scene &s) { s.stream.Put(0x9600, kNullsoft); }},
    {25, "larger file", 0x6810 + 0x16B000, "not the end is mapped, but the start", WithBorderAt(kPayloadRva + 0x10)},
    {26, "after the manifest", 0xE000, "not the end is mapped, but the start", WithBorderAt(kPayloadRva + 0x7800)},
    {26, "after the manifest", 0xE005, "the first of two words", [](Scene &s) { s.stream.Put(0xE100, kWord.bytes); }},
    {32, "resource", 0x6800, "sizes are unsigned", WithResource(10, 0x80000000)},
    {33, "resource", 0x6800, "sizes are unsigned", WithResource(10, 0x80000000)},
    {47, "resource", 0x6800, "sizes are unsigned", WithResource(10, 0x80000000)},
    {49, "first type", 0x6800, "sizes are unsigned", WithResource(1, 0x80000000)},
    {32, "end of the resources", 0x10000, "the end is mapped", WithBorderAt(kResourceRva + 0x24000)},
    {33, "end of the resources", 0x10000, "the end is mapped", WithBorderAt(kResourceRva + 0x11000)},
    {46, "second block", 0x10000, "the end is mapped", WithBorderAt(kResourceRva + 0x13000)},
    {47, "end of the resources", 0x10000, "the end is mapped", WithBorderAt(kResourceRva + 0x17000)},
    {37, ".rsrc, second block", 0x5004, "the address is mapped, and that rounds", [](Scene &s) { s.file.sections[4].PointerToRawData = 0x5100; }},
    {38, "resource", 0x6800, "the first resource", [](Scene &s) { s.Resource(10, {{kPayloadRva, 9}, {0x90000, 9}}); }},
    {38, "resource", 0x6800, "the file's size is no bound", [](Scene &s) { s.records.file_size = 0x6800; }},
    {49, "first type", 0x6800, "a smaller resource is passed over", WithTypes(0x90000, 0x25000, kPayloadRva, 0x25001)},
    {49, "first type", 0x6800, "the lower type", WithTypes(kPayloadRva, 0x25001, 0x90000, 0x25001)},
};
// clang-format on

class Locators : public testing::TestWithParam<uint32_t> {
protected:
    Locators() { Platform() = {}; }

    // Runs a check for every find of the entry.
    template <typename Check>
    void ForEachFind(Check check) {
        int checked = 0;
        for (const Find &find : kFinds) {
            if (find.entry != GetParam())
                continue;
            SCOPED_TRACE(find.what);
            Scene scene(find.entry, find.wanted);
            Build(scene, find);
            check(find, scene);
            ++checked;
        }
        EXPECT_GT(checked, 0);
    }
};

TEST_P(Locators, FindTheirPayload) {
    ForEachFind([](const Find &find, Scene &scene) {
        LocatorResult result = kUntouched;
        EXPECT_EQ(scene.Call(&result), 1);
        EXPECT_EQ(Bytes(result), Bytes(LocatorResult{find.payload.kind, find.offset, find.payload.size}));
        EXPECT_EQ(scene.stream.TakeCalls().find('!'), std::string::npos);
        EXPECT_EQ(Platform().live_blocks, 0);
        // Each byte of the payload decides, but for those that may be anything.
        for (uint32_t byte = 0; byte < find.payload.bytes.size(); ++byte) {
            const char right = find.payload.bytes[byte];
            if (right == '?')
                continue;
            for (const int other : {1, 'a' ^ 'A'}) {
                scene.stream.Put(find.offset + byte, std::string(1, static_cast<char>(right ^ other)));
                result = kUntouched;
                EXPECT_EQ(scene.Call(&result), 0) << "byte " << byte;
                EXPECT_EQ(Bytes(result), Bytes(kUntouched));
            }
            scene.stream.Put(find.offset + byte, std::string(1, right));
        }
    });
}

TEST_P(Locators, SurviveEveryFaultOfTheStream) {
    ForEachFind([](const Find &find, Scene &scene) {
        for (uint32_t row = 0; row < 2 * std::size(kFaultKinds); ++row) {
            Fault fault = {kFaultKinds[row / 2]};
            fault.lasts = row % 2 != 0;
            int declined = 0;
            do {
                ++fault.nth;
                ASSERT_LT(fault.nth, 1000u);
                LocatorResult result = kUntouched;
                const int answer = scene.Call(&result, fault);
                EXPECT_EQ(Platform().live_blocks, 0);
                const LocatorResult found = {find.payload.kind, find.offset, find.payload.size};
                EXPECT_EQ(Bytes(result), Bytes(answer == 0 ? kUntouched : found))
                    << "kind " << fault.kind << " call " << fault.nth << (fault.lasts ? " and all after it" : "");
                EXPECT_TRUE(answer == 1 || scene.stream.HasFailed());
                declined += answer == 0;
            } while (scene.stream.HasFailed());
            EXPECT_TRUE(declined > 0 || fault.kind != Fault::ReadNothing);
        }
    });
}

INSTANTIATE_TEST_SUITE_P(Entry, Locators, testing::ValuesIn([] {
                             std::vector<uint32_t> entries;
                             for (uint32_t entry = 0; entry < LOCATOR_COUNT; ++entry)
                                 if (entry != 27)
                                     entries.push_back(entry);
                             return entries;
                         }()),
                         testing::PrintToStringParamName());

TEST(Locator, OffsetsAreSigned) {
    for (const uint32_t entry : {11u, 39u, 40u, 41u, 44u}) {
        Scene scene(entry);
        Build(scene, FindOf(entry));
        scene.records.last_section.PointerToRawData = 0x7FFFF000;
        scene.records.last_section.SizeOfRawData = 0x2000;
        LocatorResult result = kUntouched;
        EXPECT_EQ(scene.Call(&result), 0);
        EXPECT_FALSE(scene.stream.WasCalled()) << entry;
    }
}

TEST(Locator, NearMissesAreDeclinedAndMovedPayloadsFound) {
    std::vector<Change> changes(std::begin(kMisses), std::end(kMisses));
    changes.insert(changes.end(), std::begin(kMoved), std::end(kMoved));
    for (const Change &row : changes) {
        SCOPED_TRACE(testing::Message() << row.entry << ": " << row.why);
        const Find &find = FindOf(row.entry, row.find);
        Scene scene(find.entry, find.wanted);
        Build(scene, find);
        if (row.offset != kNone)
            scene.stream.Put(find.offset, std::string(find.payload.bytes.size(), '\0'));
        row.change(scene);
        scene.file.PutInto(scene.stream);
        if (row.offset != kNone)
            scene.stream.Put(row.offset, find.payload.bytes);
        const LocatorResult found = {find.payload.kind, row.offset, find.payload.size};
        LocatorResult result = kUntouched;
        EXPECT_EQ(scene.Call(&result), row.offset != kNone);
        EXPECT_EQ(Bytes(result), Bytes(row.offset != kNone ? found : kUntouched));
    }
}

// Entry 41 compares its offset with the section's start only, which may be negative, too.
TEST(Locator, Entry41ReadsInANegativeSection) {
    Scene scene(41);
    Build(scene, FindOf(41));
    scene.records.last_section.PointerToRawData = 0x80000000;
    scene.records.last_section.SizeOfRawData = 0x2000;
    LocatorResult result = kUntouched;
    EXPECT_EQ(scene.Call(&result), 0);
    EXPECT_EQ(scene.stream.TakeCalls(), "S0x80001000 R0x1000");
}

// A manifest's text may be anywhere in its block, from the first byte on.
TEST(Locator, ManifestTextsAtTheStartOfTheBlock) {
    for (const auto &[entry, text] : {std::pair(25u, "level=\"requireAdministrator\""), {26u, "name=\"AutoIt3\""}}) {
        Scene scene(entry);
        Build(scene, FindOf(entry));
        scene.stream.Put(0x6800 + 24576 - 1, "'");
        LocatorResult result = kUntouched;
        EXPECT_EQ(scene.Call(&result), 0) << entry;
        scene.stream.Put(0x6800, text);
        EXPECT_EQ(scene.Call(&result, {Fault::ReadShort, 1, 24576}), 0) << entry << ": the block must be whole";
        EXPECT_EQ(scene.Call(&result), 1) << entry;
    }
}

TEST(Locator, Entry5NeedsAStream) {
    Scene scene(5);
    Build(scene, FindOf(5));
    LocatorResult result = kUntouched;
    EXPECT_EQ(scene.CallWith(nullptr, &result), 0);
    EXPECT_EQ(scene.CallWith(&scene.stream, &result), 1);
}

TEST(Locator, Entry27DeclinesEverything) {
    Scene scene(27);
    LocatorResult result = kUntouched;
    EXPECT_EQ(scene.Call(&result), 0);
    EXPECT_FALSE(scene.stream.WasCalled());
    EXPECT_EQ(Bytes(result), Bytes(kUntouched));
}

TEST(Locator, TheTableHasFiftyEntriesAndNeedsBothSlots) {
    const LocatorTableEntry *table = nullptr;
    uint32_t count = 77;
    EXPECT_EQ(HeurGetLocatorTable(nullptr, &count), 0u);
    EXPECT_EQ(HeurGetLocatorTable(&table, nullptr), 0u);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(count, 77u);
    ASSERT_EQ(HeurGetLocatorTable(&table, &count), 1u);
    EXPECT_EQ(count, 50u);
    EXPECT_EQ(std::memcmp(table + count, &count, sizeof count), 0) << "the count follows the entries";
    for (uint32_t entry = 0; entry < count; ++entry)
        EXPECT_EQ(table[entry].flags, entry == 47 ? 2u : 1u) << entry;
}

// Entries 11, 35 and 36 borrow their block from the platform: its size, and what was done to the file before.
TEST(Locator, BorrowedBlocks) {
    const struct {
        uint32_t entry;
        const char *event;
        const char *last_call; // before the block is taken
    } cases[] = {
        {11, "Alloc 8192 0 0", "S0x9500"}, {35, "Alloc 24576 0 0", "S456"}, {36, "Alloc 8192 0 0", "S0x22000"}};
    for (const auto &test : cases) {
        Platform() = {};
        Platform().alloc_fails = true;
        Scene scene(test.entry);
        Build(scene, FindOf(test.entry));
        LocatorResult result = kUntouched;
        EXPECT_EQ(scene.Call(&result), 0) << test.entry;
        EXPECT_EQ(Bytes(result), Bytes(kUntouched));
        EXPECT_EQ(Platform().TakeEvents(), std::vector<std::string>{test.event});
        const std::string calls = scene.stream.TakeCalls();
        EXPECT_EQ(calls.substr(calls.rfind(' ') + 1), test.last_call) << test.entry;
    }
}

} // namespace
} // namespace tavrik::tests
