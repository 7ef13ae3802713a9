/* The handles of scanning. */
#ifndef TAVRIK_ENGINE_SCANNER_H
#define TAVRIK_ENGINE_SCANNER_H

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "engine/input.h"
#include "engine/module.h"
#include "rules/record/record_builder.h"
#include "rules/text/parser.h"
#include "scanner/scan.h"
#include "tavrik/tavrik.h"

struct tavrik_rules {
    struct Texts {
        std::string code, message, help, rendered;
    };

    tavrik::rules::text::Source source;
    tavrik::rules::text::ParsedFile parsed;
    std::vector<Texts> texts;                                        // of each diagnostic
    std::shared_ptr<const tavrik::rules::record::RecordSet> records; // null when the text has errors
};

struct tavrik_scanner {
    std::shared_ptr<const tavrik::engine::LoadedModule> loaded;
    std::shared_ptr<const tavrik::rules::record::RecordSet> records; // null for the module's rules
    tavrik_settings settings;                                        // its rules are in `records`
    std::span<HeuristicRule *const> rules;
    std::unique_ptr<const tavrik::scanner::Scanner> scanner;

    /** Opens what a call is to read, within the settings. Throws Failure and base::Error. */
    tavrik::engine::Input Open(const tavrik_input *input, const tavrik_cancel *cancel) const;
};

struct tavrik_report {
    // The names of detections are the module's or the rules'.
    std::shared_ptr<const tavrik::engine::LoadedModule> loaded;
    std::shared_ptr<const tavrik::rules::record::RecordSet> records;
    tavrik::scanner::FileReport report;
    tavrik_status status = TAVRIK_OK;
    std::string name;
    std::string json;
    std::vector<std::string> detection_names;
    std::vector<std::string> action_names;
    std::vector<std::string> finding_kinds;
    std::vector<std::string> payload_kinds;
};

#endif
