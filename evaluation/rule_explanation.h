/* Why a rule does or does not match a file, for people. */
#ifndef TAVRIK_EVALUATION_RULE_EXPLANATION_H
#define TAVRIK_EVALUATION_RULE_EXPLANATION_H

#include <cstddef>
#include <string>

#include "evaluation/features.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

/** The rule's text, condition by condition, each marked "ok" or "FAIL" next to what the file has. */
struct RuleExplanation {
    bool matches = false;   // the plain evaluator's answer
    std::size_t failed = 0; // conditions that are not met
    std::string text;       // lines, each with its line feed
};

/** Judges every condition of a rule in working form, also after the first that is not met. */
RuleExplanation ExplainRule(const HeuristicRule &rule, Features &features);

} // namespace tavrik::evaluation

#endif
