// Where the locators read, and how much, beside what was typed apart of it: exact calls, bounds and short blocks.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tavrik2/bytes.h"
#include "tavrik2/locators/places.h"
#include "tests/support/locator_scenes.h"
#include "tests/support/platform_double.h"

namespace tavrik::tests {
namespace {

std::string ReadCall(uint32_t start, uint32_t length) {
    const auto number = [](uint32_t value) { return fmt::format(fmt::runtime(value < 4096 ? "{}" : "0x{:X}"), value); };
    return fmt::format("S{} R{}", number(start), number(length));
}

// "entry 8 below" of every row of searches.txt that was asked for.
std::set<std::string> &AskedRows() {
    static std::set<std::string> rows;
    return rows;
}

// What searches.txt says of one entry, for the scene of one find.
class Search {
public:
    Search(Scene &scene, const Find &find) : scene_(scene), find_(find) {
        Add(fmt::format("entry {}", scene.entry));
        if (Has("scan"))
            Add("scan " + Text("scan"));
    }

    bool Has(const std::string &row) const { return rows_.contains(row); }
    // Without such a row: "".
    std::string Text(const std::string &row) const {
        const auto found = rows_.find(row);
        if (found == rows_.end())
            return "";
        AskedRows().insert(found->second.head + " " + row);
        return found->second.text;
    }
    uint32_t Number(const std::string &row) const { return static_cast<uint32_t>(GoldenNumber(Text(row))); }
    // The number that the expression of a row comes to.
    uint32_t Sum(const std::string &row) const { return SumOf(Text(row)); }
    // True when the whole block must arrive.
    bool WantsWholeBlocks() const { return Text("read_count") == Text("read"); }

    // The offsets at which the search starts, in the order in which they are tried.
    std::vector<uint32_t> Starts() const {
        const std::string sections = std::to_string(scene_.records.file_header.NumberOfSections);
        std::string base = First({"base", "base_sections_" + sections, "base_adjoining", "base_other",
                                  "start_sections_" + sections, "start"});
        std::string distances =
            First({"distance", "distance_sections_" + sections, "distance_adjoining", "distance_other"});
        if (IsProbe())
            return {find_.offset}; // the tables of builds have tests of their own
        if (Has("base_adjoining") &&
            Value("section_end") != scene_.file.sections[Number("next_section_index")].PointerToRawData) {
            base = Text("base_other");
            distances = Text("distance_other");
        }
        if (Has("start_resource"))
            base = Text(scene_.resources != 0 ? "start_resource" : "start_other");
        if (Has("distance_by_size"))
            distances = DistanceBySize();
        std::vector<uint32_t> starts;
        if (Has("base") || !distances.empty()) {
            for (const std::string &distance : Words(distances))
                starts.push_back(SumOf(base) + static_cast<uint32_t>(GoldenNumber(distance)));
        } else if (IsGoldenNumber(Words(base)[0])) {
            for (const std::string &start : Words(base))
                starts.push_back(static_cast<uint32_t>(GoldenNumber(start)));
        } else {
            starts.push_back(SumOf(base));
        }
        return starts;
    }

    // All blocks in the order in which they are read, up to the one that holds the payload.
    std::vector<uint32_t> Blocks() const {
        const uint32_t begin = find_.offset;
        const auto end = begin + static_cast<uint32_t>(find_.payload.bytes.size());
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

    // The calls for the manifest and the blocks, each with the most that a read may deliver and yet fail.
    std::vector<std::pair<std::string, Fault::Kind>> Calls() const {
        std::vector<std::pair<std::string, Fault::Kind>> calls;
        if (Has("manifest_start")) {
            EXPECT_EQ(Text("manifest_read_count"), Text("manifest_read"));
            EXPECT_EQ(Text("manifest_seek"), Text("seek"));
            calls.emplace_back(ReadCall(Sum("manifest_start"), Number("manifest_read")), Fault::ReadShort);
        }
        for (const uint32_t block : Blocks())
            calls.emplace_back(ReadCall(block, Number("read")),
                               WantsWholeBlocks() ? Fault::ReadShort : Fault::ReadNothing);
        return calls;
    }

    // The smallest file in which the payload is found.
    uint32_t SmallestFile() const {
        if (Has("file_size_at_least"))
            return Number("file_size_at_least");
        // Of several blocks in a row without a scan only the first is compared with the file's size.
        const uint32_t block = Has("step") && !Has("scan") ? Blocks().front() : Blocks().back();
        uint32_t smallest = kResources + 1; // the resource directory is in the file
        if (Text("at_most") == "file_size")
            smallest = block;
        for (const char *margin : {"end_margin", "block_end_margin"})
            if (Has(margin))
                smallest = block + Number(margin) + 1;
        if (Text("below") == "file_size")
            smallest = std::max(smallest, block + 1);
        if (Text("section_end_below") == "file_size")
            smallest = std::max(smallest, Sum("section_end") + 1);
        return smallest;
    }

    // Moves what the first start, or the manifest's, is computed from, so that it is at `target`.
    void MoveStartTo(uint32_t target, bool manifest) {
        const uint32_t delta = target - Starts()[0];
        const std::string base = First({"base", "base_other", "start"});
        // Addresses below all sections are offsets.
        const uint32_t rva = AsSigned(target) < AsSigned(kResources) ? target : target - kResources + kResourceRva;
        if (manifest)
            scene_.tree.Data(0x100, rva, scene_.resource.second);
        else if (base == "RvaToFileOffset(data_dirs[4])")
            scene_.records.data_dirs[4] = rva;
        else if (base.ends_with("entry.Size"))
            scene_.tree.Data(0x100, scene_.resource.first, scene_.resource.second + delta);
        else if (base.find(" section.PointerToRawData") != std::string::npos || base.starts_with("section."))
            scene_.file.sections[Number("section_index")].PointerToRawData += delta;
        else
            scene_.records.last_section.PointerToRawData += delta;
    }

    bool IsProbe() const { return Text("scan") == "ProbeOffsetTable"; }

private:
    struct Row {
        std::string head;
        std::string text;
    };

    void Add(const std::string &head) {
        for (const GoldenLine &line : GoldenBlock("searches.txt", head))
            rows_.try_emplace(line.words[0],
                              Row{head, fmt::format("{}", fmt::join(line.words.begin() + 1, line.words.end(), " "))});
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

    std::string First(std::initializer_list<std::string> names) const {
        for (const std::string &name : names)
            if (Has(name))
                return Text(name);
        return "";
    }

    std::string DistanceBySize() const {
        const std::vector<std::string> words = Words(Text("distance_by_size"));
        for (std::size_t word = 0; word < words.size(); word += 2) {
            const std::size_t dots = words[word].find("..");
            if (GoldenNumber(words[word].substr(0, dots)) <= scene_.records.file_size &&
                scene_.records.file_size <= GoldenNumber(words[word].substr(dots + 2)))
                return words[word + 1];
        }
        return "";
    }

    // The value of "A + B", "RvaToFileOffset(A + B)" and the like.
    uint32_t SumOf(const std::string &expression) const {
        uint32_t sum = 0;
        if (expression.starts_with("RvaToFileOffset("))
            return RvaToFileOffset(&scene_.stream, kHandle, SumOf(expression.substr(16, expression.size() - 17)));
        for (const std::string &word : Words(expression))
            sum += word == "+" ? 0 : Value(word);
        return sum;
    }

    uint32_t Value(const std::string &name) const {
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
            return Sum(name);
        const std::string field = name.substr(name.find('.') + 1);
        const SectionHeader &section = SectionNamed(name.substr(0, name.find('.')));
        return field == "PointerToRawData" ? section.PointerToRawData
               : field == "SizeOfRawData"  ? section.SizeOfRawData
                                           : section.VirtualAddress;
    }

    const SectionHeader &SectionNamed(const std::string &name) const {
        if (name == "first_section")
            return scene_.records.first_section;
        if (name == "last_section")
            return scene_.records.last_section;
        if (Has("section_index"))
            return scene_.file.sections[Number("section_index")];
        const std::string wanted = GoldenText(Text("section_name"));
        return *std::find_if(scene_.file.sections.begin(), scene_.file.sections.end(),
                             [&](const SectionHeader &section) {
                                 return std::string_view(reinterpret_cast<const char *>(section.Name)) == wanted;
                             });
    }

    Scene &scene_;
    const Find &find_;
    std::map<std::string, Row> rows_;
};

// A find's scene and search.
struct Searched {
    Scene scene;
    Search search;

    explicit Searched(const Find &find) : scene(find.entry, find.wanted), search(Built(find), find) {}
    Scene &Built(const Find &find) {
        Build(scene, find);
        return scene;
    }
    bool Finds() {
        LocatorResult result = kUntouched;
        const bool found = scene.Call(&result) == 1;
        EXPECT_EQ(Platform().live_blocks, 0);
        EXPECT_TRUE(found || Bytes(result) == Bytes(kUntouched));
        return found;
    }
};

void ExpectBlocksAndResult(const Find &find) {
    Searched s(find);
    LocatorResult result;
    EXPECT_EQ(s.scene.Call(&result), 1); // leaves its blocks in memory
    Platform() = {};
    EXPECT_EQ(s.scene.Call(&result), 1);
    EXPECT_EQ(Platform().events.empty(), s.search.Text("buffer") != "platform");
    for (const std::string prefix : {"", "manifest_"}) {
        if (s.search.Text(prefix + "clear") == "yes") {
            EXPECT_TRUE(s.scene.stream.WasCleared(s.search.Number(prefix + "read")));
        }
    }
    EXPECT_EQ(result.kind + 0, s.search.Number("kind"));
    EXPECT_EQ(result.size + 0, s.search.Number("size"));
    const auto length = find.payload.bytes.size();
    EXPECT_EQ(s.search.Has("marker_words") ? 4 * s.search.Number("marker_words") : length, length);
    EXPECT_EQ(s.search.Has("marker_length") ? s.search.Number("marker_length") : length, length);

    const std::string calls = s.scene.stream.TakeCalls();
    std::string expected;
    for (const auto &[call, fault] : s.search.Calls())
        expected += (expected.empty() ? "" : " ") + call;
    ASSERT_TRUE((' ' + calls).ends_with(' ' + expected)) << calls << "\ninstead of ... " << expected;
    // The first seek or read that fails is the last call.
    const auto ends_with = [&](const std::string &begin, Fault::Kind kind) {
        const auto nth = std::count(begin.begin(), begin.end(), kind == Fault::SeekElsewhere ? 'S' : 'R');
        result = kUntouched;
        EXPECT_EQ(s.scene.Call(&result, {kind, static_cast<uint32_t>(nth)}), 0);
        EXPECT_EQ(s.scene.stream.TakeCalls(), begin);
    };
    std::size_t end = calls.size() - expected.size();
    for (const auto &[call, fault] : s.search.Calls()) {
        if (s.search.Text("seek") == "exact")
            ends_with(calls.substr(0, end + call.find(' ')), Fault::SeekElsewhere);
        if (s.search.Text("read_count") != "any" && !s.search.IsProbe())
            ends_with(calls.substr(0, end + call.size()), fault);
        end += call.size() + 1;
    }
    // A header by its number is sought twice, and the first time examined.
    for (std::size_t read = 0; s.search.Has("section_index") && (read = calls.find(" R40", read + 1)) != calls.npos;)
        ends_with(calls.substr(0, calls.rfind(" T S", read)), Fault::SeekElsewhere);
}

// A payload at the start of a block that is one byte short, or as short as may be; and one byte farther on.
void ExpectShortBlocks(const Find &find) {
    Searched s(find);
    const auto length = static_cast<uint32_t>(find.payload.bytes.size());
    const uint32_t block = s.search.Blocks().back();
    const std::string fewest = s.search.Text("read_count"); // "2560..", "any", or the whole
    const uint32_t shortest = s.search.WantsWholeBlocks() ? s.search.Number("read")
                              : fewest == "any"
                                  ? length
                                  : static_cast<uint32_t>(GoldenNumber(fewest.substr(0, fewest.find('.'))));
    s.scene.stream.Put(find.offset, std::string(length, '\0'));
    s.scene.stream.Put(block + 1, find.payload.bytes);
    EXPECT_EQ(s.Finds(), s.search.Text("test") != "at_start");
    s.scene.stream.Put(block, find.payload.bytes + std::string(1, '\0'));
    if (find.entry == 26) // never looks at a block's last position, and has tests of its own
        return;
    s.scene.stream.Resize(block + shortest);
    EXPECT_TRUE(s.Finds());
    s.scene.stream.Resize(block + shortest - 1);
    EXPECT_FALSE(s.Finds());
}

void ExpectSmallestFile(const Find &find) {
    Searched s(find);
    if (s.search.Has("distance_by_size"))
        return;
    s.scene.records.file_size = static_cast<int32_t>(s.search.SmallestFile());
    EXPECT_TRUE(s.Finds());
    --s.scene.records.file_size;
    if (s.search.SmallestFile() == kResources + 1)
        return;
    EXPECT_FALSE(s.Finds());
    const uint32_t block = s.search.Blocks().back();
    EXPECT_EQ(s.scene.stream.TakeCalls().find(ReadCall(block, s.search.Number("read"))), std::string::npos);
}

// The resource is looked up where the table says, and no more of its type than the table says.
void ExpectLookUp(const Find &find) {
    Searched s(find);
    if (s.scene.resources == 0)
        return;
    const bool by_directory = s.search.Text("resource_rva") == "data_dirs[4]";
    (by_directory ? s.scene.records.last_section.VirtualAddress : s.scene.records.data_dirs[4]) = 0;
    EXPECT_TRUE(s.Finds());
    // One more that fails the whole walk: a directory inside itself.
    s.scene.stream.Put(kResources + 0x40 + 16 + 8 * s.scene.resources, Bytes(uint32_t{9}) + Bytes(kSub | 0x140));
    s.scene.tree.Count(0x40, 0, static_cast<uint16_t>(s.scene.resources + 1));
    s.scene.tree.Directory(0x140, {{1, kSub | 0x140}});
    EXPECT_EQ(s.Finds(), s.scene.resources >= s.search.Number("capacity"));
}

// Offsets below the lowest and from the end of the file on are not read.
void ExpectBounds(const Find &find, bool manifest) {
    const std::string prefix = manifest ? "manifest_" : "";
    const auto is_read_at = [&](uint32_t start) {
        Searched s(find);
        s.scene.stream.Put(find.offset, std::string(find.payload.bytes.size(), '\0'));
        s.search.MoveStartTo(start, manifest);
        s.scene.file.sections[4].VirtualSize = 0x1000000; // addresses for all offsets
        s.scene.file.sections[5].VirtualAddress = 0x2000000;
        s.scene.file.sections[6].VirtualAddress = 0x3000000;
        s.scene.file.PutInto(s.scene.stream);
        EXPECT_FALSE(s.Finds());
        const std::string calls = ' ' + s.scene.stream.TakeCalls() + ' ';
        return calls.find(' ' + ReadCall(start, s.search.Number(prefix + "read")) + ' ') != std::string::npos;
    };
    const Searched s(find);
    const int64_t lowest =
        s.search.Has(prefix + "at_least") ? int64_t{s.search.Number(prefix + "at_least")} : INT32_MIN;
    for (const int32_t start : {-1, 0, 1})
        EXPECT_EQ(is_read_at(static_cast<uint32_t>(start)), start >= lowest) << start;
    const bool end_counts = s.search.Text(prefix + "at_most") == "file_size";
    if (!end_counts && s.search.Text(prefix + "below") != "file_size")
        return;
    const auto size = static_cast<uint32_t>(s.scene.records.file_size) + end_counts;
    EXPECT_TRUE(is_read_at(size - 1));
    EXPECT_FALSE(is_read_at(size));
}

// "SectionIndex" as the typed table has it: "section_index".
std::string Snake(const std::string &name) {
    std::string snake;
    for (const char c : name) {
        const auto character = static_cast<unsigned char>(c);
        const bool starts_word =
            std::isupper(character) != 0 || (std::isdigit(character) != 0 && snake.ends_with("sections"));
        if (starts_word && !snake.empty())
            snake += '_';
        snake += static_cast<char>(std::tolower(character));
    }
    // Names that PE has in capitals stay so.
    for (const auto &[lower, pe] : {std::pair("size_of_raw_data", "SizeOfRawData"),
                                    {"virtual_size", "VirtualSize"},
                                    {"pointer_to_raw_data", "PointerToRawData"}})
        if (const std::size_t at = snake.find(lower); at != std::string::npos)
            snake.replace(at, std::strlen(lower), pe);
    return snake;
}

// The numbers of a typed line: ranges count as their ends, and those without one as the other.
std::vector<uint32_t> NumbersOf(const GoldenLine &line) {
    std::vector<uint32_t> numbers;
    for (std::size_t word = 1; word < line.words.size(); ++word) {
        const std::string &text = line.words[word];
        const std::size_t dots = text.find("..");
        for (const std::string &part : {text.substr(0, dots), dots == std::string::npos ? "" : text.substr(dots + 2)})
            if (IsGoldenNumber(part))
                numbers.push_back(static_cast<uint32_t>(GoldenNumber(part)));
    }
    return numbers;
}

using Numbers = std::map<std::string, std::vector<uint32_t>>;

// The numbers of places.def by their names in searches.txt: "Entry0 section_index".
Numbers CompiledPlaces() {
    Numbers compiled;
#define PLACE(owner, name, ...) compiled[#owner " " + Snake(#name)] = {k##owner##name.begin(), k##owner##name.end()};
#define DISTANCE_BY_SIZE(lowest, highest, distance)                                                                    \
    for (const int number : {lowest, highest, distance})                                                               \
        compiled["Entry25 distance_by_size"].push_back(static_cast<uint32_t>(number));
#include "tavrik2/locators/places.def"
    // What several entries share is kept once.
    compiled["Entry33 resource_type"] = compiled["Entry47 resource_type"] = compiled["Entry32 resource_type"];
    compiled["Entry26 resource_type"] = compiled["Entry25 resource_type"];
    compiled["Entry26 capacity"] = compiled["Entry25 capacity"];
    compiled["Entry26 resource_count"] = compiled["Entry25 resource_count"];
    compiled["Entry26 read"] = compiled["Entry25 read"];
    compiled["Entry38 resource_count"] = {1}; // at least
    return compiled;
}

std::string PlaceName(const std::string &head, const GoldenLine &line) {
    const std::string owner = head.starts_with("entry ") ? "Entry" + head.substr(6) : head.substr(head.find(' ') + 1);
    return owner + " " + line.words[0];
}

TEST(Searches, PlacesAreAsCompiled) {
    const Numbers compiled = CompiledPlaces();
    Numbers typed;
    std::set<std::string> keys;
    for (const auto &[name, numbers] : compiled)
        keys.insert(name.substr(name.find(' ') + 1));
    keys.erase("read");       // beside those of the test of the searches
    keys.erase("read_count"); // the same
    keys.erase("capacity");   // of one, where an array of one says so
    std::string head;
    for (const GoldenLine &line : ReadGolden("searches.txt")) {
        if (line.indent == 0) {
            head = fmt::format("{}", fmt::join(line.words, " "));
            continue;
        }
        const std::string name = PlaceName(head, line);
        const std::vector<uint32_t> numbers = NumbersOf(line);
        // A distance of 0 needs no constant; expressions are the locators'.
        if (compiled.contains(name) ||
            (keys.contains(line.words[0]) && !numbers.empty() && numbers != std::vector<uint32_t>{0} &&
             line.words[1].find('(') == std::string::npos && line.words[1].find('[') == std::string::npos))
            typed[name] = numbers;
    }
    EXPECT_EQ(fmt::format("{}", fmt::join(compiled, "\n")), fmt::format("{}", fmt::join(typed, "\n")));
}

// Every row is compared, so that none can say what is not so.
TEST(Searches, AreAsTyped) {
    for (const Find &find : kFinds) {
        SCOPED_TRACE(testing::Message() << find.entry << ": " << find.what);
        ExpectBlocksAndResult(find);
        ExpectShortBlocks(find);
        ExpectSmallestFile(find);
        ExpectLookUp(find);
    }
    for (const uint32_t entry : {0u, 7u, 8u, 10u, 11u, 13u, 15u, 23u, 25u, 26u, 35u, 36u, 39u, 40u, 42u, 44u}) {
        SCOPED_TRACE(entry);
        ExpectBounds(FindOf(entry, entry == 8 ? "apart" : ""), false);
        if (entry == 25 || entry == 26)
            ExpectBounds(FindOf(entry), true);
    }
    const Numbers compiled = CompiledPlaces();
    std::string head;
    for (const GoldenLine &line : ReadGolden("searches.txt")) {
        if (line.indent == 0) {
            head = fmt::format("{}", fmt::join(line.words, " "));
        } else if (!head.starts_with("op ")) { // the layout of headers is read where gates and records are
            EXPECT_TRUE(compiled.contains(PlaceName(head, line)) || AskedRows().contains(head + " " + line.words[0]))
                << head << ": nothing is compared with " << line.words[0];
        }
    }
}

} // namespace
} // namespace tavrik::tests
