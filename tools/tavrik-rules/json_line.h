/* JSON Lines on standard output. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_JSON_LINE_H
#define TAVRIK_TOOLS_TAVRIK_RULES_JSON_LINE_H

#include "base/console.h"
#include "scanner/report_json.h"

namespace tavrik::rules_tool {

/** The number of the objects' form; it grows when a program that reads them could misunderstand them. */
inline constexpr int kJsonSchema = 1;

/** Prints an object, which begins with the number of its form, as one line; bytes that are not UTF-8 become U+FFFD. */
inline void PrintJsonLine(const base::Json &object) {
    base::Print(object.Text() + "\n");
}

/** A rule's metadata: authors, references and samples as lists, date and description as texts. */
inline base::Json MetadataJson(const rules::Rule &rule) {
    return scanner::MetadataObject(rule.metadata);
}

} // namespace tavrik::rules_tool

#endif
