/* What can be said, without a file, of those conditions of a rule that ask for names and resources. */
#ifndef TAVRIK_RULES_ANALYSIS_NAME_LOGIC_H
#define TAVRIK_RULES_ANALYSIS_NAME_LOGIC_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "rules/items.h"
#include "rules/model.h"

namespace tavrik::rules::analysis {

/** An element of one of a rule's lists; element 0 of the traits. */
struct ElementOf {
    Item item = Item::Count;
    std::size_t element = 0;
};

/** A condition on names that no file meets, alone or with another. */
struct NameConflict {
    ElementOf at;
    std::optional<ElementOf> with;
};

/** All conflicts of a rule, in no particular order. */
std::vector<NameConflict> FindNameConflicts(const Rule &rule);

/** Every file that meets what `left` asks of names and resources meets what `right` asks of them. (Names of single
 * sections are values, and not looked at.) */
bool NamesImply(const Rule &left, const Rule &right);

/** A text that a rule asks for, in lower case: a rule that implies it asks for the same text, in either case. */
struct NameMark {
    Item item;
    std::string text;
};

std::vector<NameMark> NameMarks(const Rule &rule);

} // namespace tavrik::rules::analysis

#endif
