// Text that is safe to print, and what the console makes of it.
#include <gtest/gtest.h>

#include "base/characters.h"
#include "base/console.h"
#include "base/error.h"
#include "base/text.h"

namespace tavrik::tests {
namespace {

/** The UTF-8 form of a code in `length` bytes, which may be more than it needs. */
std::string Encoded(uint32_t code, std::size_t length) {
    constexpr unsigned kLeads[] = {0, 0x00, 0xC0, 0xE0, 0xF0};
    std::string text(length, '\0');
    for (std::size_t i = length; i-- > 1; code >>= 6)
        text[i] = static_cast<char>(0x80 | (code & 0x3F));
    text[0] = static_cast<char>(kLeads[length] | code);
    return text;
}

std::string Escaped(const std::string &bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes)
        text += std::string("\\x") + kDigits[static_cast<uint8_t>(byte) >> 4] + kDigits[byte & 15];
    return text;
}

TEST(Printable, ShowsCharactersThatAreSafeAndEscapesTheBytesOfOthers) {
    const struct {
        uint32_t first, last; // codes, both at a border of what is shown
        std::size_t length;   // of their UTF-8 form
        bool is_shown;
    } rows[] = {
        {0x01, 0x1F, 1, false},     {0x20, 0x7E, 1, true},        {0x7F, 0x7F, 1, false},
        {0x80, 0x9F, 2, false},     {0xA0, 0x61B, 2, true},       {0x61C, 0x61C, 2, false},
        {0x61D, 0x7FF, 2, true},    {0x800, 0x200D, 3, true},     {0x200E, 0x200F, 3, false},
        {0x2010, 0x2027, 3, true},  {0x2028, 0x202E, 3, false},   {0x202F, 0x2065, 3, true},
        {0x2066, 0x2069, 3, false}, {0x206A, 0xD7FF, 3, true},    {0xD800, 0xDFFF, 3, false}, // surrogates
        {0xE000, 0xFFFF, 3, true},  {0x10000, 0x10FFFF, 4, true}, {0x110000, 0x1FFFFF, 4, false},
        {0x00, 0x7F, 2, false},     {0x00, 0x7FF, 3, false},      {0x00, 0xFFFF, 4, false}, // longer than needed
    };
    for (const auto &row : rows)
        for (const uint32_t code : {row.first, row.first + 1, (row.first + row.last) / 2, row.last}) {
            const std::string bytes = Encoded(std::min(code, row.last), row.length);
            EXPECT_EQ(base::Printable("<" + bytes + ">"), "<" + (row.is_shown ? bytes : Escaped(bytes)) + ">")
                << std::hex << code << " in " << row.length << " bytes";
        }
}

TEST(Printable, GoesOnAfterBytesThatAreNotUtf8) {
    const std::pair<const char *, const char *> rows[] = {{"", ""},
                                                          {"\x80x", "\\x80x"},
                                                          {"\xBFx", "\\xbfx"},
                                                          {"\xC3", "\\xc3"},
                                                          {"\xC3(x", "\\xc3(x"},
                                                          {"\xE2\x82", "\\xe2\\x82"},
                                                          {"\xE2\x82\xC3\xA4", "\\xe2\\x82\xC3\xA4"},
                                                          {"\xE2(\xA1", "\\xe2(\\xa1"},
                                                          {"\xF0\x9F\x98", "\\xf0\\x9f\\x98"},
                                                          {"\xF8\x88\x80\x80", "\\xf8\\x88\\x80\\x80"},
                                                          {"\xFF\xFE", "\\xff\\xfe"}};
    for (const auto &[bytes, shown] : rows)
        EXPECT_EQ(base::Printable(bytes), shown);
    EXPECT_EQ(base::Printable(std::string_view("a\0b", 3)), "a\\x00b");
}

TEST(Characters, FoldAsciiLettersOnly) {
    const std::string all = "@AMZ[`amz{\xC0\xDE";
    EXPECT_EQ(base::LowerAscii(all), "@amz[`amz{\xC0\xDE");
    EXPECT_TRUE(base::IsEqualIgnoringCase("AmZ.Exe", "aMz.eXE"));
    for (const auto &[left, right] : {std::pair("a", "ab"), {"@", "`"}, {"[", "{"}, {"a", "b"}, {"\xC0", "\xE0"}})
        EXPECT_FALSE(base::IsEqualIgnoringCase(left, right)) << left << right;
    for (int byte = 0; byte < 256; ++byte)
        EXPECT_EQ(base::IsUtf8Continuation(static_cast<char>(byte)), byte >= 0x80 && byte < 0xC0) << byte;
}

TEST(Text, NamesPathsAndCounts) {
    for (const char *name : {"folder/a b.exe", "\xC3\xA4\xE2\x82\xAC"}) {
        EXPECT_EQ(base::PathText(base::PathOf(name)), name);
        EXPECT_EQ(base::PrintablePath(base::PathOf(name)), name);
    }
    EXPECT_EQ(base::PrintablePath(base::PathOf("a\nb")), "a\\x0ab");
    EXPECT_EQ(base::CountText(0, "file"), "0 files");
    EXPECT_EQ(base::CountText(1, "file"), "1 file");
    EXPECT_EQ(base::CountText(2, "error"), "2 errors");
    EXPECT_EQ(base::CountText(UINT64_MAX, "byte"), "18446744073709551615 bytes");
}

TEST(Error, NamesTheFileButForReports) {
    const base::Error about_file(base::PathOf("a\nb"), "is a folder; name a file");
    EXPECT_STREQ(about_file.what(), "a\\x0ab: is a folder; name a file");
    EXPECT_EQ(about_file.reason(), "is a folder; name a file");
    const base::Error general("no rules");
    EXPECT_STREQ(general.what(), "no rules");
    EXPECT_EQ(general.reason(), "no rules");
}

TEST(ShortenLeft, CutsWholeCharactersAtTheBeginning) {
    const struct {
        const char *text;
        std::size_t columns;
        const char *shown;
    } rows[] = {{"abcdef", 7, "abcdef"},
                {"abcdef", 6, "abcdef"},
                {"abcdef", 5, "...ef"},
                {"abcdef", 4, "...f"},
                {"abcdef", 3, "..."},
                {"abcdef", 2, ""},
                {"abcdef", 0, ""},
                {"", 0, ""},
                {"ab", 2, "ab"},
                {"\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F", 4, "\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F"}, // one column each
                {"\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F"
                 "a",
                 4, "...a"},
                {"\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", 6, "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E"}, // two each
                {"\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", 5, "...\xE8\xAA\x9E"},
                {"\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E", 4, "..."},
                {"a\xF0\x9F\x98\x80"
                 "bc",
                 5,
                 "a\xF0\x9F\x98\x80"
                 "bc"},
                {"ab\xF0\x9F\x98\x80"
                 "c",
                 4, "...c"}};
    for (const auto &row : rows)
        EXPECT_EQ(base::ShortenLeft(row.text, row.columns), row.shown) << row.text << " in " << row.columns;
}

TEST(Colours, AreWantedOrNot) {
    EXPECT_EQ(base::Paint(false, base::Colour::Error, "x"), "x");
    EXPECT_EQ(base::Paint(true, base::Colour::Detection, "x"), "\x1b[1;31mx\x1b[0m");
    EXPECT_EQ(base::Paint(true, base::Colour::Finding, "x"), "\x1b[33mx\x1b[0m");
    EXPECT_EQ(base::Paint(true, base::Colour::Error, "x"), "\x1b[31mx\x1b[0m");
    std::FILE *file = std::fopen("no-terminal", "w+");
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(base::WantsColour(base::When::Always, file));
    EXPECT_FALSE(base::WantsColour(base::When::Never, file));
    EXPECT_FALSE(base::WantsColour(base::When::Auto, file));
    std::fclose(file);
    std::remove("no-terminal");
}

TEST(Base64, HasTheVectorsOfItsStandard) {
    const std::pair<const char *, const char *> rows[] = {{"", ""},
                                                          {"f", "Zg=="},
                                                          {"fo", "Zm8="},
                                                          {"foo", "Zm9v"},
                                                          {"foob", "Zm9vYg=="},
                                                          {"fooba", "Zm9vYmE="},
                                                          {"\xFB\xFF", "+/8="}};
    for (const auto &[bytes, text] : rows)
        EXPECT_EQ(base::Base64(bytes), text);
}

} // namespace
} // namespace tavrik::tests
