/* A visit of a rule's sixteen lists, for code that treats them alike. */
#ifndef TAVRIK_RULES_LISTS_H
#define TAVRIK_RULES_LISTS_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "rules/items.h"

namespace tavrik::rules {

/** The bits of feature_flags: what the rule asks about a file's structure and about its content. */
inline constexpr uint8_t kStructureFlag = 1;
inline constexpr uint8_t kContentFlag = 2;

/** One of the lists, known at compile time. */
template <Item kListItem>
struct ListTag;

#define TAVRIK_LIST(member, Element, item_, word, flag)                                                                \
    template <>                                                                                                        \
    struct ListTag<Item::item_> {                                                                                      \
        static constexpr Item kItem = Item::item_;                                                                     \
        static constexpr std::string_view kName = #member;     /* in the record */                                     \
        static constexpr std::string_view kElement = #Element; /* type of the elements */                              \
        static constexpr uint8_t kFlag = flag;                 /* bit of feature_flags */                              \
    };
#include "rules/lists.def"

/** Calls visit(ListTag<item>(), holders.list...) for each of the lists in the order of the record. A holder is anything
 * with the sixteen members: a Rule, a binary record, or another struct. */
template <typename Visit, typename... Holders>
constexpr void EachList(Visit &&visit, Holders &&...holders) {
#define TAVRIK_LIST(member, Element, item, word, flag) visit(ListTag<Item::item>(), holders.member...);
#include "rules/lists.def"
}

/** The number of lists. */
inline constexpr std::size_t kListCount = [] {
    std::size_t count = 0;
#define TAVRIK_LIST(member, Element, item, word, flag) ++count;
#include "rules/lists.def"
    return count;
}();
static_assert(kListCount == 16);

} // namespace tavrik::rules

#endif
