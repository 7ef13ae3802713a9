/* A file's report in the forms that people and programs read. */
#ifndef TAVRIK_HOST_REPORT_H
#define TAVRIK_HOST_REPORT_H

#include <string>

#include "host/scan.h"

namespace tavrik::host {

/** A line for each finding, each with its line feed; "" when there is none. */
std::string TextLines(const FileReport &report);

/** One JSON object without line feeds: file, size (null when unknown), status ("scanned", "not-pe" or "error"), error
 * (with that status only) and findings. Bytes of the name that are no UTF-8 are replaced by U+FFFD. */
std::string JsonLine(const FileReport &report);

} // namespace tavrik::host

#endif
