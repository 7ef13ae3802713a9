/* The handle of reports: a report with the texts that the C interface hands out, made once. */
#ifndef TAVRIK_ENGINE_REPORT_H
#define TAVRIK_ENGINE_REPORT_H

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/once.h"
#include "scanner/scan.h"
#include "tavrik/tavrik.h"

namespace tavrik::engine {

/** A rule's metadata as a JSON object; "" when there is none. */
std::string MetadataText(std::span<const rules::MetadataEntry> metadata);

} // namespace tavrik::engine

struct tavrik_report {
    struct NearTexts {
        std::string kind, text, conditions;
    };

    /** Keeps what is inside as reports of their own. */
    explicit tavrik_report(tavrik::scanner::FileReport from);

    /** The report's line of JSON, made by the first call: it takes longer than the scan of most files. Any thread. */
    const std::string &Json() const;

    tavrik::scanner::FileReport report; // its `inside` is empty
    tavrik_status status = TAVRIK_OK;
    std::string name;
    std::string parent;
    std::vector<std::string> action_names;
    std::vector<std::string> metadata; // of each detection
    std::vector<std::string> finding_kinds;
    std::vector<std::string> payload_kinds;
    std::vector<NearTexts> near_texts;
    std::vector<std::string> note_codes;
    std::vector<std::unique_ptr<tavrik_report>> inside;

private:
    mutable tavrik::base::Once json_is_made_;
    mutable std::string json_;
};

#endif
