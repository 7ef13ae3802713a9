/* Rules filed under one exact header value each. */
#ifndef TAVRIK_EVALUATION_FILED_RULES_H
#define TAVRIK_EVALUATION_FILED_RULES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "evaluation/features.h"
#include "rules/numbers.h"
#include "tavrik2/heuristic_rule.h"

namespace tavrik::evaluation {

/** Whether the value of a header condition's field is known from the headers alone, without further reading. */
constexpr bool IsReadWithHeaders(uint16_t field) {
    return field <= rules::header_field::kEntryPointDelta || field == rules::header_field::kImageBaseHigh;
}

/** Which header fields a rule may be filed under. */
enum class FiledUnder : uint8_t {
    ReadWithHeaders, // those whose values need no further reading
    Any
};

/** Whether the rule asks for an exact value of such a field, so that it can be filed. */
bool CanBeFiled(const HeuristicRule &rule, FiledUnder fields);

/** A table from header values to rules. Each rule is filed under the value that, by estimate, the fewest files have; a
 * second exact value, where the rule has one, is kept beside it, so that most rules are left out without a look at
 * their records. Immutable. */
class FiledRules {
public:
    FiledRules() = default;

    /** Files the rules at these positions of the table, all of which CanBeFiled. */
    FiledRules(std::span<HeuristicRule *const> rules, std::span<const uint32_t> positions, FiledUnder fields);

    /** Calls `visit` with the position of each rule whose filed values the file has: with all that can match. */
    template <typename Visit>
    void ForCandidates(Features &features, Visit visit) const {
        for (const uint16_t field : fields_)
            if (const std::optional<uint32_t> value = features.Header(field))
                for (const Entry &entry : Under(field, *value))
                    if (entry.check_field == kNoField || features.Header(entry.check_field) == entry.check_value)
                        visit(entry.position);
    }

private:
    static constexpr uint16_t kNoField = UINT16_MAX;

    struct Entry {
        uint32_t position = 0;
        uint32_t check_value = 0;
        uint16_t check_field = kNoField; // the other field that must have that value
    };

    // A rule to file; it occurs once for each value of alternatives.
    struct Filing {
        uint64_t key = 0;
        Entry entry;
    };

    // The entries filed under one value of one field; unused slots have none.
    struct Slot {
        uint64_t key = 0;
        uint32_t first = 0; // in entries_
        uint32_t count = 0;
    };

    void BuildTable(std::span<const Filing> filings);
    std::span<const Entry> Under(uint16_t field, uint32_t value) const;
    std::size_t PlaceOf(uint64_t key) const;

    std::vector<uint16_t> fields_;    // those that rules are filed under
    std::vector<uint64_t> may_exist_; // a bit for each place, set where a key begins its search
    std::vector<Slot> slots_;         // open addressing; a power of two of them, at most half used
    unsigned shift_ = 0;              // from a hash to its place
    std::vector<Entry> entries_;      // grouped by key
};

} // namespace tavrik::evaluation

#endif
