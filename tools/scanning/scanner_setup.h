/* The scanner that the options of a run ask for. */
#ifndef TAVRIK_TOOLS_SCANNING_SCANNER_SETUP_H
#define TAVRIK_TOOLS_SCANNING_SCANNER_SETUP_H

#include <memory>

#include "base/error.h"
#include "scanner/scan.h"
#include "tools/scanning/scan_options.h"

namespace tavrik::scanning {

/** Rule texts have errors, which have been printed. */
class BadRules : public base::Error {
public:
    using base::Error::Error;
};

/** Loads the module and compiles the rule texts, with `settings`. Throws BadRules, and base::Error when the module or a
 * rule file cannot be used. */
std::unique_ptr<const scanner::Scanner> MakeScanner(const ScanOptions &options, const scanner::ScanSettings &settings);

/** The same for work that asks no rules. */
std::unique_ptr<const scanner::Scanner> MakeScannerWithoutRules(const ScanOptions &options);

} // namespace tavrik::scanning

#endif
