#include "scanner/member_path.h"

#include <algorithm>
#include <array>
#include <cctype>

#include <fmt/format.h>

#include "base/characters.h"
#include "base/text.h"

namespace tavrik::scanner {

namespace {

using namespace std::string_view_literals;

// Names that Windows takes for devices, whatever follows a dot; with superscript digits too.
constexpr std::array kDevices = {"con"sv, "prn"sv, "aux"sv, "nul"sv, "conin$"sv, "conout$"sv, "clock$"sv};
constexpr std::array kNumberedDevices = {"com"sv, "lpt"sv};
constexpr std::array kDeviceNumbers = {"0"sv, "1"sv, "2"sv, "3"sv,        "4"sv,        "5"sv,       "6"sv,
                                       "7"sv, "8"sv, "9"sv, "\xC2\xB9"sv, "\xC2\xB2"sv, "\xC2\xB3"sv};

std::string SmallLetters(std::string_view text) {
    std::string small(text);
    for (char &byte : small)
        byte = byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
    return small;
}

template <typename Names>
bool Holds(const Names &names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool IsDevice(std::string_view name) {
    std::string stem = SmallLetters(name.substr(0, name.find('.')));
    stem.erase(stem.find_last_not_of(' ') + 1);
    if (Holds(kDevices, stem))
        return true;
    return stem.size() > 3 && Holds(kNumberedDevices, stem.substr(0, 3)) && Holds(kDeviceNumbers, stem.substr(3));
}

// At most `length` bytes of a text, no character in part.
void Shorten(std::string &text, std::size_t length) {
    if (text.size() <= length)
        return;
    while (length > 0 && base::IsUtf8Continuation(text[length]))
        --length;
    text.resize(length);
}

// "name.ext" with a number: "name.2.ext".
std::string Numbered(const std::string &name, unsigned number) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0)
        return fmt::format("{}.{}", name, number);
    return fmt::format("{}.{}{}", name.substr(0, dot), number, name.substr(dot));
}

std::string Below(const std::string &folder, std::string_view name) {
    return folder + '/' + SmallLetters(name);
}

} // namespace

std::string SafeComponent(std::string_view name) {
    std::string safe = base::Printable(name);
    std::replace_if(
        safe.begin(), safe.end(), [](char byte) { return "<>:\"/\\|?*"sv.find(byte) != std::string_view::npos; }, '_');
    Shorten(safe, kLongestComponent);
    for (std::size_t end = safe.size(); end > 0 && (safe[end - 1] == '.' || safe[end - 1] == ' '); --end)
        safe[end - 1] = '_';
    if (safe.empty() || IsDevice(safe))
        safe.insert(safe.begin(), '_');
    return safe;
}

std::vector<std::string> SafeComponents(std::string_view path) {
    std::vector<std::string> components;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find_first_of("/\\"), path.size());
        const std::string_view name = path.substr(0, end);
        path.remove_prefix(std::min(end + 1, path.size()));
        if (!name.empty() && name != ".")
            components.push_back(SafeComponent(name));
        if (components.size() > kMostFolders + 1)
            components.erase(components.begin());
    }
    std::size_t length = 0;
    std::size_t kept = 0;
    while (kept < components.size()) {
        length += components[components.size() - kept - 1].size() + 1;
        if (length > kLongestMemberPath)
            break;
        ++kept;
    }
    components.erase(components.begin(), components.end() - static_cast<std::ptrdiff_t>(kept));
    if (components.empty())
        components.push_back("_");
    return components;
}

std::string MemberPaths::TakeName(const std::string &folder, std::string &name, bool is_folder) {
    std::string key = Below(folder, name);
    const auto [wanted, is_free] = names_.try_emplace(key, Name{is_folder, name});
    if (is_free)
        return key;
    // References into the table stay valid while it grows.
    Name &first = wanted->second;
    for (;; ++first.number) {
        std::string other = Numbered(name, first.number);
        key = Below(folder, other);
        const auto [taken, is_new] = names_.try_emplace(key, Name{is_folder, other});
        if (is_new || (is_folder && taken->second.is_folder)) {
            first.number += is_folder ? 0 : 1; // the folder is found again by this number
            name = taken->second.shown;
            return key;
        }
    }
}

std::string MemberPaths::EnterFolders(std::vector<std::string> &components, std::size_t count) {
    std::string folder;
    for (std::size_t index = 0; index < count; ++index) {
        const auto known = names_.find(Below(folder, components[index]));
        if (known != names_.end() && known->second.is_folder) {
            components[index] = known->second.shown;
            folder = known->first;
        } else {
            folder = TakeName(folder, components[index], true);
        }
    }
    return folder;
}

std::vector<std::string> MemberPaths::ForFile(std::string_view path) {
    std::vector<std::string> components = SafeComponents(path);
    const std::string folder = EnterFolders(components, components.size() - 1);
    TakeName(folder, components.back(), false);
    return components;
}

std::vector<std::string> MemberPaths::ForFolder(std::string_view path) {
    std::vector<std::string> components = SafeComponents(path);
    EnterFolders(components, components.size());
    return components;
}

std::vector<std::string> MemberPaths::Another(std::vector<std::string> components) {
    std::string folder;
    for (std::size_t index = 0; index + 1 < components.size(); ++index)
        folder = Below(folder, components[index]);
    TakeName(folder, components.back(), false);
    return components;
}

} // namespace tavrik::scanner
