// Where the locators read, and how much, beside what was typed apart of it: exact calls, bounds and short blocks.
#include <map>

#include <fmt/format.h>

#include "tests/support/locator_scenes.h"
#include "tests/support/platform_double.h"

namespace tavrik::tests {
namespace {

std::string ReadCall(uint32_t start, uint32_t length) {
    const auto number = [](uint32_t value) { return fmt::format(fmt::runtime(value < 4096 ? "{}" : "0x{:X}"), value); };
    return fmt::format("S{} R{}", number(start), number(length));
}

// What searches.txt says of one entry, for one scene.
class Search {
public:
    explicit Search(Scene &scene) : scene_(scene) {
        Add(fmt::format("entry {}", scene.entry));
        if (Has("scan"))
            Add("scan " + rows_["scan"]);
    }

    bool Has(const std::string &row) const { return rows_.contains(row); }
    const std::string &Text(const std::string &row) { return rows_[row]; }
    uint32_t Number(const std::string &row) { return static_cast<uint32_t>(GoldenNumber(rows_[row])); }
    // True when the whole block must arrive.
    bool WantsWholeBlocks() { return rows_["read_count"] == rows_["read"]; }

    // The offsets at which the search starts, in the order in which they are tried.
    std::vector<uint32_t> Starts() {
        const std::string sections = std::to_string(scene_.records.file_header.NumberOfSections);
        std::string base = First({"base", "base_sections_" + sections, "base_adjoining", "base_other",
                                  "start_sections_" + sections, "start"});
        std::string distances =
            First({"distance", "distance_sections_" + sections, "distance_adjoining", "distance_other"});
        if (Has("base_adjoining") &&
            Value("section_end") != scene_.file.sections[Number("next_section_index")].PointerToRawData) {
            base = rows_["base_other"];
            distances = rows_["distance_other"];
        }
        if (Has("start_resource"))
            base = rows_[scene_.has_resource ? "start_resource" : "start_other"];
        if (Has("distance_by_size"))
            distances = DistanceBySize();
        std::vector<uint32_t> starts;
        if (Has("base") || !distances.empty()) {
            for (const std::string &distance : Words(distances))
                starts.push_back(Sum(base) + static_cast<uint32_t>(GoldenNumber(distance)));
        } else if (IsGoldenNumber(Words(base)[0])) {
            for (const std::string &start : Words(base))
                starts.push_back(static_cast<uint32_t>(GoldenNumber(start)));
        } else {
            starts.push_back(Sum(base));
        }
        return starts;
    }

    // All blocks in the order in which they are read, up to the one that holds the bytes [begin, end).
    std::vector<uint32_t> BlocksUpTo(uint32_t begin, uint32_t end) {
        const uint32_t length = Number("read");
        std::vector<uint32_t> blocks;
        for (const uint32_t start : Starts()) {
            for (uint32_t block = start;; block += Number("step")) {
                blocks.push_back(block);
                if (block <= begin && end <= block + length)
                    return blocks;
                if (!Has("step") || block > end)
                    break;
            }
        }
        return {};
    }

    // Moves the header that the first start is computed from, so that the start is at `target`.
    void MoveStartTo(uint32_t target) {
        const uint32_t delta = target - Starts()[0];
        if (rows_["base"].find(" section.PointerToRawData") != std::string::npos ||
            rows_["base"].starts_with("section."))
            scene_.file.sections[Number("section_index")].PointerToRawData += delta;
        else
            scene_.records.last_section.PointerToRawData += delta;
    }

private:
    void Add(const std::string &head) {
        for (const GoldenLine &line : GoldenBlock("searches.txt", head))
            rows_.try_emplace(line.words[0],
                              fmt::format("{}", fmt::join(line.words.begin() + 1, line.words.end(), " ")));
    }

    static std::vector<std::string> Words(const std::string &text) {
        std::vector<std::string> words;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = std::min(text.find(' ', at), text.size());
            words.push_back(text.substr(at, end - at));
            at = end + 1;
        }
        return words;
    }

    std::string First(std::initializer_list<std::string> names) {
        for (const std::string &name : names)
            if (Has(name))
                return rows_[name];
        return "";
    }

    std::string DistanceBySize() {
        const std::vector<std::string> words = Words(rows_["distance_by_size"]);
        for (std::size_t word = 0; word < words.size(); word += 2) {
            const std::size_t dots = words[word].find("..");
            if (GoldenNumber(words[word].substr(0, dots)) <= scene_.records.file_size &&
                scene_.records.file_size <= GoldenNumber(words[word].substr(dots + 2)))
                return words[word + 1];
        }
        return "";
    }

    // The value of "A + B", "RvaToFileOffset(A + B)" and the like.
    uint32_t Sum(const std::string &expression) {
        uint32_t sum = 0;
        if (expression.starts_with("RvaToFileOffset("))
            return RvaToFileOffset(&scene_.stream, kHandle, Sum(expression.substr(16, expression.size() - 17)));
        for (const std::string &word : Words(expression))
            sum += word == "+" ? 0 : Value(word);
        return sum;
    }

    uint32_t Value(const std::string &name) {
        if (IsGoldenNumber(name))
            return static_cast<uint32_t>(GoldenNumber(name));
        if (name == "file_size")
            return static_cast<uint32_t>(scene_.records.file_size);
        if (name.starts_with("data_dirs["))
            return scene_.records.data_dirs[GoldenNumber(name.substr(10, name.size() - 11))];
        if (name == "entry.OffsetToData")
            return scene_.resource.first;
        if (name == "entry.Size")
            return scene_.resource.second;
        if (Has(name)) // the name of another row
            return Sum(rows_[name]);
        const std::string field = name.substr(name.find('.') + 1);
        const SectionHeader &section = SectionNamed(name.substr(0, name.find('.')));
        return field == "PointerToRawData" ? section.PointerToRawData
               : field == "SizeOfRawData"  ? section.SizeOfRawData
                                           : section.VirtualAddress;
    }

    const SectionHeader &SectionNamed(const std::string &name) {
        if (name == "first_section")
            return scene_.records.first_section;
        if (name == "last_section")
            return scene_.records.last_section;
        if (Has("section_index"))
            return scene_.file.sections[Number("section_index")];
        const std::string wanted = GoldenText(rows_["section_name"]);
        return *std::find_if(scene_.file.sections.begin(), scene_.file.sections.end(),
                             [&](const SectionHeader &section) {
                                 return std::string_view(reinterpret_cast<const char *>(section.Name)) == wanted;
                             });
    }

    Scene &scene_;
    std::map<std::string, std::string> rows_;
};

// Entries whose offsets come from their tables of builds.
bool HasOffsetTable(uint32_t entry) {
    return entry == 28 || entry == 29;
}

class Searches : public testing::Test {
protected:
    Searches() { Platform() = {}; }
};

TEST_F(Searches, ReadTheBlocksUpToThePayload) {
    for (const Find &find : kFinds) {
        if (HasOffsetTable(find.entry))
            continue;
        SCOPED_TRACE(testing::Message() << find.entry << ": " << find.what);
        Scene scene(find.entry, find.wanted);
        Build(scene, find);
        LocatorResult result;
        EXPECT_EQ(scene.Call(&result), 1);
        const std::string calls = scene.stream.TakeCalls();
        Search search(scene);
        std::string expected;
        const auto end = find.offset + static_cast<uint32_t>(find.payload.bytes.size());
        for (const uint32_t block : search.BlocksUpTo(find.offset, end))
            expected += (expected.empty() ? "" : " ") + ReadCall(block, search.Number("read"));
        EXPECT_FALSE(expected.empty());
        EXPECT_TRUE((' ' + calls).ends_with(' ' + expected)) << calls << "\ninstead of ... " << expected;
        EXPECT_EQ(result.kind + 0, search.Number("kind"));
        EXPECT_EQ(result.size + 0, search.Number("size"));
    }
}

TEST_F(Searches, BoundsOfTheOffset) {
    int checked = 0;
    for (const uint32_t entry : {0u, 7u, 10u, 11u, 23u, 35u, 36u, 39u, 40u, 42u, 44u}) {
        const Find &find = FindOf(entry);
        const auto is_read_at = [&](uint32_t start) {
            Scene scene(entry, find.wanted);
            Build(scene, find);
            Search search(scene);
            search.MoveStartTo(start);
            scene.file.PutInto(scene.stream);
            LocatorResult result = kUntouched;
            EXPECT_EQ(scene.Call(&result), 0);
            ++checked;
            const std::string calls = ' ' + scene.stream.TakeCalls() + ' ';
            return calls.find(' ' + ReadCall(start, search.Number("read")) + ' ') != std::string::npos;
        };
        Scene scene(entry, find.wanted);
        Build(scene, find);
        Search search(scene);
        const int64_t lowest = search.Has("at_least") ? int64_t{search.Number("at_least")} : INT32_MIN;
        for (const int32_t start : {-1, 0, 1})
            EXPECT_EQ(is_read_at(static_cast<uint32_t>(start)), start >= lowest) << entry << ": " << start;
        const auto size = static_cast<uint32_t>(scene.records.file_size);
        EXPECT_EQ(search.Text("below"), "file_size");
        EXPECT_TRUE(is_read_at(size - 1)) << entry;
        EXPECT_FALSE(is_read_at(size)) << entry;
    }
    EXPECT_EQ(checked, 55);
}

// A payload at the start of a block that is one byte short, or as short as may be.
TEST_F(Searches, ShortBlocks) {
    for (const Find &find : kFinds) {
        if (HasOffsetTable(find.entry) || find.entry == 26) // which has blocks that may be short in tests of their own
            continue;
        SCOPED_TRACE(testing::Message() << find.entry << ": " << find.what);
        Scene scene(find.entry, find.wanted);
        Build(scene, find);
        Search search(scene);
        const auto length = static_cast<uint32_t>(find.payload.bytes.size());
        const uint32_t block = search.BlocksUpTo(find.offset, find.offset + length).back();
        scene.stream.Put(find.offset, std::string(length, '\0'));
        scene.stream.Put(block, find.payload.bytes);
        LocatorResult result = kUntouched;
        EXPECT_EQ(scene.Call(&result), 1);
        EXPECT_EQ(result.offset + 0, block);
        const bool whole = search.WantsWholeBlocks();
        const std::string &fewest = search.Text("read_count"); // "2560..", "any", or the whole
        const uint32_t shortest = whole ? search.Number("read")
                                  : fewest == "any"
                                      ? length
                                      : static_cast<uint32_t>(GoldenNumber(fewest.substr(0, fewest.find('.'))));
        scene.stream.Resize(block + shortest);
        EXPECT_EQ(scene.Call(&result), 1);
        result = kUntouched;
        scene.stream.Resize(block + shortest - 1);
        EXPECT_EQ(scene.Call(&result), 0);
        EXPECT_EQ(Bytes(result), Bytes(kUntouched));
        EXPECT_EQ(Platform().live_blocks, 0);
    }
}

} // namespace
} // namespace tavrik::tests
