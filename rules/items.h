/* The parts of a rule that its text names: the sixteen lists, and the parts of one line. */
#ifndef TAVRIK_RULES_ITEMS_H
#define TAVRIK_RULES_ITEMS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tavrik::rules {

/** The lists of a rule and its lines, as items of the text, in the order of the text. */
enum class Item : uint8_t {
#define TAVRIK_LIST(member, Element, item, word, flag) item,
#define TAVRIK_LINE(item, word) item,
#include "rules/lists.def"
    Count,
};

inline constexpr std::size_t kItemCount = static_cast<std::size_t>(Item::Count);

/** The word that each item begins with. */
inline constexpr std::array<std::string_view, kItemCount> kItemWords = {
#define TAVRIK_LIST(member, Element, item, word, flag) word,
#define TAVRIK_LINE(item, word) word,
#include "rules/lists.def"
};

/** The word that an item begins with. */
constexpr std::string_view ItemWord(Item item) {
    return kItemWords[static_cast<std::size_t>(item)];
}

} // namespace tavrik::rules

#endif
