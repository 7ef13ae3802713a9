/* What a report for people says of the run. */
#ifndef TAVRIK_TOOLS_SCANNING_RUN_FACTS_H
#define TAVRIK_TOOLS_SCANNING_RUN_FACTS_H

#include "scanner/html/html_report.h"
#include "scanner/scan.h"
#include "tools/scanning/scan_options.h"

namespace tavrik::scanning {

/** The facts of a run that begins now. Takes a third of a second, for the database's digest. */
scanner::html::RunFacts FactsOf(const scanner::Scanner &scanner, const ScanOptions &options);

} // namespace tavrik::scanning

#endif
