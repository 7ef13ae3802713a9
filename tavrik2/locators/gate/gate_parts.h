/* A gate taken apart: conditions with their ranges, and alternatives with their columns, in the order of the rows. For
 * whoever shows gates or makes values that pass them; the evaluation does not need it. */
#ifndef TAVRIK2_LOCATORS_GATE_GATE_PARTS_H
#define TAVRIK2_LOCATORS_GATE_GATE_PARTS_H

#include "tavrik2/locators/gate/gate.h"

namespace tavrik2 {

/** The part that `rows` (at least one) begin with: a condition with all its ranges, or alternatives from their Begin to
 * their End. */
constexpr GateView FirstPart(GateView rows) {
    uint32_t count = 0;
    uint32_t depth = 0;
    RowKind kind;
    do {
        kind = rows.rows[count++].kind;
        depth += kind == RowKind::Begin ? 1 : 0;
        depth -= kind == RowKind::End ? 1 : 0;
    } while (depth != 0 || kind == RowKind::Range);
    return {rows.rows, count};
}

/** What is left of `rows` after its first part. */
constexpr GateView AfterPart(GateView rows, GateView part) {
    return {rows.rows + part.count, rows.count - part.count};
}

/** True for alternatives, false for a condition, all of whose rows are ranges of one field. */
constexpr bool IsAlternatives(GateView part) {
    return part.rows[0].kind == RowKind::Begin;
}

/** Calls visit(heading, rows) for each column of alternatives, with the row that heads it and those below that. */
template <typename Visit>
constexpr void ForEachColumn(GateView alternatives, Visit visit) {
    uint32_t heading = 0;
    uint32_t depth = 0;
    for (uint32_t index = 1; index < alternatives.count; ++index) {
        const RowKind kind = alternatives.rows[index].kind;
        if (depth == 0 && (kind == RowKind::Next || kind == RowKind::End)) {
            visit(alternatives.rows[heading], GateView{alternatives.rows + heading + 1, index - heading - 1});
            heading = index;
        } else if (kind == RowKind::Begin) {
            ++depth;
        } else if (kind == RowKind::End) {
            --depth;
        }
    }
}

} // namespace tavrik2

#endif
