#include "tools/scanning/exclusions.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "base/text.h"

namespace tavrik::scanning {

namespace {

std::string GenericText(const std::filesystem::path &path) {
    std::string text = base::PathText(path);
    std::ranges::replace(text, static_cast<char>(std::filesystem::path::preferred_separator), '/');
    return WithoutTrailingSeparators(text);
}

// Whether a pattern with a separator can match `path` or something below it.
bool CanMatchBelow(std::string_view pattern, std::string_view path) {
    const std::size_t wildcard = pattern.find_first_of("*?[");
    const std::string_view literal = pattern.substr(0, wildcard);
    if (literal.size() < path.size())
        return wildcard != std::string_view::npos && path.starts_with(literal);
    return literal.starts_with(path) && (literal.size() == path.size() || literal[path.size()] == '/');
}

} // namespace

std::string WithoutTrailingSeparators(std::string pattern) {
    while (pattern.size() > 1 && pattern.back() == '/')
        pattern.pop_back();
    return pattern;
}

std::string WhyNothingMatches(const std::string &pattern, const std::vector<std::filesystem::path> &paths) {
    const std::string shown = fmt::format("--exclude \"{}\" can match nothing: ", base::Printable(pattern));
    if (pattern.empty())
        return shown + "no file has an empty name";
    if (pattern == "/" || pattern.find("//") != std::string::npos)
        return shown + "no file has an empty name between two separators";
    const bool by_path = pattern.find('/') != std::string::npos;
    if (!by_path || paths.empty())
        return "";
    const auto can_match = [&](const std::filesystem::path &path) { return CanMatchBelow(pattern, GenericText(path)); };
    if (std::ranges::any_of(paths, can_match))
        return "";
    return shown +
           fmt::format("a pattern with / is compared with whole paths, which begin with {} here; write {}/{} or "
                       "*/{}",
                       base::PrintablePath(paths.front()), base::Printable(GenericText(paths.front())),
                       base::Printable(pattern), base::Printable(pattern));
}

} // namespace tavrik::scanning
