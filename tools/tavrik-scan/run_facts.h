/* What a report for people says of the run. */
#ifndef TAVRIK_TOOLS_TAVRIK_SCAN_RUN_FACTS_H
#define TAVRIK_TOOLS_TAVRIK_SCAN_RUN_FACTS_H

#include "scanner/html/html_report.h"
#include "scanner/module.h"
#include "tools/tavrik-scan/scan_options.h"

namespace tavrik::scan_tool {

/** The facts of a run that begins now. Takes a third of a second, for the database's digest. */
scanner::html::RunFacts FactsOf(const scanner::Module &module, const ScanOptions &options);

} // namespace tavrik::scan_tool

#endif
