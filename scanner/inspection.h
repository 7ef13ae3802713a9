/* One file, opened for questions about it. */
#ifndef TAVRIK_SCANNER_INSPECTION_H
#define TAVRIK_SCANNER_INSPECTION_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "base/byte_source.h"
#include "evaluation/features.h"
#include "evaluation/rule_explanation.h"
#include "scanner/explain.h"
#include "scanner/report_json.h"
#include "scanner/scan.h"

namespace tavrik::scanner {

/** The object of a rule's explanation, see docs/json.md; `action` is the module's, where it was asked. */
Json RuleObject(const evaluation::RuleExplanation &explanation, const HeuristicRule &rule,
                std::optional<uint32_t> action = std::nullopt);

/** What the text of one of the scanner's rules says about it. */
std::span<const rules::MetadataEntry> MetadataOf(const Scanner &scanner, const HeuristicRule &rule);

/** The same as text, a line for each entry. */
std::string MetadataText(std::span<const rules::MetadataEntry> metadata);

/** A file of which a scanner's rules and entries are asked one by one. One thread at a time. */
class Inspection {
public:
    /** Reads the headers. Both must outlive the object. */
    Inspection(const Scanner &scanner, base::ByteSource &source);

    evaluation::Features &features() { return features_; }
    bool IsPe() const { return pe_.status == PeStatus::Parsed; }

    /** What the headers say to the locators; `text` says why there is nothing. */
    const PeResult &pe() const { return pe_; }

    /** Throws base::Error when the file has no headers of a PE file: not-pe with `remedy` after its reason, or
     * read-failed. */
    void RequirePe(const std::filesystem::path &file, const std::string &remedy) const;

    /** Throws base::Error when a read has failed, so that no answer means anything. */
    void RequireRead(const std::filesystem::path &file) const;

    bool Matches(const HeuristicRule &rule);
    evaluation::RuleExplanation ExplainRule(const HeuristicRule &rule);

    /** For an entry (below LOCATOR_COUNT) of a PE file, by a scanner with a module. */
    Explanation ExplainEntry(uint32_t entry);
    Json EntryObject(uint32_t entry);

private:
    const Scanner &scanner_;
    base::ByteSource &source_;
    evaluation::Features features_;
    PeResult pe_;
};

} // namespace tavrik::scanner

#endif
