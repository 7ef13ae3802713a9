// Files and what reads them: sources, random access, path lists, folder walks.
#include <algorithm>
#include <cstring>
#include <random>

#include <gtest/gtest.h>

#include "base/byte_source.h"
#include "base/error.h"
#include "base/file_bytes.h"
#include "base/path_list.h"
#include "base/text.h"
#include "base/walk.h"
#include "tests/support/fresh_folder.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;

std::string Noise(std::size_t length) {
    std::mt19937 random(1);
    std::string bytes(length, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(1 + random() % 255); });
    return bytes;
}

/** Counts the reads and fails from an offset on. */
class BrittleSource final : public base::ByteSource {
public:
    explicit BrittleSource(std::string bytes, uint64_t sound = UINT64_MAX) : bytes_(std::move(bytes)), sound_(sound) {}

    uint64_t size() const override { return bytes_.size(); }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override {
        ++reads;
        if (offset + length > sound_ && sound_ < size())
            error_ = "broken";
        return error_.empty() ? base::MemorySource(BytesOf(bytes_)).ReadAt(offset, buffer, length) : 0;
    }
    const std::string &error() const override { return error_; }

    std::size_t reads = 0;

private:
    std::string bytes_;
    uint64_t sound_;
    std::string error_;
};

// ---- Sources -------------------------------------------------------------------------------------------------------

TEST(ByteSource, ReadsTheSameFromFilesAndMemory) {
    const FreshFolder folder;
    constexpr std::size_t kPage = 16 * 1024;
    const std::string bytes = Noise(3 * kPage + 100);
    Write("file", bytes);
    base::FileSource file("file");
    base::MemorySource memory(BytesOf(bytes));
    EXPECT_EQ(file.size(), bytes.size());
    EXPECT_EQ(memory.size(), bytes.size());
    EXPECT_TRUE(file.InMemory().empty());
    EXPECT_EQ(memory.InMemory().data(), BytesOf(bytes).data());
    std::mt19937 random(2);
    const std::size_t edges[] = {
        0, 1, kPage - 1, kPage, kPage + 1, 3 * kPage, bytes.size() - 1, bytes.size(), bytes.size() + 1};
    for (int round = 0; round < 3000; ++round) {
        const std::size_t offset =
            round % 2 == 0 ? edges[random() % std::size(edges)] : random() % (bytes.size() + kPage);
        const std::size_t length = round % 3 == 0 ? random() % (2 * kPage) : random() % 64;
        const std::string expected = offset < bytes.size() ? bytes.substr(offset, length) : "";
        for (base::ByteSource *source :
             {static_cast<base::ByteSource *>(&file), static_cast<base::ByteSource *>(&memory)}) {
            std::string read(length + 1, '\0');
            ASSERT_EQ(source->ReadAt(offset, read.data(), length), expected.size()) << offset << ", " << length;
            ASSERT_EQ(read.substr(0, expected.size()), expected) << offset << ", " << length;
            ASSERT_EQ(read.back(), '\0') << "wrote after the buffer";
        }
    }
    EXPECT_EQ(file.ReadAt(UINT64_MAX, nullptr, 1), 0u);
    EXPECT_EQ(memory.ReadAt(UINT64_MAX, nullptr, 1), 0u);
    EXPECT_EQ(file.error() + memory.error(), "");
}

TEST(FileSource, EndsWhereAFileHasBeenCut) {
    const FreshFolder folder;
    const std::string bytes = Noise(40'000);
    Write("file", bytes);
    base::FileSource file("file");
    fs::resize_file("file", 20'000);
    std::string read(30'000, '\0');
    EXPECT_EQ(file.size(), bytes.size());
    EXPECT_EQ(file.ReadAt(0, read.data(), read.size()), 20'000u);
    EXPECT_EQ(file.ReadAt(19'990, read.data(), 20), 10u);
    EXPECT_EQ(file.ReadAt(20'000, read.data(), 20), 0u);
    EXPECT_EQ(file.ReadAt(39'000, read.data(), 20), 0u);
    EXPECT_EQ(file.error(), "");
}

TEST(FileSource, SaysWhyItCannotOpen) {
    const FreshFolder folder;
    fs::create_directory("folder");
    Write("file", "text");
    const std::pair<const char *, const char *> rows[] = {
        {"missing", "no such file; check the name, or whether it has gone"},
        {"file/below", "no such file; check the name, or whether it has gone"},
        {"folder", "is a folder; name a file"},
#ifndef _WIN32
        {"/dev/null", "is a device, pipe or socket; only regular files can be scanned"},
#endif
    };
    for (const auto &[path, reason] : rows)
        for (const auto access : {base::FileSource::Access::Read, base::FileSource::Access::ReadWrite})
            try {
                base::FileSource source(path, access);
                ADD_FAILURE() << path << " is opened";
            } catch (const base::Error &error) {
                EXPECT_EQ(error.reason(), reason) << path;
                EXPECT_EQ(error.what(), std::string(path) + ": " + reason);
            }
    base::FileSource writable("file", base::FileSource::Access::ReadWrite);
    EXPECT_EQ(ReadFile("file"), "text");
}

// ---- Random access -------------------------------------------------------------------------------------------------

TEST(FileBytes, ReadsAllOrNothingWhateverTheSource) {
    constexpr std::size_t kPage = 16 * 1024;
    const std::string bytes = Noise(20 * kPage + 5); // more pages than are kept
    base::MemorySource memory(BytesOf(bytes));
    BrittleSource stream(bytes);
    base::FileBytes of_memory(memory);
    base::FileBytes of_stream(stream);
    std::mt19937 random(3);
    for (int round = 0; round < 4000; ++round) {
        const std::size_t offset = round % 4 == 0 ? bytes.size() - random() % 20 : random() % bytes.size();
        const std::size_t length = round % 5 == 0 ? random() % (3 * kPage) : random() % 20;
        const bool fits = length <= bytes.size() - offset;
        for (base::FileBytes *file : {&of_memory, &of_stream}) {
            std::string read(length, '\0');
            ASSERT_EQ(file->Read(offset, read.data(), length), fits) << offset << ", " << length;
            if (fits) {
                ASSERT_EQ(read, bytes.substr(offset, length));
            }
            const auto copy = file->Copy({offset, length});
            ASSERT_EQ(copy.has_value(), fits && length > 0);
            if (copy) {
                ASSERT_EQ(std::string(copy->begin(), copy->end()), bytes.substr(offset, length));
            }
        }
    }
    EXPECT_EQ(of_stream.size(), bytes.size());
    EXPECT_FALSE(of_memory.Read(UINT64_MAX, nullptr, 1));
    EXPECT_TRUE(of_memory.Read(bytes.size(), nullptr, 0));
    EXPECT_FALSE(of_memory.Copy({UINT64_MAX, 1}));
}

TEST(FileBytes, KeepsPages) {
    BrittleSource stream(Noise(1 << 20));
    base::FileBytes file(stream);
    for (int round = 0; round < 100; ++round)
        for (uint64_t page = 0; page < 16; ++page)
            EXPECT_TRUE(file.Get<uint32_t>(page * 16 * 1024 + 8 * static_cast<unsigned>(round)));
    EXPECT_EQ(stream.reads, 16u);
}

TEST(FileBytes, GetsNumbersAndTexts) {
    const std::string bytes = std::string("\x01\x82\x03\x84\x05\x86\x07\x88", 8) + std::string("name\0\0", 6) +
                              std::string(70, 'a') + std::string(1, '\0') + "end";
    for (const bool in_memory : {true, false}) {
        base::MemorySource memory(BytesOf(bytes));
        BrittleSource stream(bytes);
        base::FileBytes file(in_memory ? static_cast<base::ByteSource &>(memory) : stream);
        EXPECT_EQ(file.Get<uint8_t>(1), 0x82);
        EXPECT_EQ(file.Get<uint16_t>(1), 0x0382);
        EXPECT_EQ(file.Get<uint32_t>(0), 0x84038201u);
        EXPECT_EQ(file.Get<uint64_t>(0), 0x8807860584038201u);
        EXPECT_EQ(file.Get<uint16_t>(bytes.size() - 1), std::nullopt);
        EXPECT_TRUE(file.Get<uint16_t>(bytes.size() - 2));
        EXPECT_EQ(file.Text(8), "name");
        EXPECT_EQ(file.Text(12), "");
        EXPECT_EQ(file.Text(14), std::string(70, 'a'));
        EXPECT_EQ(file.Text(14, 70), std::string(70, 'a'));
        EXPECT_EQ(file.Text(14, 69), std::nullopt);
        EXPECT_EQ(file.Text(8, 3), std::nullopt);
        EXPECT_EQ(file.Text(8, 4), "name");
        EXPECT_EQ(file.Text(bytes.size() - 3), std::nullopt); // no NUL
        EXPECT_EQ(file.Text(bytes.size()), std::nullopt);
    }
}

TEST(FileBytes, HandsRegionsOverInPieces) {
    const std::string bytes = Noise(900'000);
    BrittleSource stream(bytes);
    base::MemorySource memory(BytesOf(bytes));
    for (const bool in_memory : {true, false})
        for (const std::size_t overlap : {std::size_t{0}, std::size_t{1}, std::size_t{31}, std::size_t{70'000}})
            for (const base::Region region :
                 {base::Region{0, bytes.size()}, base::Region{5, 600'000}, base::Region{899'990, 10}}) {
                base::FileBytes file(in_memory ? static_cast<base::ByteSource &>(memory) : stream);
                std::string joined;
                std::size_t pieces = 0;
                EXPECT_TRUE(file.ForPieces(region, overlap, [&](std::span<const uint8_t> piece, uint64_t offset) {
                    const std::size_t again = pieces++ == 0 ? 0 : overlap;
                    EXPECT_GT(piece.size(), again);
                    EXPECT_EQ(offset, region.offset + joined.size() - again);
                    const std::string text(piece.begin(), piece.end());
                    EXPECT_TRUE(joined.ends_with(text.substr(0, again)));
                    joined += text.substr(again);
                    return true;
                }));
                EXPECT_EQ(joined, bytes.substr(region.offset, region.length));
                EXPECT_EQ(pieces > 1, !in_memory && region.length > 300'000 + overlap)
                    << region.length << ", " << overlap;
            }
    base::FileBytes file(stream);
    std::size_t calls = 0;
    const auto once = [&](std::span<const uint8_t>, uint64_t) { return ++calls == 0; };
    EXPECT_TRUE(file.ForPieces({0, 900'000}, 0, once));
    EXPECT_EQ(calls, 1u);
    EXPECT_TRUE(file.ForPieces({5, 0}, 0, once));
    EXPECT_TRUE(base::FileBytes(memory).ForPieces({5, 0}, 0, once));
    EXPECT_FALSE(base::FileBytes(memory).ForPieces({1, 900'000}, 0, once));
    EXPECT_FALSE(file.ForPieces({1, 900'000}, 0, once));
    EXPECT_FALSE(file.ForPieces({900'001, 1}, 0, once));
    EXPECT_EQ(calls, 1u);
}

TEST(FileBytes, TreatsWhatCannotBeReadAsAbsent) {
    BrittleSource stream(Noise(900'000), 300'000);
    base::FileBytes file(stream);
    EXPECT_TRUE(file.Get<uint32_t>(1000));
    std::size_t pieces = 0;
    EXPECT_FALSE(file.ForPieces({0, 900'000}, 4, [&](auto, auto) { return ++pieces > 0; }));
    EXPECT_EQ(pieces, 1u);
    EXPECT_FALSE(file.Get<uint32_t>(400'000));
    EXPECT_FALSE(file.Text(400'000));
    EXPECT_FALSE(file.Copy({400'000, 10}));
    EXPECT_EQ(stream.error(), "broken");
}

// ---- Path lists ----------------------------------------------------------------------------------------------------

std::vector<std::string> PathsOf(const std::string &list, char separator) {
    Write("list", list);
    base::PathList paths("list", separator);
    std::vector<std::string> texts;
    while (const auto path = paths.Next())
        texts.push_back(base::PathText(*path));
    EXPECT_FALSE(paths.Next());
    return texts;
}

TEST(PathList, CutsEntriesWhereverPiecesEnd) {
    const FreshFolder folder;
    using Texts = std::vector<std::string>;
    EXPECT_EQ(PathsOf("", '\n'), Texts{});
    EXPECT_EQ(PathsOf("\n\n", '\n'), Texts{});
    EXPECT_EQ(PathsOf("a\n\nb c\nd", '\n'), (Texts{"a", "b c", "d"}));
    EXPECT_EQ(PathsOf("a\r\n\r\nb", '\n'), (Texts{"a", "b"})) << "line ends of Windows";
    EXPECT_EQ(PathsOf(std::string("a\nb\0c\0", 6), '\0'), (Texts{"a\nb", "c"}));
    // Entries of all lengths, across the ends of what is read at once.
    std::string list;
    Texts expected;
    for (std::size_t length = 1; length < 700; ++length) {
        expected.push_back(std::string(length, static_cast<char>('a' + length % 26)));
        list += expected.back() + '\n';
    }
    EXPECT_EQ(PathsOf(list, '\n'), expected);
    const std::string longest(128 * 1024, 'x');
    EXPECT_EQ(PathsOf(longest, '\n'), Texts{longest});
}

TEST(PathList, SaysWhyItCannotBeRead) {
    const FreshFolder folder;
    const auto failure = [](const fs::path &list, char separator) -> std::string {
        try {
            base::PathList paths(list, separator);
            while (paths.Next()) {
            }
        } catch (const base::Error &error) {
            return error.what();
        }
        return "";
    };
    const std::string missing = failure("missing", '\n');
    EXPECT_TRUE(missing.starts_with("the list of paths missing cannot be read: ")) << missing;
    EXPECT_TRUE(missing.ends_with("; name a file of paths that each end with a line feed, or - for standard input"))
        << missing;
    Write("list", "a\n" + std::string(300'000, 'x'));
    EXPECT_EQ(failure("list", '\0'),
              "the list of paths list cannot be read: an entry is longer than 131072 bytes; name a file of paths that "
              "each end with a NUL, or - for standard input");
}

// ---- Walks ---------------------------------------------------------------------------------------------------------

/** Everything that a walk visits, errors in brackets; ends after `most` visits. */
std::string Visited(const fs::path &path, const base::WalkSettings &settings, std::size_t most = 100) {
    std::string text;
    std::size_t count = 0;
    const bool ended =
        !base::Walk(path, settings,
                    {[&](const fs::path &file) {
                         text += (text.empty() ? "" : " ") + file.generic_string();
                         return ++count < most;
                     },
                     [&](const fs::path &folder, const base::Error &error) {
                         text += (text.empty() ? "[" : " [") + folder.generic_string() + ": " + error.reason() + "]";
                         return ++count < most;
                     }});
    EXPECT_EQ(ended, count >= most);
    return text;
}

TEST(Walk, VisitsFilesInOrderButTheExcludedOnes) {
    const FreshFolder folder;
    for (const char *file : {"top/b/z.exe", "top/b/a.txt", "top/a.exe", "top/c.dll", "top/B/x.exe", "top/cache/y.exe"})
        Write(file, "text");
    const struct {
        std::vector<std::string> exclude;
        const char *visited;
    } rows[] = {
        {{}, "top/B/x.exe top/a.exe top/b/a.txt top/b/z.exe top/c.dll top/cache/y.exe"},
        {{"*.exe"}, "top/b/a.txt top/c.dll"},
        {{"b", "cache"}, "top/B/x.exe top/a.exe top/c.dll"},
        {{"top/b/*"}, "top/B/x.exe top/a.exe top/c.dll top/cache/y.exe"},
        {{"b/*"}, "top/B/x.exe top/a.exe top/b/a.txt top/b/z.exe top/c.dll top/cache/y.exe"},
        {{"top"}, ""},
    };
#ifdef _WIN32
    fs::remove_all("top/B"); // the same folder as b there
    for (const char *file : {"top/b/z.exe", "top/b/a.txt", "top/B/x.exe"})
        Write(file, "text");
    EXPECT_EQ(Visited("top", {true, {}}), "top/a.exe top/b/a.txt top/b/x.exe top/b/z.exe top/c.dll top/cache/y.exe");
    (void)rows;
#else
    for (const auto &row : rows)
        EXPECT_EQ(Visited("top", {true, row.exclude}), row.visited);
    EXPECT_EQ(Visited("top/", {true, {"top"}}), "") << "a separator at the end is not part of the name";
    fs::create_symlink("a.exe", "top/link");
    EXPECT_EQ(Visited("top", {true, {"b", "B", "cache"}}), "top/a.exe top/c.dll") << "links in folders are left out";
    EXPECT_EQ(Visited("top/link", {true, {}}), "top/link") << "named links are visited";
#endif
    EXPECT_EQ(Visited("top", {false, {}}), "[top: is a folder; add -r to scan the files in it]");
    EXPECT_EQ(Visited("top/a.exe", {false, {}}), "top/a.exe");
    EXPECT_EQ(Visited("top/a.exe", {false, {"a.*"}}), "");
    EXPECT_EQ(Visited("missing", {true, {}}), "missing");
    EXPECT_EQ(Visited("top/c.dll", {true, {}}, 1), "top/c.dll");
    EXPECT_EQ(Visited("top", {false, {}}, 1), "[top: is a folder; add -r to scan the files in it]");
    EXPECT_EQ(Visited("top", {true, {"B", "b"}}, 2), "top/a.exe top/c.dll") << "the visitor ends the walk";
}

} // namespace
} // namespace tavrik::tests
