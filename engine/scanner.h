/* The handles of rules and scanners. */
#ifndef TAVRIK_ENGINE_SCANNER_H
#define TAVRIK_ENGINE_SCANNER_H

#include <memory>
#include <string>
#include <vector>

#include "engine/input.h"
#include "rules/record/record_builder.h"
#include "rules/text/parser.h"
#include "scanner/scan.h"
#include "tavrik/tavrik.h"

struct tavrik_rules {
    struct Texts {
        std::string code, message, help, rendered;
    };

    tavrik::rules::text::Source source;
    std::vector<tavrik::rules::text::Diagnostic> diagnostics;
    std::vector<Texts> texts;                                        // of each diagnostic
    std::vector<std::string> metadata;                               // of each rule
    std::shared_ptr<const tavrik::rules::RuleSet> set;               // null when the text has errors
    std::shared_ptr<const tavrik::rules::record::RecordSet> records; // of the set; null with it
};

struct tavrik_scanner {
    std::unique_ptr<const tavrik::scanner::Scanner> scanner;

    /** Opens what a call is to read, within the settings. Throws Failure and base::Error. */
    tavrik::engine::Input Open(const tavrik_input *input, const tavrik_cancel *cancel) const;

    /** The same for calls without a report: throws also when it is larger than the settings permit. */
    tavrik::engine::Input OpenWithin(const tavrik_input *input, const tavrik_cancel *cancel) const;
};

#endif
