/* The rows of a rule's blocks: each function parses one row of its list at the cursor and appends the row's elements.
 * All report errors through the cursor, and throw Unreadable where the rest of the row cannot be read. `begin` is the
 * offset of the row. */
#ifndef TAVRIK_RULES_TEXT_ROWS_H
#define TAVRIK_RULES_TEXT_ROWS_H

#include <cstddef>
#include <vector>

#include "rules/model.h"
#include "rules/text/token_cursor.h"

namespace tavrik::rules::text {

// condition_rows.cpp
void ParseRow(TokenCursor &cursor, std::vector<HeaderCondition> &list, std::size_t begin);
void ParseRow(TokenCursor &cursor, std::vector<SectionCondition> &list, std::size_t begin);
void ParseRow(TokenCursor &cursor, std::vector<SectionNameCondition> &list, std::size_t begin);
void ParseRow(TokenCursor &cursor, std::vector<IndexedCondition> &list, std::size_t begin);
void ParseRow(TokenCursor &cursor, std::vector<MeasureCondition> &list, std::size_t begin);
void ParseRow(TokenCursor &cursor, std::vector<SecondaryCondition> &list, std::size_t begin);

// metadata_rows.cpp
void ParseRow(TokenCursor &cursor, std::vector<MetadataEntry> &list, std::size_t begin);

// string_rows.cpp
void ParseRow(TokenCursor &cursor, std::vector<StringFeature> &list, std::size_t begin);

// name_rows.cpp
void ParseRow(TokenCursor &cursor, std::vector<ImportModule> &list, std::size_t begin);
void ParseRow(TokenCursor &cursor, std::vector<ImportFunction> &list, std::size_t begin);
void ParseRow(TokenCursor &cursor, std::vector<ExportName> &list, std::size_t begin);
void ParseRow(TokenCursor &cursor, std::vector<ObjectName> &list, std::size_t begin);
void ParseRow(TokenCursor &cursor, std::vector<MemberName> &list, std::size_t begin);

// resource_rows.cpp
void ParseRow(TokenCursor &cursor, std::vector<ResourceEntry> &list, std::size_t begin);
void ParseRow(TokenCursor &cursor, std::vector<ResourceTypeEntry> &list, std::size_t begin);
void ParseRow(TokenCursor &cursor, std::vector<ResourceString> &list, std::size_t begin);

} // namespace tavrik::rules::text

#endif
