// The ways to look for strings: each must say what comparing at every position says.
#include <algorithm>
#include <array>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "evaluation/gram_search.h"
#include "evaluation/string_pass.h"
#include "evaluation/string_pattern.h"
#include "evaluation/string_search.h"
#include "evaluation/window_search.h"
#include "rules/model.h"
#include "rules/record/record_builder.h"
#include "tests/support/sampling.h"

namespace tavrik::tests {
namespace {

using base::Region;

/** Bytes that can only be read piece by piece. */
class StreamedSource final : public base::ByteSource {
public:
    explicit StreamedSource(base::MemorySource &memory) : memory_(memory) {}
    uint64_t size() const override { return memory_.size(); }
    std::size_t ReadAt(uint64_t at, void *to, std::size_t length) override { return memory_.ReadAt(at, to, length); }
    const std::string &error() const override { return memory_.error(); }

private:
    base::MemorySource &memory_;
};

class StringSearch : public testing::Test {
protected:
    std::size_t Below(std::size_t bound) { return random_() % bound; }
    bool Once(std::size_t in) { return Below(in) == 0; }

    std::vector<uint8_t> Content(std::size_t size, const std::string &alphabet) {
        std::vector<uint8_t> content(size);
        std::ranges::generate(content, [&] { return static_cast<uint8_t>(alphabet[Below(alphabet.size())]); });
        return content;
    }

    /** A string of up to `longest` bytes that is often at `place` in the content and often counts there. */
    void AddString(std::vector<uint8_t> &content, std::size_t longest, std::size_t place) {
        StringFeature string = {};
        const std::size_t most = rules::kMaxStringLength;
        string.length = static_cast<uint8_t>(are_long_ ? std::min(24 + Below(longest), most) : 1 + Below(longest));
        string.param_e = static_cast<uint8_t>(Below(4));
        const std::size_t width = (string.param_e & rules::kStringWide) != 0 ? 2 : 1;
        const std::size_t span = string.length * width;
        if (place + span > content.size())
            return;
        std::vector<uint8_t> &bytes = texts_.emplace_back();
        for (std::size_t i = 0; i < string.length; ++i) {
            bytes.push_back(content[place + width * i]);
            content[place + width * i + width - 1] &= static_cast<uint8_t>(width == 2 ? 0 : 0xFF);
            if (Once(200) || ((string.param_e & rules::kStringNoCase) != 0 && Once(2)))
                bytes[i] ^= 0x20;
            if (Once(are_long_ ? 60 : 6) || longest == 1)
                string.mask[i / 8] = static_cast<uint8_t>(string.mask[i / 8] | 1u << i % 8);
        }
        string.param_a = static_cast<uint8_t>(Below(string.length));
        string.string_kind = static_cast<uint8_t>(1 + Below(rules::kMaxStringKind));
        string.param_d = static_cast<uint8_t>(strings_.size()); // names the region
        Region region = {Once(3) ? place : Below(place + 1), 0};
        region.length = Once(3) ? place + span - region.offset : Below(content.size() - region.offset + 1);
        regions_.push_back(Once(3) ? Region{0, content.size()} : region);
        if (!Once(3)) {
            const uint64_t before = place - regions_.back().offset;
            const uint64_t after = regions_.back().length - before - span; // wraps where the region is cut short
            const uint64_t position = rules::FromEnd(string.string_kind) ? after : before;
            string.param_b = static_cast<uint16_t>(Once(3) ? position : position + Below(12) - 6);
            string.param_c = static_cast<uint16_t>(Below(Once(2) ? 2 : 6));
            string.param_f = static_cast<uint16_t>(Once(2) ? 0 : Below(6));
        }
        strings_.push_back(string);
    }

    /** Compares all ways on all strings, which are then forgotten. */
    void Check(std::span<const uint8_t> content) {
        std::vector<const StringFeature *> pointers;
        for (std::size_t i = 0; i < strings_.size(); ++i) {
            strings_[i].bytes = texts_[i].data();
            pointers.push_back(&strings_[i]);
        }
        const evaluation::StringPass pass(pointers);
        base::MemorySource memory(content);
        StreamedSource stream(memory);
        for (base::ByteSource *source : std::array<base::ByteSource *, 2>{&memory, &stream}) {
            base::FileBytes bytes(*source);
            const std::vector<bool> passed =
                pass.Search(bytes, [&](const StringFeature &string) { return regions_[string.param_d]; });
            base::FileBytes in_memory(memory);
            for (std::size_t i = 0; i < strings_.size(); ++i) {
                const bool is_present = evaluation::IsStringPresentPlainly(in_memory, regions_[i], strings_[i]);
                EXPECT_EQ(evaluation::IsStringPresent(bytes, regions_[i], strings_[i]), is_present) << i;
                EXPECT_EQ(passed[i], is_present) << i;
                found_ += is_present ? 1U : 0U;
            }
            compared_ += strings_.size();
        }
        strings_.clear();
        texts_.clear();
        regions_.clear();
    }

    std::mt19937 random_{1};
    bool are_long_ = false; // the strings that are added: long enough for windows
    std::vector<StringFeature> strings_;
    std::vector<std::vector<uint8_t>> texts_;
    std::vector<Region> regions_;
    std::size_t found_ = 0;
    std::size_t compared_ = 0;
};

TEST_F(StringSearch, AgreesInSmallFiles) {
    for (const char *alphabet : {"aB", "aAbB@`\x01", "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"})
        for (int round = 0; round < 300; ++round) {
            are_long_ = round % 3 == 0;
            std::vector<uint8_t> content = Content(Below(round % 2 == 0 ? 40 : 2000), alphabet);
            for (int count = 0; count < 40; ++count)
                AddString(content, std::array<std::size_t, 4>{1, 4, 12, 128}[Below(4)], Below(content.size() + 1));
            Check(content);
        }
    EXPECT_GT(found_, compared_ / 4) << "both answers must be common";
    EXPECT_LT(found_, compared_ * 3 / 4);
}

TEST_F(StringSearch, AgreesWherePiecesMeet) {
    constexpr std::size_t kPiece = 256 * 1024;
    std::vector<uint8_t> content = Content(2 * kPiece + 1000, "abcdefghijklmnopqrstuvwxyz");
    for (int round = 0; round < 16; ++round) {
        are_long_ = round % 2 == 0;
        for (int count = 0; count < 4; ++count)
            AddString(content, 128, kPiece * (1 + Below(2)) - 128 + Below(384));
        Check(content);
    }
    EXPECT_GT(found_, compared_ / 8);
}

// Strings of all kinds begin at every place of a stride, before and after the ends of blocks and of pieces, and count
// there and nowhere else.
TEST_F(StringSearch, FindsStringsWhereverTheyBegin) {
    struct Kind {
        std::vector<uint8_t> bytes;
        uint8_t flags;
        uint8_t wildcard; // which byte is one; 0: none
    };
    const Kind kinds[] = {{{'K', 'e', 'y'}, 0, 0},
                          {{'Z', 'a', 'q', 'y', 'R', 's', 'x'}, rules::kStringNoCase, 0},
                          {{'W', 'i', 'd', 'e'}, rules::kStringWide, 0},
                          {{'a', 'a', 'a', 'a', 'a', 'a', 'a', 'a', 'a'}, 0, 0},
                          {{0xE8, 0x01, 0x02, 0x8B, 0xEC, 0x5D, 0xC3}, 0, 2},
                          {std::vector<uint8_t>(60, 0), 0, 0},
                          // Long enough for windows: just so, with zero bytes, with a wildcard that leaves few.
                          {{'E', 'l', 'e', 'v', 'e', 'n', 'B', 'y', 't', 'e', 's'}, rules::kStringNoCase, 0},
                          {{'T', 'w', 'i', 'c', 'e', 'A', 's', 'L', 'o', 'n', 'g'}, rules::kStringWide, 0},
                          {{0x68, 0x8B, 0x45, 0x0C, 0xE8, 0x11, 0x22, 0x8B, 0x55, 0x9D,
                            0xC3, 0x5E, 0x5F, 0x71, 0x99, 0xF4, 0x7A, 0x3B, 0x2D, 0x6F},
                           0,
                           2}};
    constexpr std::size_t kFirstLong = 6;
    constexpr std::size_t kLong = std::size(kinds) - kFirstLong;
    for (const std::size_t end : {std::size_t{0}, std::size_t{256}, std::size_t{4096}})
        for (std::size_t place = end < 40 ? 0 : end - 40; place < end + 40; ++place) {
            std::vector<uint8_t> content(end + 200, '.');
            const bool are_all_long = place / 4 % 2 == 0; // windows are used for these
            for (const Kind &kind : std::span(kinds).subspan(are_all_long ? kFirstLong : 0)) {
                StringFeature string = {};
                string.length = static_cast<uint8_t>(kind.bytes.size());
                string.param_e = kind.flags;
                string.string_kind = 1;
                string.mask[0] = static_cast<uint8_t>(kind.wildcard != 0 ? 1U << kind.wildcard : 0);
                string.param_b = static_cast<uint16_t>(place);
                string.param_c = 1;
                for (const uint16_t off : {uint16_t{0}, uint16_t{1}}) { // counts, and is a byte outside its window
                    strings_.push_back(string);
                    strings_.back().param_b = static_cast<uint16_t>(place + off);
                    strings_.back().param_d = static_cast<uint8_t>(strings_.size() - 1);
                    texts_.push_back(kind.bytes);
                    regions_.push_back({0, content.size()});
                }
            }
            const Kind &there = are_all_long ? kinds[kFirstLong + place % kLong] : kinds[place % std::size(kinds)];
            const std::size_t width = (there.flags & rules::kStringWide) != 0 ? 2 : 1;
            for (std::size_t i = 0; i < there.bytes.size(); ++i) {
                content[place + i * width] =
                    i == 3 ? there.bytes[i]
                           : static_cast<uint8_t>(there.bytes[i] ^ (there.flags & rules::kStringNoCase ? 0x20 : 0));
                if (width == 2)
                    content[place + 2 * i + 1] = 0;
            }
            const std::size_t before = found_;
            Check(content);
            EXPECT_GE(found_ - before, 2U) << place;
        }
}

// Each string of the database begins at every place of a block in turn. Its region is where it is, or begins a byte
// later. Long strings alone are looked for by windows.
TEST_F(StringSearch, FindsEveryStringOfTheDatabaseAtEveryAlignment) {
    constexpr std::size_t kStride = evaluation::GramSearch::kStride;
    const rules::RuleSet written = generator::WrittenRules();
    const rules::record::RecordSet records(generator::Generator(written).Rules());
    for (const std::size_t shortest : {std::size_t{1}, std::size_t{32}}) {
        strings_.clear();
        for (const HeuristicRule *rule : records.rules())
            for (const StringFeature &each : std::span(rule->strings.elements, rule->strings.count)) {
                if (each.length < shortest)
                    continue;
                StringFeature &string = strings_.emplace_back(each);
                string.param_b = string.param_c = string.param_f = 0; // the region decides
            }
        std::vector<const StringFeature *> pointers;
        for (const StringFeature &string : strings_)
            pointers.push_back(&string);
        const evaluation::StringPass pass(pointers);
        for (std::size_t alignment = 0; alignment < kStride; alignment += kSampling) {
            std::vector<uint8_t> content;
            regions_.clear();
            for (std::size_t i = 0; i < strings_.size(); ++i) {
                const evaluation::StringPattern pattern(strings_[i]);
                content.resize(content.size() / kStride * kStride + kStride + (alignment + i) % kStride, '.');
                regions_.push_back({content.size(), pattern.length});
                content.insert(content.end(), pattern.value.begin(), pattern.value.begin() + pattern.length);
                for (std::size_t at = 0; at < pattern.length; ++at)
                    if (pattern.care[at] != 0xFF) // any byte, or either case
                        content[content.size() - pattern.length + at] |=
                            static_cast<uint8_t>(random_() & ~uint32_t{pattern.care[at]});
            }
            content.push_back('.');
            base::MemorySource memory(content);
            StreamedSource stream(memory);
            base::FileBytes in_memory(memory);
            base::FileBytes in_pieces(stream);
            for (const bool is_late : {false, true}) {
                if (is_late && alignment % 8 != 5)
                    continue;
                const std::vector<bool> found =
                    pass.Search(alignment % 2 == 0 ? in_memory : in_pieces, [&](const StringFeature &string) {
                        return regions_[static_cast<std::size_t>(&string - strings_.data())];
                    });
                for (std::size_t i = 0; i < strings_.size(); ++i) {
                    Region &region = regions_[i];
                    ASSERT_EQ(found[i], !is_late || evaluation::IsStringPresentPlainly(in_memory, region, strings_[i]))
                        << i << " at " << region.offset;
                    ++region.offset;
                }
            }
        }
    }
}

TEST_F(StringSearch, WideInstructionsFindWhatOthersFind) {
    constexpr std::size_t kSize = evaluation::GramSearch::kLongestBlock;
    std::vector<uint8_t> content = Content(kSize + evaluation::GramSearch::kReadAfter, "abcdefgh");
    std::fill(content.begin() + 1000, content.begin() + 1500, uint8_t{0});
    std::vector<uint32_t> grams = {evaluation::kGramFold};
    for (std::size_t at = 0; at < kSize; at += 61)
        grams.push_back(evaluation::GramAt(&content[at]));
    const evaluation::GramSearch search(grams);
    for (const bool skips_zeros : {false, true})
        for (const std::size_t size : {std::size_t{32}, std::size_t{1024}, kSize}) {
            const auto places = [&](auto find) {
                static evaluation::GramSearch::Places to;
                const std::size_t count = (search.*find)({content.data(), size}, skips_zeros, to);
                std::vector<uint16_t> sorted(to.begin(), to.begin() + count);
                std::ranges::sort(sorted);
                return sorted;
            };
            const std::vector<uint16_t> found = places(&evaluation::GramSearch::Find);
            EXPECT_EQ(found, places(&evaluation::GramSearch::FindPortably));
            for (std::size_t at = 0; at < size; at += 61)
                EXPECT_TRUE((at >= 997 && at < 1500) || std::ranges::binary_search(found, at)) << at;
            EXPECT_EQ(size > 1024 && std::ranges::binary_search(found, 1200), size > 1024 && !skips_zeros);
        }
}

TEST_F(StringSearch, WideInstructionsFindTheSameWindows) {
    constexpr std::size_t kSize = evaluation::GramSearch::kLongestBlock;
    constexpr std::size_t kApart = 15 * evaluation::kWindowStep;
    const std::vector<uint8_t> content = Content(kSize + evaluation::WindowSearch::kReadAfter, "abcdEFGH");
    std::vector<uint32_t> windows;
    for (std::size_t at = 0; at < kSize; at += kApart)
        windows.push_back(evaluation::WindowAt(&content[at]));
    const evaluation::WindowSearch search(windows);
    for (const std::size_t size : {std::size_t{32}, std::size_t{1024}, kSize}) {
        std::array<std::vector<uint16_t>, 2> found;
        for (const bool is_portable : {false, true}) {
            evaluation::GramSearch::Places to;
            const std::span<const uint8_t> block(content.data(), size);
            found[is_portable].assign(
                to.data(), to.data() + (is_portable ? search.FindPortably(block, to) : search.Find(block, to)));
            std::ranges::sort(found[is_portable]);
        }
        EXPECT_EQ(found[0], found[1]);
        EXPECT_LT(found[0].size(), size / 8) << "few other windows";
        for (std::size_t at = 0; at < size; at += kApart)
            EXPECT_TRUE(std::ranges::binary_search(found[0], at)) << at;
    }
}

} // namespace
} // namespace tavrik::tests
