/* What a scan found, as marks on the file's map. */
#ifndef TAVRIK_SCANNER_MAP_MARKS_H
#define TAVRIK_SCANNER_MAP_MARKS_H

#include <vector>

#include "evaluation/features.h"
#include "scanner/map/file_map.h"
#include "scanner/scan.h"

namespace tavrik::scanner::map {

/** Marks beyond these are left out. */
inline constexpr std::size_t kMostMarks = 1024;

/** The payloads, the near misses and the strings of the detections (of each the first occurrence), in this order.
 * `scanner` made the report.
 * `features` is of the file that the report is about. */
std::vector<Mark> MarksOf(const FileReport &report, const Scanner &scanner, evaluation::Features &features);

} // namespace tavrik::scanner::map

#endif
