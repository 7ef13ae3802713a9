/* JSON Lines on standard output. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_JSON_LINE_H
#define TAVRIK_TOOLS_TAVRIK_RULES_JSON_LINE_H

#include <nlohmann/json.hpp>

#include "base/console.h"
#include "scanner/report_json.h"

namespace tavrik::rules_tool {

/** The number of the objects' form; it grows when a program that reads them could misunderstand them. */
inline constexpr int kJsonSchema = 1;

/** Prints an object as one line, beginning with the number of its form; bytes that are not UTF-8 become U+FFFD. */
inline void PrintJsonLine(const nlohmann::ordered_json &object) {
    nlohmann::ordered_json line = {{"schema", kJsonSchema}};
    line.update(object);
    base::Print(scanner::LineOf(line) + "\n");
}

/** A rule's metadata: authors, references and samples as lists, date and description as texts. */
inline nlohmann::ordered_json MetadataJson(const rules::Rule &rule) {
    return scanner::MetadataObject(rule.metadata);
}

} // namespace tavrik::rules_tool

#endif
