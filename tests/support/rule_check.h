/* Asks rules, given as text, of files given as bytes. */
#ifndef TAVRIK_TESTS_SUPPORT_RULE_CHECK_H
#define TAVRIK_TESTS_SUPPORT_RULE_CHECK_H

#include <initializer_list>
#include <string>

#include <gtest/gtest.h>

#include "base/byte_writer.h"
#include "evaluation/evaluator.h"
#include "evaluation/rule_explanation.h"
#include "evaluation/rule_index.h"
#include "rules/record/record_builder.h"
#include "rules/text/parser.h"

namespace tavrik::tests {

/** Whether a rule of these blocks matches the file; both evaluators and the explanation must agree. */
inline bool Holds(const base::Bytes &file, const std::string &blocks) {
    const rules::text::ParsedFile parsed = rules::text::ParseRules("rule 1 \"a\" { " + blocks + " }");
    EXPECT_TRUE(parsed.diagnostics.empty()) << blocks << ": " << parsed.diagnostics.front().message;
    const rules::record::RecordSet records(parsed.set);
    base::MemorySource source(file);
    evaluation::Features features(source);
    const bool holds = evaluation::Matches(*records.rules()[0], features);
    EXPECT_EQ(evaluation::RuleIndex(records.rules()).Match(features).size(), holds ? 1u : 0u) << blocks;
    EXPECT_EQ(evaluation::ExplainRule(*records.rules()[0], features).matches, holds) << blocks;
    return holds;
}

/** The blocks of a rule, and whether it matches. */
struct RuleCase {
    std::string blocks;
    bool holds;
};

inline void Check(const base::Bytes &file, std::initializer_list<RuleCase> cases) {
    for (const RuleCase &each : cases)
        EXPECT_EQ(Holds(file, each.blocks), each.holds) << each.blocks;
}

} // namespace tavrik::tests

#endif
