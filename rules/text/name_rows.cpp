// Rows of names: import_modules, import_functions, export_module, export_functions, object_names, member_names.
#include "rules/text/operators.h"
#include "rules/text/rows.h"
#include "rules/text/values.h"

namespace tavrik::rules::text {

namespace {

template <typename Element>
void ParseOperatorAndName(TokenCursor &cursor, Element &element, std::string_view what) {
    if (const auto op = TakeOperator(cursor))
        element.op = *op;
    element.name = ExpectName(cursor, what);
}

uint8_t ParseOptions(TokenCursor &cursor) {
    if (cursor.TakeWord("option"))
        return Take<uint8_t>(cursor, "an option");
    uint8_t option = 0;
    while (cursor.AtWord("cased") || cursor.AtWord("prefix")) {
        option = static_cast<uint8_t>(option | (cursor.AtWord("cased") ? kNameCased : kNamePrefix));
        cursor.Advance();
    }
    return option;
}

// The row of another list that a name belongs to.
uint16_t ParseElement(TokenCursor &cursor) {
    cursor.ExpectSymbol("#", "the row of the other list that this belongs to, counted from 0: #0");
    return static_cast<uint16_t>(ExpectNumber(cursor, kAnyModule - 1, "a row's number").value);
}

} // namespace

void ParseRow(TokenCursor &cursor, std::vector<ImportModule> &list, std::size_t) {
    ImportModule element;
    if (cursor.AtSymbol("["))
        element.index = static_cast<int16_t>(ParsePosition(cursor, INT16_MAX, "an import's position"));
    ParseOperatorAndName(cursor, element, "a module's name");
    element.option = ParseOptions(cursor);
    list.push_back(std::move(element));
}

void ParseRow(TokenCursor &cursor, std::vector<ImportFunction> &list, std::size_t) {
    ImportFunction element;
    if (cursor.TakeWord("any"))
        element.index = kAnyModule;
    else
        element.index = ParseElement(cursor);
    ParseOperatorAndName(cursor, element, "a function's name");
    list.push_back(std::move(element));
}

void ParseRow(TokenCursor &cursor, std::vector<ExportName> &list, std::size_t) {
    ExportName element;
    ParseOperatorAndName(cursor, element, "an exported name");
    list.push_back(std::move(element));
}

void ParseRow(TokenCursor &cursor, std::vector<ObjectName> &list, std::size_t) {
    ObjectName element;
    element.index = ParsePosition(cursor, UINT16_MAX, "an object's position");
    ParseOperatorAndName(cursor, element, "an object's name");
    element.option = ParseOptions(cursor);
    list.push_back(std::move(element));
}

void ParseRow(TokenCursor &cursor, std::vector<MemberName> &list, std::size_t) {
    MemberName element;
    element.index = ParseElement(cursor);
    ParseOperatorAndName(cursor, element, "a member's name");
    element.option = ParseOptions(cursor);
    list.push_back(std::move(element));
}

} // namespace tavrik::rules::text
