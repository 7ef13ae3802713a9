/* The handle of reports: a report with the texts that the C interface hands out, made once. */
#ifndef TAVRIK_ENGINE_REPORT_H
#define TAVRIK_ENGINE_REPORT_H

#include <memory>
#include <string>
#include <vector>

#include "scanner/scan.h"
#include "tavrik/tavrik.h"

struct tavrik_report {
    struct NearTexts {
        std::string kind, text, conditions;
    };

    /** Keeps what is inside as reports of their own. */
    explicit tavrik_report(tavrik::scanner::FileReport from);

    tavrik::scanner::FileReport report; // its `inside` is empty
    tavrik_status status = TAVRIK_OK;
    std::string name;
    std::string parent;
    std::string json;
    std::vector<std::string> action_names;
    std::vector<std::string> finding_kinds;
    std::vector<std::string> payload_kinds;
    std::vector<NearTexts> near_texts;
    std::vector<std::string> note_codes;
    std::vector<std::unique_ptr<tavrik_report>> inside;
};

#endif
