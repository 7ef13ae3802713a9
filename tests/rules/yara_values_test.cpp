// Exported rules around the values that files have: each condition once met, once missed by one, in libyara and here.
#include <random>

#include <gtest/gtest.h>

#include "base/crc32.h"
#include "evaluation/features.h"
#include "pe/builder/builder.h"
#include "pe/format.h"
#include "rules/names.h"
#include "rules/numbers.h"
#include "tests/support/sampling.h"
#include "tests/support/yara_scanner.h"

namespace tavrik::tests {
namespace {

using rules::Operator;
using rules::Rule;
using rules::RuleSet;

constexpr uint8_t kOperators = 7;
const base::Bytes kResource(0x90, 0x41);

// A file with something in every place that exported rules can ask about.
std::vector<uint8_t> File(bool is_pe32_plus) {
    using namespace pe::builder;
    PeImage image;
    image.is_pe32_plus = is_pe32_plus;
    image.headers.LoaderFlags = 0x12;
    image.headers.ImageBase = is_pe32_plus ? 0x140000000 : 0x400000;
    base::Bytes code(0x340, 0x90);
    for (std::size_t i = 0; i < code.size(); ++i)
        code[i] = static_cast<uint8_t>(i * 7 + i / 13);
    base::Bytes data(0x250);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<uint8_t>(i % 5 == 0 ? 0 : "Some Text in Section"[i % 20]);
    image.entry_code = {0x55, 0x8B, 0xEC, 0x83, 0xEC, 0x10, 0x53, 0x56, 0x57, 0xE8};
    image.sections.push_back({.name = ".text", .Characteristics = kCodeSection, .pieces = {{code}}});
    image.sections.push_back({.name = ".data", .Characteristics = kWritableSection, .pieces = {{data}}});
    image.sections.push_back({.name = "imports8",
                              .pieces = {{ImportTable{{{"kernel32.dll", {"ExitProcess", "Sleep"}},
                                                       {"user32.dll", {"MessageBoxA", uint16_t{7}}}}}}}});
    image.sections.push_back(
        {.name = ".edata", .pieces = {{ExportTable{"own.dll", {{"First", 0x1000}, {"Second", 0x1010}}}}}});
    image.sections.push_back(
        {.name = ".rsrc",
         .pieces = {{ResourceTable{{{.type = uint16_t{10}, .data = kResource},
                                    {.type = uint16_t{10}, .name = u"Main", .data = base::Bytes(9, 0x42)},
                                    {.type = u"TYPE", .name = uint16_t{2}, .language = 0x407, .data = kResource},
                                    {.type = u"TYPE", .name = uint16_t{2}, .data = base::Bytes(3, 0x43)}}}}}});
    image.sections.push_back({.name = "", .pieces = {{base::Bytes(0x20, 0x33)}}});
    image.sections.push_back({.name = "last", .Characteristics = kPackedCode, .pieces = {{base::Bytes(0x40, 0xCC)}}});
    image.directories[pe::kRelocationDirectory] = {0x2010, 0x20};
    image.directories[pe::kTlsDirectory] = {0x2020, 0x18};
    image.overlay = base::Bytes(data.begin(), data.begin() + 0x123);
    // A stub with the linker's record of the tools: "DanS" and its padding, two entries, "Rich" and the key.
    constexpr uint32_t kKey = 0x1234ABCD;
    image.dos_stub = base::Bytes(0x40, 0x21);
    for (const uint32_t word : {0x536E6144u ^ kKey, kKey, kKey, kKey, 0x00105E97u ^ kKey, 3u ^ kKey, 0x00115E97u ^ kKey,
                                1u ^ kKey, 0x68636952u, kKey, 0u, 0u})
        for (const unsigned shift : {0u, 8u, 16u, 24u})
            image.dos_stub.push_back(static_cast<uint8_t>(word >> shift));
    return image.Build().bytes;
}

// Makes rules of one condition each.
class RulesAround {
public:
    explicit RulesAround(std::span<const uint8_t> file) : file_(file), source_(file), features_(source_) {}

    RuleSet Values() {
        for (uint16_t field = 0; field <= 118; ++field)
            Around(features_.Header(field).value_or(0x10), [&](Operator op, uint32_t value) {
                Add().header_conditions = {{field, op, value}};
            });
        for (const uint16_t selector : Selectors())
            for (const rules::Field &field : rules::SectionFields()) {
                const auto section = features_.SectionOf(selector);
                uint32_t value = 0x10;
                if (section)
                    value = ReadField(features_.sections()[*section], field);
                Around(value, [&](Operator op, uint32_t wanted) {
                    Add().section_conditions = {{selector, static_cast<uint8_t>(field.number), op, wanted}};
                });
            }
        const auto descriptors = features_.Imports().descriptors();
        for (uint8_t index = 0; index <= static_cast<uint8_t>(descriptors.size()); ++index)
            for (uint8_t field = 0; field < 5; ++field)
                Around(index < descriptors.size() ? descriptors[index].fields[field] : 0,
                       [&](Operator op, uint32_t value) {
                           Add().indexed_conditions = {{index, field, op, value}};
                       });
        for (unsigned bit = 0; bit < 9; ++bit)
            Add().attribute_b = 1u << bit;
        return std::move(set_);
    }

    RuleSet NamesAndMeasures() {
        std::vector<std::string> names = {"", ".tex", ".text1", "no"};
        for (const SectionHeader &section : features_.sections())
            names.emplace_back(evaluation::SectionName(section));
        for (std::size_t i = 0; i < 8; ++i) { // other than those of the first and third section in one byte
            if (i < 5)
                names.push_back(std::string(".text").replace(i, 1, "_"));
            std::string name = "imports8";
            name[i] = '_';
            names.push_back(name);
        }
        std::vector<uint16_t> selectors = Selectors();
        selectors.insert(selectors.end(), {505, 506, 507});
        for (const uint16_t selector : selectors)
            for (const std::string &name : names)
                for (const Operator op : {Operator::Equal, Operator::NotEqual})
                    Add().section_names = {{selector, op, name}};
        for (const uint16_t selector : selectors)
            Add().section_names = {{selector, Operator::Equal, ".text"}, {selector, Operator::Equal, ".data"}};
        for (uint8_t region = 60; region <= 79; ++region)
            for (uint8_t index = 0; index < (region == 60 ? uint8_t{7} : uint8_t{1}); ++index)
                for (const uint32_t length : Lengths(features_.MeasuredRegion(region, index)))
                    AddMeasures(region, index, length);
        return std::move(set_);
    }

    // Rows on imports, exports and resources: what is there, what is not, and what differs in little.
    RuleSet Tables() {
        constexpr int16_t kIndexes[] = {-1, 0, 1, 2};
        constexpr uint8_t kOptions[] = {0, 1, 2, 3}; // cased, prefix
        constexpr uint16_t kLanguages[] = {0, 0x409, 0x407};
        constexpr Operator kPresences[] = {Operator::Equal, Operator::NotEqual};
        const char *const modules[] = {"kernel32.dll", "User32.dll", "kernel32", "kernel32.dlm", ""};
        const char *const functions[] = {"ExitProcess", "Sleep", "sleep",  "MessageBox", "MessageBoxA", "#7",
                                         "#8",          "First", "Second", "Secon",      "#07",         "own.dll"};
        for (const Operator op : kPresences) {
            for (const int16_t index : kIndexes)
                for (const uint8_t option : kOptions)
                    for (const char *const module : modules) {
                        Add().import_modules = {{index, option, op, module}};
                        if (op == Operator::Equal && option == 0 && module != modules[4])
                            for (const char *const function : functions) {
                                Rule &rule = Add();
                                rule.import_modules = {{index, option, op, module}};
                                rule.import_functions = {{0, op, function}};
                            }
                    }
            for (const char *const function : functions) {
                Add().import_functions = {{9, op, function}};
                Add().export_functions = {{op, function}};
                Add().export_module_names = {{op, function}};
            }
            Add().export_module_names = {{op, "OWN.DLL"}};
        }
        const uint32_t crc32 = base::Crc32(kResource);
        for (const uint32_t number : {rules::kAnyResource, 2u, 10u})
            for (const uint16_t language : kLanguages)
                for (const char *const name : {"", "MAIN", "type", "Mai"}) {
                    for (const uint32_t level : {1u, 2u})
                        for (const uint32_t absent : {0u, 1u})
                            Add().resource_type_entries = {{number, name, language, level, absent}};
                    for (const uint32_t data : {0u, crc32, crc32 + 1})
                        Add().resource_entries = {
                            {number, *name == 0 ? 2u : rules::kAnyResource, name, language, data}};
                }
        return std::move(set_);
    }

    RuleSet Strings() {
        std::mt19937 random(7);
        for (uint8_t kind = 1; kind <= rules::kMaxStringKind; ++kind)
            for (uint8_t index = 0; index < (rules::ForwardKind(kind) == 17 ? uint8_t{7} : uint8_t{1}); ++index)
                AddStrings(kind, index, random);
        // Expressions over three strings, of which some are missing.
        for (const char *const expression : {"A", "(A&B)", "(A|B)", "((A|B)&C)", "(A|(B&C))", "((A&B)|C)", "(A&(B|C))"})
            for (unsigned missing = 0; missing < 8; ++missing) {
                Rule &rule = AddWithHeaders();
                for (unsigned i = 0; i < 3; ++i) {
                    rules::StringFeature string;
                    string.kind = i == 1 ? 17 : 1;
                    string.bytes = (missing >> i & 1) != 0 ? "not in there" : "Section";
                    string.index = i == 1 ? 1 : 0;
                    rule.strings.push_back(string);
                }
                rule.expression = expression;
            }
        return std::move(set_);
    }

private:
    static uint32_t ReadField(const SectionHeader &section, const rules::Field &field) {
        uint32_t value = 0;
        std::memcpy(&value, reinterpret_cast<const uint8_t *>(&section) + field.offset, field.width);
        return value;
    }

    std::vector<uint16_t> Selectors() const {
        std::vector<uint16_t> selectors = {0, 1, 2, 3, 4, 5, 6, 7};
        for (uint16_t role = rules::kFirstSectionRole; role <= rules::kLastSectionRole; ++role)
            selectors.push_back(role);
        return selectors;
    }

    Rule &Add() {
        const auto id = static_cast<uint32_t>(set_.rules.size() + 1);
        set_.rules.emplace_back().rule_id = id;
        return set_.rules.back();
    }

    // A rule that also asks for a field after SizeOfHeaders, as rules do that depend on it.
    Rule &AddWithHeaders() {
        Rule &rule = Add();
        rule.header_conditions = {{rules::header_field::kSizeOfHeaders, Operator::AtLeast, 1}};
        return rule;
    }

    template <typename AddOne>
    static void Around(uint32_t value, AddOne add) {
        for (uint8_t op = 1; op <= kOperators; ++op)
            for (const uint32_t wanted : {value - 1, value, value + 1})
                add(static_cast<Operator>(op), wanted);
    }

    static std::vector<uint32_t> Lengths(base::Region region) {
        const auto size = static_cast<uint32_t>(region.length);
        return {0, 1, size == 0 ? 8 : size, size + 1};
    }

    void AddMeasures(uint8_t region, uint8_t index, uint32_t length) {
        const uint32_t crc32 = features_.Crc32(region, index, length).value_or(5);
        const uint32_t entropy = features_.Entropy(region, index, length).value_or(5000);
        for (uint8_t code = 1; code <= kOperators; ++code) {
            const auto op = static_cast<Operator>(code);
            AddWithHeaders().measure_conditions = {{region, rules::Measure::Crc32, length, index, op, crc32}};
            for (const uint32_t value : {entropy, entropy + 1})
                AddWithHeaders().measure_conditions = {
                    {region, rules::Measure::Entropy, length, index, op, rules::MeasureBits(value / 1000.0)}};
        }
    }

    // Strings from a region, in windows that hold their position and in those that end before it or begin after it.
    void AddStrings(uint8_t kind, uint8_t index, std::mt19937 &random) {
        StringFeature record = {};
        record.string_kind = kind;
        record.param_d = index;
        record.string_section = ".data\0\0";
        record.string_section_length = 5;
        const base::Region region = features_.StringRegion(record);
        constexpr std::size_t kLength = 8;
        if (region.length < kLength)
            return;
        for (const uint64_t place : {uint64_t{0}, region.length - kLength, random() % (region.length - kLength + 1)}) {
            rules::StringFeature string;
            string.kind = kind;
            string.index = index;
            if (rules::ForwardKind(kind) == 15)
                string.section_name = ".data";
            const auto begin = file_.begin() + static_cast<std::ptrdiff_t>(region.offset + place);
            string.bytes.assign(begin, begin + kLength);
            const uint64_t position = rules::FromEnd(kind) ? region.length - kLength - place : place;
            if (position > UINT16_MAX)
                continue;
            const auto at = static_cast<uint16_t>(position);
            for (const uint16_t start :
                 {at, static_cast<uint16_t>(at + 1), static_cast<uint16_t>(at == 0 ? 2 : at - 1)})
                for (const uint16_t length : {uint16_t{0}, uint16_t{1}, uint16_t{2}})
                    for (const uint16_t drift : {uint16_t{0}, uint16_t{1}}) {
                        string.window_start = start;
                        string.window_length = length;
                        string.drift = drift;
                        AddWithHeaders().strings = {string};
                    }
            string.window_start = 0;
            string.window_length = 0;
            string.drift = 0;
            string.mask.set(3);
            string.bytes[3] ^= 0x55;
            AddWithHeaders().strings = {string};
            string.mask.reset();
            for (char &c : string.bytes)
                c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 0x20 : c >= 'A' && c <= 'Z' ? c + 0x20 : c);
            string.options = rules::kStringNoCase;
            AddWithHeaders().strings = {string};
        }
    }

    std::span<const uint8_t> file_;
    base::MemorySource source_;
    evaluation::Features features_;
    RuleSet set_;
};

void ExpectSameAnswers(const RuleSet &all, std::span<const uint8_t> file, std::size_t least_exported,
                       std::size_t least_matches, unsigned altered_headers = 4, unsigned altered_tables = 0) {
    constexpr std::size_t kFirstTable = 0xC00; // the file offset of the third section
    const RuleSet set = Exportable(all);
    EXPECT_GE(set.rules.size(), least_exported) << "of " << all.rules.size();
    BothSides sides(set);
    const std::vector<uint32_t> found = sides.MatchOurs(file);
    EXPECT_EQ(sides.MatchYara(file), found);
    EXPECT_GE(found.size(), least_matches);
    EXPECT_LT(found.size(), set.rules.size());
    std::mt19937 random(3);
    for (const std::vector<uint8_t> &altered : Altered(file, altered_headers, random))
        EXPECT_EQ(sides.MatchYara(altered), sides.MatchOurs(altered));
    // The sections with the tables.
    for (const std::vector<uint8_t> &altered : Altered(file, altered_tables, random, kFirstTable, 0x600))
        EXPECT_EQ(sides.MatchYara(altered), sides.MatchOurs(altered));
}

TEST(YaraExport, AnswersAroundTheValuesOfFiles) {
    const YaraLibrary library;
    for (const bool is_pe32_plus : {false, true}) {
        if (is_pe32_plus && kSampling > 1)
            continue; // most of the time is libyara's, which the sanitizers know nothing of
        const std::vector<uint8_t> file = File(is_pe32_plus);
        RulesAround rules_around(file);
        ExpectSameAnswers(rules_around.Values(), file, 5900, 2000);
        ExpectSameAnswers(rules_around.Tables(), file, 600, 100, 1, 4);
        ExpectSameAnswers(rules_around.NamesAndMeasures(), file, 2000, 600);
        ExpectSameAnswers(rules_around.Strings(), file, 1100, 600);
    }
}

} // namespace
} // namespace tavrik::tests
