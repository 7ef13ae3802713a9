// What is written is what nlohmann-json writes of the same values.
#include <cstdint>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "base/json.h"

namespace tavrik::tests {
namespace {

using base::Json;

std::string Other(const nlohmann::ordered_json &value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Bytes by their role in UTF-8: ends of each range of leads and of what may follow them, and what is escaped.
constexpr unsigned char kRoles[] = {0x00, 0x08, 0x1F, '"',  '\\', 'a',  0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC1,
                                    0xC2, 0xDF, 0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF, 0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFF};

TEST(Json, WritesTextsAsValidUtf8) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string text = {'x', static_cast<char>(byte), 'y'};
        EXPECT_EQ(Json(text).Text(), Other(text)) << byte;
    }
    std::minstd_rand random(1);
    for (int count = 0; count < 20'000; ++count) {
        std::string text;
        for (int length = 0; length < 5; ++length)
            text += static_cast<char>(kRoles[random() % std::size(kRoles)]);
        ASSERT_EQ(Json(text).Text(), Other(text)) << "text " << count;
    }
}

TEST(Json, WritesNumbersThatReadBack) {
    EXPECT_EQ(Json(std::numeric_limits<uint64_t>::max()).Text(), "18446744073709551615");
    EXPECT_EQ(Json(std::numeric_limits<int64_t>::min()).Text(), "-9223372036854775808");
    EXPECT_EQ(Json(uint8_t{7}).Text(), "7");
    for (const double number : {0.0, -1.0, 0.1, 1e-4, 1.5e-5, 12345.678, 1e14, 1e22, 1e-300,
                                std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(Json(number).Text(), Other(number));
}

TEST(Json, KeepsTheOrderOfMembers) {
    Json object = {{"z", nullptr}, {"a", {{"inner", true}}}, {"none", Json::object()}, {"list", Json::array()}};
    object["z"] = std::vector<uint32_t>{3, 1};
    object["more"].push_back("one");
    object["more"].push_back(Json{{"x", -2}})["y\n"] = false;
    const Json copy = object;
    object["list"].push_back(copy);
    const std::string end = R"("more":["one",{"x":-2,"y\n":false}]})";
    const std::string begin = R"({"z":[3,1],"a":{"inner":true},"none":{},"list":[)";
    EXPECT_EQ(copy.Text(), begin + "]," + end);
    EXPECT_EQ(object.Text(), begin + copy.Text() + "]," + end);
    EXPECT_THROW(object.push_back(1), std::bad_variant_access);
    EXPECT_THROW(object["more"]["x"], std::bad_variant_access);
}

} // namespace
} // namespace tavrik::tests
