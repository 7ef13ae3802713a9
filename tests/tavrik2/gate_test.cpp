// The gates' vocabulary and all gates beside those that were typed apart: row by row, and in what they let through.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "samples/gate_values.h"
#include "tavrik2/locators/locators.h"
#include "tests/support/golden.h"
#include "tests/support/recording_stream.h"

namespace tavrik::tests {
namespace {

using namespace tavrik2;
using namespace tavrik2::fields;
using namespace tavrik2::gates;
using samples::FieldValues;
using samples::GatePath;
using samples::HostRecords;

// Whether records with these values pass; all other fields are zero.
bool Passes(GateView gate, const FieldValues &values) {
    HostRecords records = {};
    Fill(records, values);
    return tavrik2::Passes(gate, records.View(nullptr, kHandle));
}

// The values of one field that a row lets through.
template <size_t Count>
std::vector<uint64_t> Accepted(const Gate<Count> &row, Field field, std::initializer_list<uint64_t> values) {
    std::vector<uint64_t> accepted;
    std::copy_if(values.begin(), values.end(), std::back_inserter(accepted), [&](uint64_t value) {
        return Passes(row, {{field, value}});
    });
    return accepted;
}

uint64_t Name(const char (&text)[9]) {
    uint64_t word;
    std::memcpy(&word, text, sizeof word);
    return word;
}

using Values = std::vector<uint64_t>;

TEST(GateVocabulary, SingleRows) {
    EXPECT_EQ(Accepted(in(SizeOfCode, 5, 7), SizeOfCode, {0, 4, 5, 6, 7, 8, 0xFFFFFFFF}), (Values{5, 6, 7}));
    EXPECT_EQ(Accepted(is(SizeOfCode, 5), SizeOfCode, {4, 5, 6}), Values{5});
    EXPECT_EQ(Accepted(at_least(SizeOfCode, 5), SizeOfCode, {0, 4, 5, 0xFFFFFFFF}), (Values{5, 0xFFFFFFFF}));
    EXPECT_EQ(Accepted(at_most(SizeOfCode, 5), SizeOfCode, {0, 5, 6, 0xFFFFFFFF}), (Values{0, 5}));
    EXPECT_EQ(Accepted(all(Subsystem, 0x102), Subsystem, {0x100, 0x2, 0x102, 0xFFFF}), (Values{0x102, 0xFFFF}));
    EXPECT_EQ(Accepted(one_of(SizeOfCode, {0, {5, 6}, 9}), SizeOfCode, {0, 1, 4, 5, 6, 7, 8, 9, 10}),
              (Values{0, 5, 6, 9}));
    EXPECT_EQ(Accepted(any(is(SizeOfCode, 0), all(SizeOfCode, 6)), SizeOfCode, {0, 2, 4, 6, 7}), (Values{0, 6, 7}));
}

TEST(GateVocabulary, FileSizesAreSigned) {
    EXPECT_EQ(Accepted(at_least(FileSize, 5), FileSize, {4, 5, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF}),
              (Values{5, 0x7FFFFFFF}));
    EXPECT_EQ(Accepted(file_size_beyond(0xBB000, 0x1000), FileSize,
                       {0xBA000, 0xBA001, 0x7FFFEFFF, 0x7FFFF000, 0x80000000, 0xFFFFFFFF}),
              (Values{0xBA001, 0x7FFFEFFF}));
}

TEST(GateVocabulary, NamesEndAtTheirNul) {
    constexpr Field kName = first_section::Name;
    const Values names = {Name(".text\0\0\0"),  Name(".text\0xx"),      Name(".textx\0\0"),  Name(".TExt\0\0\0"),
                          Name(".tex\0\0\0\0"), Name("\016text\0\0\0"), Name(".te8t\0\0\0"), Name(".te8T\0\0\0"),
                          Name("AZaz@[\0\0"),   Name("azAZ@[\0\0"),     Name("AZaz`{\0\0")};
    const auto accepted = [&](const auto &row) {
        std::vector<size_t> indices;
        for (size_t index = 0; index < names.size(); ++index)
            if (Passes(row, {{kName, names[index]}}))
                indices.push_back(index);
        return indices;
    };
    EXPECT_EQ(accepted(name(kName, ".text")), (std::vector<size_t>{0, 1}));
    EXPECT_EQ(accepted(name_ignoring_case(kName, ".text")), (std::vector<size_t>{0, 1, 3}));
    EXPECT_EQ(accepted(name_ignoring_case(kName, ".te8t")), (std::vector<size_t>{6, 7}));
    EXPECT_EQ(accepted(name_ignoring_case(kName, "AZaz@[")), (std::vector<size_t>{8, 9}));
    EXPECT_EQ(accepted(name_ignoring_case(kName, "azAZ`{")), (std::vector<size_t>{10}));
}

TEST(GateVocabulary, ColumnsAreTriedInOrderAndInFull) {
    constexpr auto kGate = gate(
        either(profile('A', is(SizeOfCode, 1), one_of(CheckSum, {1, 2})),
               profile('B', in(SizeOfCode, 1, 2), either(variant(1, is(CheckSum, 3)), variant(2, is(CheckSum, 4)))),
               sections(3, is(SizeOfCode, 9))),
        is(Subsystem, 2));
    const auto passes = [&](uint64_t code, uint64_t sum, uint64_t section_count, uint64_t subsystem) {
        return Passes(kGate,
                      {{SizeOfCode, code}, {CheckSum, sum}, {NumberOfSections, section_count}, {Subsystem, subsystem}});
    };
    EXPECT_TRUE(passes(1, 2, 0, 2));
    EXPECT_TRUE(passes(1, 4, 0, 2)); // A fails at its last row
    EXPECT_TRUE(passes(2, 3, 0, 2));
    EXPECT_TRUE(passes(9, 0, 3, 2));
    EXPECT_FALSE(passes(2, 1, 0, 2)); // half of B with half of A
    EXPECT_FALSE(passes(9, 0, 4, 2));
    EXPECT_FALSE(passes(1, 1, 0, 3)); // what follows counts for every column
    EXPECT_FALSE(passes(9, 0, 3, 1));
}

// "mask lo hi" and what the row is, for comparison and as a message. A bound beyond the field's width counts as none.
std::string GateText(const GateRow &row) {
    const uint32_t width = samples::WidthOf(row.field);
    const uint64_t most = row.field == FileSize ? INT32_MAX
                          : width < 8           ? (uint64_t{1} << (8 * width)) - 1
                                                : ~uint64_t{0};
    return fmt::format("kind {} heading {} {}: field {} mask {:#x} from {:#x} to {:#x}", static_cast<int>(row.kind),
                       static_cast<int>(row.heading), row.heading == Heading::None ? 0 : row.span,
                       static_cast<int>(row.field), row.mask, row.lo, std::min(row.lo + row.span, most));
}

std::vector<std::string> GateTexts(GateView gate) {
    std::vector<std::string> texts;
    std::transform(gate.rows, gate.rows + gate.count, std::back_inserter(texts), GateText);
    return texts;
}

class Gates : public testing::TestWithParam<uint32_t> {
protected:
    const std::vector<GateRow> rows_ = GoldenGate(GetParam());
    const GateView golden_ = {rows_.data(), static_cast<uint32_t>(rows_.size())};
    const std::vector<GatePath> paths_ = samples::PathsOf(golden_);

    // The answer of the entry's locator to these values in a file without bytes, and whether it looked at the file.
    static std::pair<int, bool> Ask(const FieldValues &values) {
        HostRecords records = {};
        records.file_size = 0x40000000;
        records.data_dirs[4] = 0x80000;
        records.last_section.VirtualAddress = 0x80000;
        records.last_section.PointerToRawData = 0x1000;
        Fill(records, values);
        RecordingStream stream;
        LocatorResult result = {1, 2, 3};
        const LocatorTableEntry *table = nullptr;
        uint32_t count = 0;
        EXPECT_EQ(HeurGetLocatorTable(&table, &count), 1u);
        const int answer = table[GetParam()].locator(&stream, kHandle, records.file_size, records.data_dirs,
                                                     &records.file_header, &records.opt_header, &records.first_section,
                                                     &records.last_section, records.entry_code, &result);
        EXPECT_EQ(Bytes(result), Bytes(LocatorResult{1, 2, 3}));
        return {answer, stream.WasCalled()};
    }
};

TEST_P(Gates, AreAsTyped) {
    EXPECT_EQ(GateTexts(GateOf(GetParam())), GateTexts(golden_));
}

// Values pass a gate when they pass some way through it, row by row; that needs no knowledge of how rows are walked.
bool PassesSomePath(const std::vector<GatePath> &paths, FieldValues values) {
    return std::any_of(paths.begin(), paths.end(), [&](const GatePath &path) {
        return std::all_of(path.fields.begin(), path.fields.end(),
                           [&](const auto &set) { return set.second.Contains(values[set.first]); });
    });
}

TEST_P(Gates, TakeBothEndsOfEachRangeAndRefuseOneBeyondWithoutReading) {
    ASSERT_FALSE(paths_.empty());
    int refused = 0;
    // Some gates have a thousand paths, which differ in few rows: a row is tried with the lowest and the highest values
    // of eight.
    std::map<const GateRow *, int> trials;
    for (const GatePath &path : paths_) {
        for (const auto choice : {GatePath::Choice::Lowest, GatePath::Choice::Highest}) {
            const FieldValues passing = path.Pick(choice);
            // At the lowest file size that a gate lets through, a search may begin beyond the file, and the two offset
            // tables have no row for most files.
            if (!path.fields.contains(FileSize) && GetParam() != 28 && GetParam() != 29) {
                ASSERT_TRUE(Ask(passing).second) << path.label;
            }
            HostRecords records = {};
            Fill(records, passing);
            RecordingStream stream;
            ASSERT_TRUE(tavrik2::Passes(GateOf(GetParam()), records.View(&stream, kHandle))) << path.label;
            for (const GateRow *row : path.rows) {
                if (row->field == Stream || ++trials[row] > 16)
                    continue;
                for (const uint64_t value : samples::RefusedNeighbours(*row)) {
                    FieldValues values = passing;
                    values[row->field] = value;
                    if (PassesSomePath(paths_, values))
                        continue; // by another alternative
                    ++refused;
                    ASSERT_EQ(Ask(values), std::pair(0, false))
                        << path.label << ": " << GateText(*row) << " value " << value;
                }
            }
        }
    }
    EXPECT_GT(refused, 10);
}

std::vector<uint32_t> GatedEntries() {
    std::vector<uint32_t> entries;
    for (uint32_t entry = 0; entry < LOCATOR_COUNT; ++entry)
        if (entry != 27)
            entries.push_back(entry);
    return entries;
}

INSTANTIATE_TEST_SUITE_P(Entry, Gates, testing::ValuesIn(GatedEntries()), testing::PrintToStringParamName());

} // namespace
} // namespace tavrik::tests
