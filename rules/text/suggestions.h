/* Names that resemble a misspelt one. */
#ifndef TAVRIK_RULES_TEXT_SUGGESTIONS_H
#define TAVRIK_RULES_TEXT_SUGGESTIONS_H

#include <string>
#include <string_view>
#include <vector>

namespace tavrik::rules::text {

/** The closest of the names as a sentence, "did you mean 'X'?"; when none is close a list of all of them, or "" when
 * they are many. */
std::string Suggest(std::string_view wrong, const std::vector<std::string_view> &names);

/** Suggest over the elements of a table; `name_of` gives the name of one. */
template <typename Table, typename NameOf>
std::string SuggestFrom(const Table &table, std::string_view wrong, NameOf name_of) {
    std::vector<std::string_view> names;
    for (const auto &element : table)
        names.push_back(name_of(element));
    return Suggest(wrong, names);
}

} // namespace tavrik::rules::text

#endif
