/* The parts of a report as JSON objects. */
#ifndef TAVRIK_SCANNER_REPORT_JSON_H
#define TAVRIK_SCANNER_REPORT_JSON_H

#include <nlohmann/json.hpp>

#include "scanner/scan.h"

namespace tavrik::scanner {

using Json = nlohmann::ordered_json;

/** The object of a file's report, see docs/json.md. */
Json ReportObject(const FileReport &report);

/** An object as one line without its line feed; bytes that are not UTF-8 become U+FFFD. */
std::string LineOf(const Json &object);

} // namespace tavrik::scanner

#endif
