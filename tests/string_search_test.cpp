// The ways to look for strings: each must say what comparing at every position says.
#include <array>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/evaluation/string_search.h"
#include "rulelang/model.h"

namespace tavrik::tests {
namespace {

using host::Region;

/** Bytes that can only be read piece by piece. */
class StreamedSource final : public host::ByteSource {
public:
    explicit StreamedSource(std::span<const uint8_t> bytes) : memory_(bytes) {}
    uint64_t size() const override { return memory_.size(); }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override {
        return memory_.ReadAt(offset, buffer, length);
    }
    const std::string &error() const override { return memory_.error(); }

private:
    host::MemorySource memory_;
};

class StringSearch : public testing::Test {
protected:
    std::size_t Below(std::size_t bound) { return random_() % bound; }
    bool Once(std::size_t in) { return Below(in) == 0; }

    std::vector<uint8_t> Content(std::size_t size, const std::string &alphabet) {
        std::vector<uint8_t> content(size);
        for (uint8_t &byte : content)
            byte = static_cast<uint8_t>(alphabet[Below(alphabet.size())]);
        return content;
    }

    /** A string of up to `longest` bytes that often stands in the content, about its place `near`. */
    void AddString(std::vector<uint8_t> &content, std::size_t longest, std::size_t near) {
        StringFeature string = {};
        string.length = static_cast<uint8_t>(1 + Below(longest));
        string.param_e = static_cast<uint8_t>(Below(4));
        const bool is_wide = (string.param_e & rules::kStringWide) != 0;
        const std::size_t span = std::size_t{string.length} * (is_wide ? 2 : 1);
        if (span > content.size())
            return;
        const std::size_t place = std::min(near, content.size() - span);
        std::vector<uint8_t> &bytes = texts_.emplace_back();
        for (std::size_t i = 0; i < string.length; ++i) {
            bytes.push_back(content[place + (is_wide ? 2 * i : i)]);
            if (is_wide && !Once(100))
                content[place + 2 * i + 1] = 0;
            if (Once(200) || ((string.param_e & rules::kStringNoCase) != 0 && Once(2)))
                bytes[i] ^= 0x20;
            if (Once(6) || longest == 1)
                string.mask[i / 8] = static_cast<uint8_t>(string.mask[i / 8] | 1u << i % 8);
        }
        string.param_a = static_cast<uint8_t>(Below(string.length));
        string.string_kind = static_cast<uint8_t>(1 + Below(rules::kMaxStringKind));
        Region region = {0, content.size()};
        if (!Once(3)) {
            region.offset = Once(3) ? place : Below(place + 1);
            region.length = Once(3) ? place + span - region.offset : Below(content.size() - region.offset + 1);
        }
        const uint64_t position =
            rules::FromEnd(string.string_kind) ? region.End() - place - span : place - region.offset;
        if (!Once(3)) {
            string.param_f = static_cast<uint16_t>(Once(2) ? 0 : Below(6));
            string.param_b = static_cast<uint16_t>(Once(3) ? position : position + Below(12) - 6);
            string.param_c = static_cast<uint16_t>(Once(2) ? Below(2) : Below(6));
        }
        strings_.push_back(string);
        regions_.push_back(region);
    }

    /** Compares all ways on all strings, which are then forgotten. */
    void Check(std::span<const uint8_t> content) {
        host::MemorySource memory(content);
        StreamedSource stream(content);
        host::FileBytes plain(memory);
        for (std::size_t i = 0; i < strings_.size(); ++i) {
            strings_[i].bytes = texts_[i].data();
            present_.push_back(host::IsStringPresentPlainly(plain, regions_[i], strings_[i]));
            found_ += present_.back() ? 1U : 0U;
        }
        for (host::ByteSource *source : std::array<host::ByteSource *, 2>{&memory, &stream}) {
            host::FileBytes bytes(*source);
            for (std::size_t i = 0; i < strings_.size(); ++i)
                EXPECT_EQ(host::IsStringPresent(bytes, regions_[i], strings_[i]), present_[i]) << i;
        }
        compared_ += strings_.size();
        strings_.clear();
        texts_.clear();
        regions_.clear();
        present_.clear();
    }

    std::mt19937 random_{1};
    std::vector<StringFeature> strings_;
    std::vector<std::vector<uint8_t>> texts_;
    std::vector<Region> regions_;
    std::vector<bool> present_;
    std::size_t found_ = 0;
    std::size_t compared_ = 0;
};

TEST_F(StringSearch, AgreesInSmallFiles) {
    for (const char *alphabet : {"aB", "aAbB@`\x01", "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"})
        for (int round = 0; round < 400; ++round) {
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
        for (int count = 0; count < 4; ++count)
            AddString(content, 128, kPiece * (1 + Below(2)) - 128 + Below(384));
        Check(content);
    }
    EXPECT_GT(found_, compared_ / 8);
}

} // namespace
} // namespace tavrik::tests
