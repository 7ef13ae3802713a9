/* The rows of a rule's blocks: each function parses one row at the cursor and appends its elements to the list. All
 * report errors through the cursor, and throw Unreadable where the rest of the row cannot be read. `begin` is the
 * offset of the row. */
#ifndef TAVRIK_RULES_TEXT_ROWS_H
#define TAVRIK_RULES_TEXT_ROWS_H

#include <cstddef>
#include <vector>

#include "rules/model.h"
#include "rules/text/token_cursor.h"

namespace tavrik::rules::text {

// condition_rows.cpp
void ParseHeaderRow(TokenCursor &cursor, std::vector<HeaderCondition> &list, std::size_t begin);
void ParseSectionRow(TokenCursor &cursor, std::vector<SectionCondition> &list, std::size_t begin);
void ParseSectionNameRow(TokenCursor &cursor, std::vector<SectionNameCondition> &list, std::size_t begin);
void ParseImportTableRow(TokenCursor &cursor, std::vector<IndexedCondition> &list, std::size_t begin);
void ParseMeasureRow(TokenCursor &cursor, std::vector<MeasureCondition> &list, std::size_t begin);
void ParseObjectFieldRow(TokenCursor &cursor, std::vector<SecondaryCondition> &list, std::size_t begin);

// string_rows.cpp
void ParseStringRow(TokenCursor &cursor, std::vector<StringFeature> &list);

// name_rows.cpp
void ParseImportModule(TokenCursor &cursor, std::vector<ImportModule> &list);
void ParseImportFunction(TokenCursor &cursor, std::vector<ImportFunction> &list);
void ParseExportName(TokenCursor &cursor, std::vector<ExportName> &list);
void ParseObjectName(TokenCursor &cursor, std::vector<ObjectName> &list);
void ParseMemberName(TokenCursor &cursor, std::vector<MemberName> &list);

// resource_rows.cpp
void ParseResource(TokenCursor &cursor, std::vector<ResourceEntry> &list);
void ParseResourceType(TokenCursor &cursor, std::vector<ResourceTypeEntry> &list);
void ParseResourceString(TokenCursor &cursor, std::vector<ResourceString> &list);

} // namespace tavrik::rules::text

#endif
