/* Explanations of why a rule does or does not match a file. */
#ifndef TAVRIK_EVALUATION_RULE_EXPLANATION_H
#define TAVRIK_EVALUATION_RULE_EXPLANATION_H

#include <cstddef>
#include <string>
#include <vector>

#include "evaluation/features.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

/** A condition of a rule beside the file. */
struct JudgedLine {
    std::string text;  // as the rule language writes it
    std::string value; // what the file has instead or as well, in words; "" where the condition has no one value
    bool is_met = false;
    bool is_required = true; // false for strings that an expression decides about
};

/** The rule's text, condition by condition, each marked "ok" or "FAIL" next to what the file has. */
struct RuleExplanation {
    bool matches = false;   // the plain evaluator's answer
    std::size_t failed = 0; // conditions that are not met
    std::string text;       // lines, each with its line feed
    std::vector<JudgedLine> conditions;
};

/** Judges every condition of a rule in working form, also after the first that is not met. */
RuleExplanation ExplainRule(const HeuristicRule &rule, Features &features);

} // namespace tavrik::evaluation

#endif
