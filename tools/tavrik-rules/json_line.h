/* JSON Lines on standard output. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_JSON_LINE_H
#define TAVRIK_TOOLS_TAVRIK_RULES_JSON_LINE_H

#include <nlohmann/json.hpp>

#include "base/console.h"
#include "rules/model.h"

namespace tavrik::rules_tool {

/** Prints an object as one line; bytes that are not UTF-8 become U+FFFD. */
inline void PrintJsonLine(const nlohmann::ordered_json &object) {
    base::Print(object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
}

/** A rule's metadata: authors, references and samples as lists, date and description as texts. */
nlohmann::ordered_json MetadataJson(const rules::Rule &rule);

} // namespace tavrik::rules_tool

#endif
