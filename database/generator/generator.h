/* The rule database: hand-written rules, filled up to the published profile with rules made from specimens. */
#ifndef TAVRIK_DATABASE_GENERATOR_GENERATOR_H
#define TAVRIK_DATABASE_GENERATOR_GENERATOR_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "database/generator/plan.h"
#include "rules/model.h"

namespace tavrik::generator {

class Generator {
public:
    /** Plans the table around `written`, which is borrowed and must outlive the generator. Throws std::invalid_argument
     * when it leaves no room for the profile. */
    explicit Generator(const rules::RuleSet &written) : slots_(PlanTable(written)) {}

    /** All rules, hand-written ones among them, in the order of the table. */
    rules::RuleSet Rules() const;

    /** The number of places in the table. */
    std::size_t size() const { return slots_.size(); }

    /** The id and the name of the rule at a place of the table. */
    uint32_t RuleId(std::size_t place) const;
    const std::string &RuleName(std::size_t place) const;

    /** The specimen of the rule at a place of the table, as a PE file; nothing for a hand-written rule
     * that none was described for. */
    std::optional<std::vector<uint8_t>> SpecimenImage(std::size_t place) const;

private:
    std::vector<Slot> slots_;
};

} // namespace tavrik::generator

#endif
