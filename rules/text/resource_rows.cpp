// Rows of the blocks resources, resource_types and resource_strings.
#include "rules/numbers.h"
#include "rules/text/rows.h"
#include "rules/text/values.h"

namespace tavrik::rules::text {

namespace {

// Which entry: a number, any, a name, or a number and a name. The number of a type may be its name.
void ParseWhich(TokenCursor &cursor, uint32_t &number, std::string &name, bool is_type = false) {
    cursor.ExpectSymbol("[");
    number = kAnyResource;
    if (cursor.At(TokenKind::Text)) {
        name = ExpectName(cursor, "a resource name", kMaxResourceName);
    } else if (!cursor.TakeWord("any")) {
        if (is_type && cursor.At(TokenKind::Identifier)) {
            cursor.NoteValue(cursor.Text());
            number = LookUpNumber(cursor, ResourceTypes(), "a resource type");
        } else {
            number = Take<uint32_t>(cursor, "a number, any, or a name");
        }
        if (cursor.TakeSymbol(","))
            name = ExpectName(cursor, "a resource name", kMaxResourceName);
    }
    cursor.ExpectSymbol("]");
}

uint16_t ParseLanguage(TokenCursor &cursor) {
    return cursor.TakeWord("language") ? Take<uint16_t>(cursor, "a language") : uint16_t{0};
}

uint32_t ParseKey(TokenCursor &cursor, uint32_t type) {
    if (!cursor.TakeSymbol(".")) {
        cursor.ExpectSymbol("[", "the string's name or number: .CompanyName or [n]");
        const auto key = Take<uint32_t>(cursor, "a string's number");
        cursor.ExpectSymbol("]");
        return key;
    }
    if (!cursor.At(TokenKind::Identifier))
        cursor.Expected("the name of a string");
    if (type != kVersionResource && type != kManifestResource)
        cursor.Report(Code::E312, cursor.offset(), cursor.length(),
                      "strings of VERSION and MANIFEST resources have names; others have numbers: [n]");
    return LookUpNumber(cursor, ResourceKeys(), "the name of a string");
}

} // namespace

void ParseRow(TokenCursor &cursor, std::vector<ResourceEntry> &list, std::size_t) {
    ResourceEntry element;
    element.type = LookUpNumber(cursor, ResourceTypes(), "a resource type");
    ParseWhich(cursor, element.id, element.name);
    element.language = ParseLanguage(cursor);
    if (cursor.TakeWord("crc32"))
        element.crc32 = Take<uint32_t>(cursor, "a CRC-32");
    list.push_back(std::move(element));
}

void ParseRow(TokenCursor &cursor, std::vector<ResourceTypeEntry> &list, std::size_t) {
    ResourceTypeEntry element;
    if (cursor.TakeWord("type"))
        element.level = kResourceTypeLevel;
    else if (cursor.TakeWord("entry"))
        element.level = kResourceEntryLevel;
    else if (cursor.TakeWord("level"))
        element.level = Take<uint32_t>(cursor, "a level");
    else
        cursor.Expected("'type' or 'entry'");
    ParseWhich(cursor, element.number, element.name, element.level == kResourceTypeLevel);
    element.language = ParseLanguage(cursor);
    if (cursor.TakeWord("absent"))
        element.absent = 1;
    else if (cursor.TakeWord("mode"))
        element.absent = Take<uint32_t>(cursor, "a mode");
    list.push_back(std::move(element));
}

void ParseRow(TokenCursor &cursor, std::vector<ResourceString> &list, std::size_t) {
    ResourceString element;
    element.type = LookUpNumber(cursor, ResourceTypes(), "a resource type");
    ParseWhich(cursor, element.id, element.name);
    element.key = ParseKey(cursor, element.type);
    element.text = ExpectName(cursor, "a text");
    element.language = ParseLanguage(cursor);
    list.push_back(std::move(element));
}

} // namespace tavrik::rules::text
