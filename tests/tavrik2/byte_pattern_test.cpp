// The pattern search against a naive one.
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "tavrik2/pe/byte_pattern.h"

namespace tavrik::tests {
namespace {

int32_t PlaceIn(const std::string &buffer, const std::string &pattern) {
    return tavrik2::FindBytePattern(
        reinterpret_cast<const uint8_t *>(buffer.data()), static_cast<int32_t>(buffer.size()),
        reinterpret_cast<const uint8_t *>(pattern.data()), static_cast<int32_t>(pattern.size()));
}

TEST(BytePattern, AgreesWithANaiveSearchOnRandomData) {
    std::mt19937 random(1);
    const auto draw = [&](size_t length, int alphabet) {
        // Heap blocks of the exact size: a read beyond an end is a finding of the address sanitizer.
        std::string text(length, '\0');
        for (char &character : text)
            character = static_cast<char>(0xFE + random() % static_cast<unsigned>(alphabet));
        return text;
    };
    int found = 0;
    for (int round = 0; round < 20000; ++round) {
        const int alphabet = round % 2 == 0 ? 2 : 4;
        const std::string buffer = draw(random() % 80, alphabet);
        const std::string pattern = draw(random() % 9, alphabet);
        const size_t place = buffer.find(pattern);
        found += place != std::string::npos;
        ASSERT_EQ(PlaceIn(buffer, pattern), place == std::string::npos ? -1 : static_cast<int32_t>(place))
            << testing::PrintToString(buffer) << " / " << testing::PrintToString(pattern);
    }
    EXPECT_GT(found, 1000);
}

TEST(BytePattern, EdgesOfTheBuffer) {
    EXPECT_EQ(PlaceIn("", ""), 0);
    EXPECT_EQ(PlaceIn("abc", ""), 0);
    EXPECT_EQ(PlaceIn("", "a"), -1);
    EXPECT_EQ(PlaceIn("abc", "abc"), 0);
    EXPECT_EQ(PlaceIn("xabc", "abc"), 1);
    // Nothing is read of a buffer shorter than the pattern, or of negative length.
    const uint8_t pattern[2] = {};
    EXPECT_EQ(tavrik2::FindBytePattern(nullptr, 1, pattern), -1);
    EXPECT_EQ(tavrik2::FindBytePattern(nullptr, -1, pattern, 0), -1);
}

} // namespace
} // namespace tavrik::tests
