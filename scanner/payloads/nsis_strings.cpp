#include "scanner/payloads/nsis_strings.h"

#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "base/utf8.h"

namespace tavrik::scanner::payloads {
namespace {

constexpr int kDeepestLanguage = 4; // strings of a language that name others
constexpr std::size_t kLongestRegistryName = 64;
constexpr std::size_t kMostUnits = 16384; // read for one text

constexpr std::string_view kVariables[] = {"CMDLINE",    "INSTDIR", "OUTDIR",  "EXEDIR",     "LANGUAGE", "TEMP",
                                           "PLUGINSDIR", "EXEPATH", "EXEFILE", "HWNDPARENT", "_CLICK",   "_OUTDIR"};
constexpr uint32_t kRegisters = 20; // $0 to $9, $R0 to $R9

std::string VariableName(uint32_t number) {
    if (number < kRegisters / 2)
        return "$" + std::to_string(number);
    if (number < kRegisters)
        return "$R" + std::to_string(number - kRegisters / 2);
    if (number - kRegisters < std::size(kVariables))
        return "$" + std::string(kVariables[number - kRegisters]);
    return "$_" + std::to_string(number - kRegisters - std::size(kVariables)) + "_"; // of the script's author
}

struct ShellFolder {
    uint8_t number;
    std::string_view name;
};

// The folders of the shell (CSIDL) by the names that scripts have for them, a user's and all users' alike.
constexpr ShellFolder kShellFolders[] = {{0x00, "DESKTOP"},
                                         {0x02, "SMPROGRAMS"},
                                         {0x05, "DOCUMENTS"},
                                         {0x06, "FAVORITES"},
                                         {0x07, "SMSTARTUP"},
                                         {0x08, "RECENT"},
                                         {0x09, "SENDTO"},
                                         {0x0B, "STARTMENU"},
                                         {0x0D, "MUSIC"},
                                         {0x0E, "VIDEOS"},
                                         {0x10, "DESKTOP"},
                                         {0x13, "NETHOOD"},
                                         {0x14, "FONTS"},
                                         {0x15, "TEMPLATES"},
                                         {0x16, "STARTMENU"},
                                         {0x17, "SMPROGRAMS"},
                                         {0x18, "SMSTARTUP"},
                                         {0x19, "DESKTOP"},
                                         {0x1A, "APPDATA"},
                                         {0x1B, "PRINTHOOD"},
                                         {0x1C, "LOCALAPPDATA"},
                                         {0x1F, "FAVORITES"},
                                         {0x20, "INTERNET_CACHE"},
                                         {0x21, "COOKIES"},
                                         {0x22, "HISTORY"},
                                         {0x23, "APPDATA"},
                                         {0x24, "WINDIR"},
                                         {0x25, "SYSDIR"},
                                         {0x26, "PROGRAMFILES"},
                                         {0x27, "PICTURES"},
                                         {0x28, "PROFILE"},
                                         {0x2B, "COMMONFILES"},
                                         {0x2D, "TEMPLATES"},
                                         {0x2E, "DOCUMENTS"},
                                         {0x2F, "ADMINTOOLS"},
                                         {0x30, "ADMINTOOLS"},
                                         {0x35, "MUSIC"},
                                         {0x36, "PICTURES"},
                                         {0x37, "VIDEOS"},
                                         {0x38, "RESOURCES"},
                                         {0x39, "RESOURCES_LOCALIZED"},
                                         {0x3B, "CDBURN_AREA"}};

// Units of codes in Unicode strings of version 2, in the private use area: skip, variable, shell folder, language.
constexpr uint32_t kOldWideCodes = 0xE000;
// In other strings of version 2, from here in the same order; since version 3, units 4 to 1.
constexpr uint32_t kOldCodes = 252;
constexpr uint32_t kNewCodes = 4;

} // namespace

NsisStrings::NsisStrings(std::span<const uint8_t> strings, std::span<const uint8_t> languages)
    : strings_(strings), languages_(languages) {
    // The first string is empty: one NUL, or two of a wide one.
    is_wide_ = strings.size() >= 2 && strings[0] == 0 && strings[1] == 0;
    FindDialect();
}

uint32_t NsisStrings::UnitAt(std::size_t place) const {
    if (strings_.size() < width() || place > strings_.size() - width())
        return 0;
    return is_wide_ ? static_cast<uint32_t>(strings_[place] | strings_[place + 1] << 8) : strings_[place];
}

// Nearly every script names variables: their code is followed by a number of which each byte has its highest bit set,
// and there are fewer than 256 of the variables that have names.
void NsisStrings::FindDialect() {
    std::size_t old_codes = 0;
    std::size_t new_codes = 0;
    for (std::size_t place = 0; place + 2 * width() <= strings_.size(); place += width()) {
        const uint32_t unit = UnitAt(place);
        const uint32_t first = UnitAt(place + width());
        if (is_wide_) {
            old_codes += unit == kOldWideCodes + 1 && (first & 0x8000) != 0;
            new_codes += unit == kNewCodes - 1 && (first & 0xFE80) == 0x8080;
        } else if ((first & 0x80) != 0 && (UnitAt(place + 2) & 0xFE) == 0x80) {
            old_codes += unit == kOldCodes + 1;
            new_codes += unit == kNewCodes - 1;
        }
    }
    if (old_codes != new_codes)
        dialect_ = old_codes > new_codes ? Dialect::Old : Dialect::New;
}

std::string NsisStrings::version() const {
    const char *const number = dialect_ == Dialect::New ? " 3" : dialect_ == Dialect::Old ? " 2" : "";
    return std::string("NSIS") + number + (is_wide_ ? " Unicode" : " ANSI");
}

NsisStrings::Code NsisStrings::CodeOf(uint32_t unit) const {
    constexpr Code kCodes[] = {Code::Skip, Code::Variable, Code::Shell, Code::Language};
    const uint32_t base = is_wide_ ? kOldWideCodes : kOldCodes;
    if (dialect_ == Dialect::Old)
        return unit >= base && unit - base < std::size(kCodes) ? kCodes[unit - base] : Code::None;
    return unit >= 1 && unit <= kNewCodes ? kCodes[kNewCodes - unit] : Code::None;
}

// The two bytes after a code as they are, the first lowest.
uint32_t NsisStrings::TakeParameter(std::size_t &place) const {
    const uint32_t low = UnitAt(place);
    place += width();
    if (is_wide_)
        return low;
    const uint32_t high = UnitAt(place);
    place += width();
    return low | high << 8;
}

std::string NsisStrings::RawText(std::size_t number) const {
    std::string text;
    for (std::size_t place = number * width(); text.size() < kLongestRegistryName; place += width()) {
        const uint32_t unit = UnitAt(place);
        if (unit == 0)
            break;
        text += static_cast<char>(unit);
    }
    return text;
}

// A folder's number for the user and one for all users or, with the highest bit set, the place of a registry value's
// name.
std::string NsisStrings::FolderName(uint32_t parameter) const {
    const uint32_t user = parameter & 0xFF;
    const uint32_t all_users = parameter >> 8 & 0xFF;
    if ((user & 0x80) != 0) {
        const std::string value = RawText(user & 0x3F);
        const std::string bits = (user & 0x40) != 0 ? "64" : "";
        if (value.starts_with("ProgramFilesDir"))
            return "$PROGRAMFILES" + bits;
        if (value.starts_with("CommonFilesDir"))
            return "$COMMONFILES" + bits;
    }
    for (const uint32_t number : {user, all_users})
        for (const ShellFolder &folder : kShellFolders)
            if (folder.number == number)
                return "$" + std::string(folder.name);
    return "$_SHELL_" + std::to_string(parameter) + "_";
}

std::optional<uint32_t> NsisStrings::LanguageString(uint32_t index) const {
    uint32_t number;
    if (uint64_t{index} * sizeof(number) + sizeof(number) > languages_.size())
        return std::nullopt;
    std::memcpy(&number, languages_.data() + std::size_t{index} * sizeof(number), sizeof(number));
    return number;
}

void NsisStrings::AppendLanguage(Expansion &out, uint32_t index, int depth) const {
    const std::optional<uint32_t> number = LanguageString(index);
    if (number && depth < kDeepestLanguage)
        return Append(out, *number, depth + 1);
    out.text += "$(LSTR_" + std::to_string(index) + ")";
}

// The number in a parameter: seven bits a byte, with the highest bit set so that no byte is 0.
uint32_t NsisStrings::Decoded(uint32_t parameter) const {
    if (is_wide_ && dialect_ == Dialect::Old)
        return parameter & 0x7FFF;
    return (parameter & 0x7F) | (parameter >> 8 & 0x7F) << 7;
}

bool NsisStrings::BeginsWithFolder(uint32_t number) const {
    using namespace nsis_variable;
    if ((number & 0x80000000) != 0)
        number = LanguageString(~number).value_or(0);
    std::size_t place = std::size_t{number} * width();
    const Code code = CodeOf(UnitAt(place));
    place += width();
    if (code != Code::Variable)
        return code == Code::Shell;
    const uint32_t variable = Decoded(TakeParameter(place));
    return variable == kInstDir || variable == kOutDir || variable == kExeDir || variable == kTemp ||
           variable == kPluginsDir || variable == kSavedOutDir;
}

void NsisStrings::AppendCode(Expansion &out, Code code, uint32_t parameter, int depth) const {
    const uint32_t number = Decoded(parameter);
    if (code == Code::Shell) {
        out.text += FolderName(parameter);
    } else if (code == Code::Language) {
        AppendLanguage(out, number, depth);
    } else {
        const auto value = out.values.find(number);
        out.text += value != out.values.end() ? value->second : VariableName(number);
    }
}

void NsisStrings::Append(Expansion &out, uint32_t number, int depth) const {
    std::string narrow; // what is not converted yet
    std::u16string wide;
    const auto convert = [&] {
        out.text += is_wide_ ? base::LossyUtf8Of(wide) : base::Utf8OfWindows1252(narrow);
        wide.clear();
        narrow.clear();
    };
    std::size_t place = std::size_t{number} * width();
    while (out.text.size() + narrow.size() + wide.size() < out.longest && out.units_left != 0) {
        --out.units_left;
        uint32_t unit = UnitAt(place);
        place += width();
        if (unit == 0)
            break;
        const Code code = CodeOf(unit);
        if (code == Code::None || code == Code::Skip) {
            if (code == Code::Skip) {
                unit = UnitAt(place);
                place += width();
            }
            is_wide_ ? wide.push_back(static_cast<char16_t>(unit)) : narrow.push_back(static_cast<char>(unit));
            continue;
        }
        convert();
        AppendCode(out, code, TakeParameter(place), depth);
    }
    convert();
}

std::string NsisStrings::Text(uint32_t number, const std::map<uint32_t, std::string> &values,
                              std::size_t longest) const {
    Expansion out = {values, longest, kMostUnits, {}};
    if ((number & 0x80000000) != 0)
        AppendLanguage(out, ~number, 0); // -1 is the first of the language
    else
        Append(out, number, 0);
    return std::move(out.text);
}

} // namespace tavrik::scanner::payloads
