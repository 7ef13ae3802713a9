#include "rules/text/suggestions.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace tavrik::rules::text {

namespace {

constexpr std::size_t kLongestName = 64; // bytes; the edit distance of two long words is expensive
constexpr std::size_t kMany = 24;        // names that are no longer listed

// The number of single-byte edits between two words.
std::size_t EditDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i);
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row.back();
}

} // namespace

std::string Suggest(std::string_view wrong, const std::vector<std::string_view> &names) {
    std::string_view best;
    std::size_t best_distance = std::max<std::size_t>(wrong.size() / 3, 2) + 1;
    for (const std::string_view name : names) {
        if (name.size() > kLongestName || wrong.size() > kLongestName)
            continue;
        const std::size_t distance = EditDistance(wrong, name);
        if (distance < best_distance) {
            best = name;
            best_distance = distance;
        }
    }
    if (!best.empty())
        return "did you mean '" + std::string(best) + "'?";
    std::string all;
    if (names.size() <= kMany)
        for (const std::string_view name : names)
            all.append(all.empty() ? "one of: " : ", ").append(name);
    return all;
}

} // namespace tavrik::rules::text
