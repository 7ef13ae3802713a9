/* A locator's gate as a tree, for showing: its parts, judged for one file. */
#ifndef TAVRIK_SCANNER_GATE_TREE_H
#define TAVRIK_SCANNER_GATE_TREE_H

#include <span>
#include <string>
#include <vector>

#include "tavrik2/locators/gate/gate.h"

namespace tavrik::scanner {

/** A part of a gate, judged for one file. */
struct GateNode {
    enum class Kind {
        Condition,   // a test of one field
        All,         // every child must hold
        Alternatives // one child must hold
    };

    Kind kind = Kind::All;
    bool holds = true;

    // Of a condition: its field, the rows that accept values of it (one is enough) and the file's value.
    tavrik2::Field field = {};
    std::span<const tavrik2::GateRow> ranges;
    uint64_t value = 0;

    std::string heading; // of an alternative: "profile A"; "" when it has none
    std::vector<GateNode> children;
};

/** The whole gate as an All node. It holds exactly when the gate passes. */
GateNode JudgeGate(tavrik2::GateView gate, const tavrik2::TargetFile &file);

/** The conditions below `node` that do not hold; of alternatives those of the nearest, none when one holds. */
std::size_t CountFailed(const GateNode &node);

/** These conditions, in the gate's order. The nodes are those of `node`. */
std::vector<const GateNode *> FailedConditions(const GateNode &node);

/** The field's name as PE headers have it, such as "Subsystem" or "last section's Name". */
std::string FieldName(tavrik2::Field field);

/** A value of the field as an analyst reads it. */
std::string ValueText(tavrik2::Field field, uint64_t value);

/** What a condition asks for, such as "0x7000..0x8000" or "2". */
std::string WantedText(const GateNode &condition);

} // namespace tavrik::scanner

#endif
