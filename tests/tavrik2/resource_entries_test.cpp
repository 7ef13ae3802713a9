// The walk through the first block of a resource directory.
#include <functional>

#include <gtest/gtest.h>

#include "tavrik2/locators/scans/resource_data_entries.h"
#include "tests/support/resource_tree.h"

namespace tavrik::tests {
namespace {

using namespace tavrik2;

constexpr uint32_t kBase = 0x1000; // of the directory; without sections its RVA and its file offset are the same
constexpr uint32_t kNoCount = 99;

// Type 24 with three resources in one language each; every data entry's address says where the entry is.
void Ordinary(ResourceTree &tree) {
    tree.Directory(0, {{16, 0x300}, {24, 0x280}, {24, kSub | 0x40}, {24, kSub | 0x800}});
    tree.Directory(0x40, {{1, kSub | 0x80}, {2, kSub | 0xA0}, {3, kSub | 0xC0}}, 1);
    for (uint32_t index = 0; index < 3; ++index) {
        tree.Directory(0x80 + 0x20 * index, {{1033, 0x200 + 0x10 * index}, {1034, 0x400}});
        tree.Data(0x200 + 0x10 * index, 0x200 + 0x10 * index);
    }
}

// A chain of `depth` directories below the type's, then data at 0x700 or another end; a second resource follows.
void Chain(ResourceTree &tree, uint32_t depth, uint32_t end = 0x700) {
    tree.Directory(0x40, {{1, depth == 0 ? end : kSub | 0x500}, {2, kSub | 0xA0}});
    for (uint32_t level = 1; level <= depth; ++level)
        tree.Directory(0x4E0 + 0x20 * level, {{1, level == depth ? end : kSub | (0x500 + 0x20 * level)}});
    tree.Data(0x700, 0x700);
}

struct Case {
    const char *what;
    std::function<void(ResourceTree &)> change; // of the ordinary tree
    int answer;
    uint32_t count;
    std::vector<uint32_t> places; // of the data found
    int32_t type = 24;
    int32_t capacity = 5;
};

// clang-format off
const Case kCases[] = {
    {"ordinary", [](ResourceTree &) {}, 1, 3, {0x200, 0x210, 0x220}},
    {"capacity 1", [](ResourceTree &) {}, 1, 1, {0x200}, 24, 1},
    {"capacity 2", [](ResourceTree &) {}, 1, 2, {0x200, 0x210}, 24, 2},
    {"type absent", [](ResourceTree &) {}, 0, kNoCount, {}, 10},
    {"type without a subdirectory", [](ResourceTree &) {}, 0, kNoCount, {}, 16},
    {"any type takes data for a directory", [](ResourceTree &t) { t.Directory(0x300, {{1, 0x200}}); }, 1, 1, {0x200}, -1},
    {"any type takes a named one", [](ResourceTree &t) { t.Directory(0, {{kSub | 0x700, kSub | 0x40}}, 1); },
     1, 3, {0x200, 0x210, 0x220}, -1},
    {"root without entries", [](ResourceTree &t) { t.Count(0, 0, 0); }, 0, kNoCount, {}, -1},
    {"named entries count, too", [](ResourceTree &t) { t.Count(0, 3, 0); }, 1, 3, {0x200, 0x210, 0x220}},
    {"one root entry short", [](ResourceTree &t) { t.Count(0, 1, 1); }, 0, kNoCount, {}},
    {"root longer than the block", [](ResourceTree &t) { t.Count(0, 0xFFFF, 0xFFFF); }, 0, kNoCount, {}, 77},
    {"last usable type directory", [](ResourceTree &t) { t.Directory(0, {{24, kSub | 4079}}); t.Count(4079, 0, 1); }, 0, 0, {}},
    {"type directory at the end", [](ResourceTree &t) { t.Directory(0, {{24, kSub | 4080}}); }, 0, kNoCount, {}},
    {"type directory far outside", [](ResourceTree &t) { t.Directory(0, {{24, kSub | 0x7FFFFFF8}}); }, 0, kNoCount, {}},
    {"no resources", [](ResourceTree &t) { t.Count(0x40, 0, 0); }, 0, kNoCount, {}},
    {"15 resources", [](ResourceTree &t) { t.Count(0x40, 7, 8); }, 1, 5, {0x200, 0x210, 0x220}},
    {"16 resources", [](ResourceTree &t) { t.Count(0x40, 8, 8); }, 0, kNoCount, {}},
    {"data at 4079", [](ResourceTree &t) { t.Directory(0x80, {{1, 4079}}); t.Data(4079, 4079); }, 1, 3, {4079, 0x210, 0x220}},
    {"data at 4080", [](ResourceTree &t) { t.Directory(0x80, {{1, 4080}}); }, 1, 2, {0x210, 0x220}},
    {"data offset that wraps", [](ResourceTree &t) { t.Directory(0x80, {{1, 0x7FFFFFF8}}); }, 1, 2, {0x210, 0x220}},
    {"subdirectory outside", [](ResourceTree &t) { t.Directory(0x40, {{1, kSub | 4080}, {2, kSub | 0xA0}}); }, 1, 1, {0x210}},
    {"its entry outside", [](ResourceTree &t) { t.Directory(0x40, {{1, kSub | 4072}, {2, kSub | 0xA0}}); }, 1, 1, {0x210}},
    {"nothing but holes", [](ResourceTree &t) { t.Directory(0x40, {{1, 4080}, {2, kSub | 4080}}); }, 0, 0, {}},
    {"data right below the type", [](ResourceTree &t) { Chain(t, 0); }, 1, 2, {0x700, 0x210}},
    {"four nested directories", [](ResourceTree &t) { Chain(t, 4); }, 1, 2, {0x700, 0x210}},
    {"five nested directories", [](ResourceTree &t) { Chain(t, 5); }, 0, kNoCount, {}},
    {"a fifth one outside", [](ResourceTree &t) { Chain(t, 4, kSub | 4080); }, 1, 1, {0x210}},
    {"a fifth one's entry outside", [](ResourceTree &t) { Chain(t, 4, kSub | 4072); }, 1, 1, {0x210}},
    {"too deep after one that is not", [](ResourceTree &t) { t.Directory(0xA0, {{1, kSub | 0xA0}}); }, 0, kNoCount, {}},
    {"too deep after as many as fit", [](ResourceTree &t) { t.Directory(0xA0, {{1, kSub | 0xA0}}); }, 1, 1, {0x200}, 24, 1},
    {"five resources, each with a directory",
     [](ResourceTree &t) { t.Directory(0x40, {{1, kSub | 0x80}, {2, kSub | 0x80}, {3, kSub | 0x80}, {4, kSub | 0x80}, {5, kSub | 0x80}}); },
     1, 5, {0x200, 0x200, 0x200, 0x200, 0x200}},
    {"counts of a language directory say nothing", [](ResourceTree &t) { t.Count(0x80, 0, 0); }, 1, 3, {0x200, 0x210, 0x220}},
    {"a sum of counts above 16 bits", [](ResourceTree &t) { t.Count(0x40, 0xFFFF, 4); }, 0, kNoCount, {}},
    {"the same in the root", [](ResourceTree &t) { t.Count(0, 0xFFFF, 1); }, 1, 3, {0x200, 0x210, 0x220}},
    {"only the low half of the type", [](ResourceTree &t) { t.Directory(0, {{0x10018, kSub | 0x40}}); }, 0, kNoCount, {}},
    {"a directory inside itself", [](ResourceTree &t) { t.Directory(0x80, {{1, kSub | 0x80}}); }, 0, kNoCount, {}},
    {"a second resource beyond the block",
     [](ResourceTree &t) { t.Directory(0, {{24, kSub | 4064}}); t.Directory(4064, {{1, 0x200}}); t.Count(4064, 0, 2); },
     1, 1, {0x200}},
};
// clang-format on

class ResourceEntries : public testing::Test {
protected:
    ResourceEntries() {
        PeFile().PutInto(stream_);
        stream_.Resize(kBase + 4096);
    }

    int Find(int32_t type, int32_t capacity, uint32_t rva = kBase) {
        return FindResourceDataEntries(kHandle, rva, static_cast<int32_t>(stream_.size()), type, entries_, capacity,
                                       &count_, &stream_);
    }

    RecordingStream stream_;
    ResourceDataEntry entries_[16] = {};
    uint32_t count_ = kNoCount;
};

TEST_F(ResourceEntries, EveryShapeOfTree) {
    ResourceTree tree(stream_, kBase);
    for (const Case &test : kCases) {
        SCOPED_TRACE(test.what);
        stream_.Put(kBase, std::string(4096, '\0'));
        Ordinary(tree);
        test.change(tree);
        count_ = kNoCount;
        EXPECT_EQ(Find(test.type, test.capacity), test.answer);
        EXPECT_EQ(count_, test.count);
        for (size_t index = 0; index < test.places.size(); ++index)
            EXPECT_EQ(Bytes(entries_[index]), Bytes(ResourceDataEntry{test.places[index], 1, 2, 3}));
    }
}

TEST_F(ResourceEntries, ArgumentsAreCheckedBeforeTheFileIsRead) {
    ResourceTree tree(stream_, kBase);
    Ordinary(tree);
    EXPECT_EQ(Find(24, 5, 0), 0);
    EXPECT_EQ(Find(24, 0), 0);
    EXPECT_EQ(Find(24, -1), 0);
    EXPECT_EQ(FindResourceDataEntries(kHandle, kBase, 0x2000, 24, nullptr, 5, &count_, &stream_), 0);
    EXPECT_EQ(FindResourceDataEntries(kHandle, kBase, 0x2000, 24, entries_, 5, nullptr, &stream_), 0);
    EXPECT_EQ(FindResourceDataEntries(kHandle, kBase, 0x2000, 24, entries_, 5, &count_, nullptr), 0);
    EXPECT_EQ(stream_.TakeCalls(), "");
    EXPECT_EQ(count_, kNoCount);
}

TEST_F(ResourceEntries, TheBlockMustBeInTheFileAndWhole) {
    ResourceTree tree(stream_, kBase);
    Ordinary(tree);
    EXPECT_EQ(Find(24, 1), 1);
    const std::string calls = stream_.TakeCalls();
    EXPECT_EQ(calls.substr(calls.size() - 16), " S0x1000 R0x1000");
    for (const Fault fault :
         {Fault{Fault::ReadShort, 1, 4096}, {Fault::ReadTooMuch, 1, 4096}, {Fault::SeekElsewhere, 15}}) {
        stream_.Restart(0, fault);
        count_ = kNoCount;
        EXPECT_EQ(Find(24, 1), 0) << fault.kind;
        EXPECT_TRUE(stream_.HasFailed()) << fault.kind;
        EXPECT_EQ(count_, kNoCount);
    }
    // An offset at the file's end, negative or 0 is not sought.
    PeFile{{Section("start", 0x100000, 0x2000, 0, 0x2000)}}.PutInto(stream_);
    for (const uint32_t rva : {stream_.size(), 0x80000000u, 0xFFFFFFFFu, 0x100000u}) {
        stream_.Restart();
        EXPECT_EQ(Find(24, 1, rva), 0);
        EXPECT_EQ(stream_.TakeCalls().find("R0x1000"), std::string::npos);
    }
}

} // namespace
} // namespace tavrik::tests
