#include "database/profile/answers.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace tavrik::profile {

std::string Count(std::size_t count) {
    return std::to_string(count);
}

std::string OutOf(std::size_t part, std::size_t whole) {
    return Count(part) + " of " + Count(whole);
}

std::string Range(uint64_t first, uint64_t last) {
    return std::to_string(first) + ".." + std::to_string(last);
}

std::string Text(const Values &values) {
    std::string text;
    for (auto begin = values.begin(); begin != values.end();) {
        auto last = begin;
        std::size_t length = 1;
        while (std::next(last) != values.end() && *std::next(last) == *last + 1) {
            ++last;
            ++length;
        }
        if (length < 3)
            last = begin;
        text += (text.empty() ? "" : ", ") + std::to_string(*begin);
        if (last != begin)
            text += ".." + std::to_string(*last);
        begin = std::next(last);
    }
    return text;
}

std::string Bounds(const Values &values) {
    return values.empty() ? "none" : std::to_string(*values.begin()) + ".." + std::to_string(*values.rbegin());
}

std::string Most(std::size_t part, std::size_t whole) {
    return part * 2 > whole ? "most" : OutOf(part, whole);
}

std::string Rare(std::size_t part, std::size_t whole) {
    return part > 0 && part * 100 <= whole ? "rare" : OutOf(part, whole);
}

std::string Some(std::size_t part, std::size_t whole) {
    return part > 0 && part * 2 < whole ? "some" : OutOf(part, whole);
}

std::string Present(bool present) {
    return present ? "present" : "absent";
}

std::string ByFrequency(const Frequencies &counts, std::size_t limit) {
    std::vector<std::pair<std::size_t, uint32_t>> order;
    for (const auto &[value, count] : counts)
        order.emplace_back(count, value);
    std::sort(order.rbegin(), order.rend());
    std::string text;
    for (std::size_t i = 0; i < std::min(limit, order.size()); ++i)
        text += (text.empty() ? "" : ", ") + Count(order[i].second);
    return text;
}

std::string HexList(const Frequencies &counts) {
    std::string text;
    for (const auto &[value, count] : counts)
        text += fmt::format("{}0x{:X}", text.empty() ? "" : ", ", value);
    return text;
}

} // namespace tavrik::profile
