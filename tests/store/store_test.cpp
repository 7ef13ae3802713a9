// The store of features: what comes back of what was put in, rules on it compared with rules on the files, and stores
// of hostile content.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <utility>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "evaluation/rule_index.h"
#include "rules/record/record_builder.h"
#include "rules/text/parser.h"
#include "samples/samples.h"
#include "store/adder.h"
#include "store/arrow.h"
#include "store/hunt.h"
#include "store/journal.h"
#include "tests/support/fresh_folder.h"
#include "tests/support/packaged_files.h"

namespace tavrik::tests {
namespace {

using Bytes = std::vector<uint8_t>;
using Pieces = std::map<uint32_t, std::string>;

// Each asks for another thing in another way.
constexpr std::string_view kRules = R"(
rule 1 "Positions" for program { sections { [0].Characteristics has 0x20; [1].VirtualSize > 0; [17].VirtualAddress > 0 } }
rule 2 "Roles" for program { sections { last.VirtualSize > 0x100; entry.Characteristics has 0x20; largest.SizeOfRawData > 512 } }
rule 3 "Names" for program { section_names { [0] == ".text"; any != "UPX0"; any_code == ".text"; last != ".text" } }
rule 4 "Alternatives" for program { header { NumberOfSections == 3 | 4 | 5; Subsystem == 2 | 3 } section_names { [1] == ".data" | ".rdata" } }
rule 5 "Ranges" for program { header { SizeOfCode in 0x200..0x8000; CheckSum != 0; Characteristics has 2 } }
rule 6 "Traits" for program { traits few_imports }
rule 7 "Overlay" for program { traits overlay, executable_last }
rule 8 "Prefix" for program { import_modules { "kernel" prefix; != "none.dll" } }
rule 9 "Function" for program { import_modules { "KERNEL32.dll" } import_functions { #0 "ExitProcess" } }
rule 10 "NotFunction" for program { import_functions { any != "ExitProcess" } }
rule 11 "Cased" for program { import_modules { "KERNEL32.dll" cased } }
rule 12 "Export" for library { export_functions { "DllMain" } }
rule 13 "NoExport" for library { export_module { != "a.dll" } export_functions { != "DllMain" } }
rule 14 "Resource" for program { resources { ICON[1] } }
rule 15 "AnyResource" for program { resources { any[1] } resource_types { type[16]; entry[77] absent } }
rule 16 "Version" for program { resource_strings { VERSION[any].CompanyName "Microsoft Corporation" } }
rule 17 "AnyVersion" for program { resource_strings { VERSION[any].Any "Microsoft Corporation" } }
rule 18 "Manifest" for program { resource_strings { MANIFEST[any].RequestedExecutionLevel "asInvoker" } }
rule 19 "Part" for program { resource_strings { MANIFEST[any].Any "assembly" } }
rule 20 "Measure" for program { measures { entropy(file) > 3 } }
rule 21 "String" for program { strings { A = "This program" in dos_stub } }
rule 22 "Table" for program { import_table { [0].Name > 0 } }
)";

Bytes ReadBytes(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Specimens, samples and packaged programs, and copies of each with some bytes of its first thousand changed.
std::vector<Bytes> SomeFiles() {
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    std::vector<Bytes> files = {{}, {'M', 'Z'}};
    for (std::size_t place = 0; place < generator.size(); place += 13)
        files.push_back(*generator.SpecimenImage(place));
    for (std::size_t sample = 0; sample < samples::SampleCount(); sample += 5)
        files.push_back(samples::MakeSample(sample).bytes);
    const std::vector<std::filesystem::path> packaged = PackagedFiles();
    for (std::size_t i = 0; i < packaged.size(); i += 16)
        if (std::filesystem::file_size(packaged[i]) < 300'000)
            files.push_back(ReadBytes(packaged[i]));
    std::mt19937 random(7);
    for (std::size_t i = 0, count = files.size(); i < count; ++i) {
        Bytes altered = files[i];
        for (int change = 0; change < 6 && !altered.empty(); ++change)
            altered[random() % std::min<std::size_t>(altered.size(), 1000)] = static_cast<uint8_t>(random());
        files.push_back(std::move(altered));
    }
    return files;
}

store::StoredFile FeaturesOf(const Bytes &bytes, std::size_t number) {
    base::MemorySource source(bytes);
    store::StoredFile file = store::ReadFeatures(source);
    file.path = fmt::format("/files/{}/{}.exe", number / 10, number);
    file.stamp.time = static_cast<int64_t>(number) * 1'000'000'007 - 5;
    return file;
}

Pieces PiecesOf(const std::vector<store::StoredFile> &files) {
    Pieces pieces;
    for (store::Piece &piece : store::EncodeSegment(files))
        pieces[piece.number] = std::move(piece.bytes);
    return pieces;
}

store::Segment::ReadPiece ReaderOf(const Pieces &pieces) {
    return [&pieces](uint32_t number) {
        const auto found = pieces.find(number);
        return found == pieces.end() ? std::span<const uint8_t>() : BytesOf(found->second);
    };
}

// Every rule of the database and those above, on every file: what is stored never says a wrong yes or no.
TEST(Hunt, AnswersAsAScanOfTheFilesDoes) {
    const rules::RuleSet written = generator::WrittenRules();
    rules::RuleSet all = generator::Generator(written).Rules();
    const std::size_t database = all.rules.size();
    const rules::text::ParsedFile parsed = rules::text::ParseRules(kRules);
    ASSERT_FALSE(rules::text::HasErrors(parsed.diagnostics)) << parsed.diagnostics.front().message;
    std::ranges::copy(parsed.set.rules, std::back_inserter(all.rules));
    const rules::record::RecordSet records(all);
    const evaluation::RuleIndex index(records.rules());
    const store::Hunt hunt(records.rules());
    EXPECT_GE(hunt.decided(), 700U);

    const std::vector<Bytes> files = SomeFiles();
    std::vector<store::StoredFile> stored;
    for (std::size_t number = 0; number < files.size(); ++number)
        stored.push_back(FeaturesOf(files[number], number));
    const Pieces pieces = PiecesOf(stored);
    store::Segment segment(stored.size(), ReaderOf(pieces));
    std::map<std::size_t, std::map<uint32_t, bool>> hits; // by row: rules, whether they match
    for (const store::Hit &hit : hunt.Search(segment, {}))
        hits[hit.row][hit.rule] = hit.is_match;
    std::size_t matches = 0;
    std::size_t looks = 0;
    std::set<uint32_t> matched;
    for (std::size_t row = 0; row < files.size(); ++row) {
        base::MemorySource source(files[row]);
        evaluation::Features features(source);
        const std::vector<uint32_t> direct = index.Match(features);
        matched.insert(direct.begin(), direct.end());
        for (const uint32_t rule : direct)
            EXPECT_TRUE(hits[row].contains(rule)) << "row " << row << ", rule " << all.rules[rule].detection_name;
        for (const auto &[rule, is_match] : hits[row]) {
            EXPECT_TRUE(!is_match || std::ranges::binary_search(direct, rule)) << "row " << row << ", rule " << rule;
            looks += rule < database && !is_match && !std::ranges::binary_search(direct, rule) ? 1U : 0U;
        }
        matches += direct.size();
    }
    EXPECT_GT(matches, files.size());
    EXPECT_LT(looks, 100U) << "files that are opened in vain";
    for (uint32_t rule = static_cast<uint32_t>(database); rule < all.rules.size(); ++rule)
        EXPECT_TRUE(matched.contains(rule) || all.rules[rule].detection_name == "Positions" ||
                    all.rules[rule].detection_name == "Overlay")
            << all.rules[rule].detection_name << " matches nothing, so that it tests nothing";

    const std::vector<bool> all_gone(stored.size(), true);
    store::Segment again(stored.size(), ReaderOf(pieces));
    EXPECT_TRUE(hunt.Search(again, all_gone).empty());
}

TEST(Segment, GivesBackWhatWasPutIn) {
    std::vector<store::StoredFile> files;
    const std::vector<Bytes> contents = SomeFiles();
    for (std::size_t number = 0; number < contents.size(); number += 7)
        files.push_back(FeaturesOf(contents[number], number));
    files[0].path = std::string(5000, 'p');
    files[1].tokens = {{}, false};
    files[2].sections.assign(512, {{'.', 'x'}, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    files[3].sections.assign(17, {{'8', 'l', 'e', 't', 't', 'e', 'r', 's'}, 0xFFFFFFFF, 0, 0, 0, 0, 0, 0xFFFF, 0, 1});
    files[4].stamp = {UINT64_MAX, INT64_MIN};
    const Pieces pieces = PiecesOf(files);
    store::Segment segment(files.size(), ReaderOf(pieces));
    const std::vector<store::StoredFile> read = segment.AllFiles();
    ASSERT_EQ(read.size(), files.size());
    for (std::size_t row = 0; row < files.size(); ++row) {
        const store::StoredFile &is = read[row];
        const store::StoredFile &was = files[row];
        const auto facts = [](const store::StoredFile &file) {
            return std::tuple(file.path, file.stamp.size, file.stamp.time, file.digest, file.is_pe,
                              file.has.to_string(), file.header, file.tokens.tokens, file.tokens.are_complete,
                              file.sections.size());
        };
        EXPECT_TRUE(facts(is) == facts(was)) << row;
        if (!was.sections.empty()) {
            EXPECT_EQ(std::memcmp(is.sections.data(), was.sections.data(), was.sections.size() * sizeof(SectionHeader)),
                      0);
        }
    }
    store::SegmentRoom room;
    for (std::size_t row = 0; row < store::kMostRows; ++row)
        ASSERT_TRUE(room.Add({}));
    EXPECT_FALSE(room.Add({}));
}

// Reads everything; Damaged is the only answer to wrong bytes.
bool IsWhole(std::size_t rows, const Pieces &pieces, const store::Hunt &hunt) {
    try {
        store::Segment segment(rows, ReaderOf(pieces));
        hunt.Search(segment, {});
        segment.RowsThatMayHave(0x80000000);
        segment.AllFiles();
        return true;
    } catch (const store::Damaged &) {
        return false;
    }
}

TEST(Segment, OfHostileContentIsRefused) {
    const rules::text::ParsedFile parsed = rules::text::ParseRules(kRules);
    const rules::record::RecordSet records(parsed.set);
    const store::Hunt hunt(records.rules());
    std::vector<store::StoredFile> files;
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    for (std::size_t number = 0; number < 20; ++number)
        files.push_back(FeaturesOf(*generator.SpecimenImage(number * 300), number));
    files[2].sections.assign(20, {{'.', 'x'}, 1, 2, 3, 4, 5, 6, 7, 8, 9});
    const Pieces pieces = PiecesOf(files);
    ASSERT_TRUE(IsWhole(files.size(), pieces, hunt));
    EXPECT_FALSE(IsWhole(0, pieces, hunt));
    EXPECT_FALSE(IsWhole(files.size() + 1, pieces, hunt));
    std::mt19937 random(11);
    std::size_t refused = 0;
    for (const auto &[number, bytes] : pieces) {
        Pieces without = pieces;
        without.erase(number);
        EXPECT_FALSE(number != store::kMoreSectionsPiece && IsWhole(files.size(), without, hunt)) << number;
        without[number] = bytes.substr(0, bytes.size() / 2);
        EXPECT_FALSE(IsWhole(files.size(), without, hunt)) << number;
        // With a right checksum: only the content is wrong.
        const std::vector<uint8_t> plain = store::Decompress(BytesOf(bytes), 1 << 24);
        for (int change = 0; change < 2 && !plain.empty(); ++change) {
            std::string content(plain.begin(), plain.end());
            content[random() % content.size()] = static_cast<char>(random());
            if (number % 3 == 0)
                content.resize(random() % content.size());
            Pieces changed = pieces;
            changed[number] = store::Compress(content);
            refused += IsWhole(files.size(), changed, hunt) ? 0U : 1U;
        }
    }
    EXPECT_GT(refused, 100U);
}

TEST(Store, RefusesFilesThatAreNoStoreOrHostile) {
    const FreshFolder folder;
    {
        store::Store made("a.store", store::Store::Access::Create);
        store::Adder adder(made);
        for (std::size_t number = 0; number < 5; ++number)
            adder.Take(adder.Examine(FeaturesOf({'M', 'Z', static_cast<uint8_t>(number)}, number)));
        adder.Finish();
    }
    const std::string bytes = ReadFile("a.store");
    const auto reason = [](const std::string &content) -> std::string {
        try {
            store::Store opened(BytesOf(content));
            opened.CheckDatabase();
            for (const store::SegmentEntry &entry : opened.Segments())
                opened.Open(entry)->AllFiles();
            opened.Faults();
            opened.PieceSizes();
        } catch (const base::Error &error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(reason(bytes), "");
    EXPECT_NE(reason(""), "");
    EXPECT_NE(reason(std::string(5000, 'x')), "");
    EXPECT_NE(reason(bytes.substr(0, bytes.size() / 2)), "");
    constexpr std::size_t kVersionAt = 60; // user_version in the header of an SQLite file, big-endian
    const std::pair<std::size_t, std::string> versions[] = {
        {3, fmt::format("format {}; this program knows format {}", store::kFormatVersion + 1, store::kFormatVersion)},
        {1, fmt::format("features of extractor {}; those of this program are of extractor {}",
                        store::kExtractorVersion + 1, store::kExtractorVersion)}};
    for (const auto &[place, text] : versions) {
        std::string later = bytes;
        ++later[kVersionAt + place];
        EXPECT_NE(reason(later).find(text), std::string::npos) << reason(later);
    }
    std::string renamed = bytes;
    for (std::size_t at; (at = renamed.find("CREATE TABLE fault")) != std::string::npos;)
        renamed.replace(at, 18, "CREATE TABLE Fault");
    EXPECT_NE(reason(renamed).find("damaged"), std::string::npos) << reason(renamed);
    std::mt19937 random(3);
    std::size_t refused = 0;
    for (int change = 0; change < 400; ++change) {
        std::string changed = bytes;
        for (int byte = 0; byte < 3; ++byte)
            changed[random() % changed.size()] = static_cast<char>(random());
        refused += reason(changed).empty() ? 0U : 1U;
    }
    EXPECT_GT(refused, 20U);
}

// What is stored of a file depends on nothing but the file and the extractor.
TEST(Extractor, HasAnotherVersionWhenItFindsOtherFeatures) {
    base::Sha256 files;
    base::Sha256 features;
    const auto add = [&features](const auto &value) {
        features.Update({reinterpret_cast<const uint8_t *>(&value), sizeof(value)});
    };
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    for (std::size_t place = 0; place < generator.size(); place += 97) {
        const Bytes bytes = *generator.SpecimenImage(place);
        files.Update(bytes);
        const store::StoredFile file = FeaturesOf(bytes, 0);
        for (uint16_t field = 0; field < rules::kHeaderFieldCount; ++field)
            add(file.has[field] ? uint64_t{file.header[field]} : UINT64_MAX);
        for (const SectionHeader &section : file.sections)
            add(section);
        for (const store::Token token : file.tokens.tokens)
            add(token);
    }
    EXPECT_EQ(base::HexDigits(files.Finish()), "1506dfcb558ae8c7ce7e320d060533ccc049ac947fb3698a860dbecd8dce45c0")
        << "the specimens have changed: write down both digests that the extractor of the commit before gives for them";
    EXPECT_EQ(fmt::format("{} {}", store::kExtractorVersion, base::HexDigits(features.Finish())),
              "1 fb4079ff54a0338d9fc56325f0f0796b21d609bf91f1b8a5a5d1454196b43e7d")
        << "if the specimens are the same, raise kExtractorVersion";
}

TEST(Arrow, ColumnsOutliveTheirTableAndTheStore) {
    const FreshFolder folder;
    {
        store::Store made("a.store", store::Store::Access::Create);
        store::Adder adder(made);
        for (std::size_t number = 0; number < 11; ++number) {
            store::StoredFile file = FeaturesOf({'M', 'Z'}, number);
            file.path += "\xFF";
            file.has[7] = number != 9;
            file.header[7] = static_cast<uint32_t>(number * 1000);
            adder.Take(adder.Examine(std::move(file)));
        }
        adder.Finish();
    }
    store::ArrowArrayStream stream;
    EXPECT_THROW(store::ExportArrow("none.store", stream), base::Error);
    store::ExportArrow("a.store", stream);
    store::ArrowSchema schema;
    store::ArrowArray table;
    ASSERT_EQ(stream.get_schema(&stream, &schema), 0);
    ASSERT_EQ(stream.get_next(&stream, &table), 0);
    ASSERT_EQ(schema.n_children, table.n_children);
    EXPECT_STREQ(schema.children[4 + 7]->format, "I");
    EXPECT_EQ(schema.children[4 + 7]->name, rules::HeaderFields()[7].name);
    store::ArrowArray column = std::exchange(*table.children[4 + 7], {});
    const store::ArrowArray paths = std::exchange(*table.children[0], {});
    table.release(&table);
    schema.release(&schema);
    ASSERT_EQ(stream.get_next(&stream, &table), 0);
    EXPECT_EQ(table.release, nullptr) << "there is one segment";
    stream.release(&stream);
    ASSERT_EQ(column.length, 11);
    EXPECT_EQ(column.null_count, 1);
    EXPECT_EQ(static_cast<const uint8_t *>(column.buffers[0])[0], 0xFF);
    EXPECT_EQ(static_cast<const uint8_t *>(column.buffers[0])[1], 0b101);
    EXPECT_EQ(static_cast<const uint32_t *>(column.buffers[1])[10], 10'000U);
    const auto *ends = static_cast<const int32_t *>(paths.buffers[1]);
    EXPECT_EQ(std::string(static_cast<const char *>(paths.buffers[2]) + ends[10],
                          static_cast<std::size_t>(ends[11] - ends[10])),
              "/files/1/10.exe\xEF\xBF\xBD");
    for (store::ArrowArray taken : {column, paths})
        taken.release(&taken);
}

TEST(Journal, NamesWhatAThreadHasInHand) {
    using std::literals::operator""sv;
    const FreshFolder folder;
    const auto in_hand = [] { return store::Journal::FilesInHand("a.store"); };
    using Paths = std::vector<std::string>;
    EXPECT_EQ(in_hand(), Paths());
    const std::string longest(store::kLongestPath - 2, 'l');
    {
        store::Journal journal("a.store", 3);
        EXPECT_EQ(in_hand(), Paths());
        journal.Take(2, longest);
        journal.Take(0, "first");
        journal.Take(0, "a");
        EXPECT_EQ(in_hand(), (Paths{"a", longest}));
        journal.Take(2, longest + "er");
        journal.Take(1, "b");
        EXPECT_EQ(in_hand(), (Paths{"a", "b"}));
        journal.Leave(0);
        EXPECT_EQ(in_hand(), Paths{"b"});
    }
    EXPECT_EQ(in_hand(), Paths());
    for (const std::string_view hostile : {""sv, "\x01"sv, "\xFF\xFF"sv, "\x05\0four"sv})
        EXPECT_EQ((Write("a.store-work", BytesOf(hostile)), in_hand()), Paths());
}

} // namespace
} // namespace tavrik::tests
