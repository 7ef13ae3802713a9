/* The parts of a report as JSON objects. */
#ifndef TAVRIK_SCANNER_REPORT_JSON_H
#define TAVRIK_SCANNER_REPORT_JSON_H

#include <span>

#include "base/json.h"
#include "scanner/scan.h"

namespace tavrik::scanner {

using Json = base::Json;

/** The number of the form that docs/json.md describes. It grows when a program that reads the objects could
 * misunderstand them; keys that are added leave it as it is. */
inline constexpr int kJsonSchema = 1;

/** Adds a path to an object: `key` has its text, in which bytes that are not UTF-8 become U+FFFD, and where there are
 * any, `key`_b64 has all bytes in base64. */
void AddPath(Json &object, const std::string &key, const std::filesystem::path &path);

/** What is wrong or remarkable: {"code": a word, "text": for people}. */
Json ProblemObject(std::string_view code, const std::string &text);

/** A rule's metadata: authors, references and samples as lists, date and description as texts. */
Json MetadataObject(std::span<const rules::MetadataEntry> metadata);

/** The object of a file's report, see docs/json.md. */
Json ReportObject(const FileReport &report);

/** An object as one line without its line feed; bytes that are not UTF-8 become U+FFFD. */
std::string LineOf(const Json &object);

} // namespace tavrik::scanner

#endif
