/* The strings of a Nullsoft installer's script, in the four ways in which its versions write them. */
#ifndef TAVRIK_SCANNER_PAYLOADS_NSIS_STRINGS_H
#define TAVRIK_SCANNER_PAYLOADS_NSIS_STRINGS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>

namespace tavrik::scanner::payloads {

/** Numbers of variables. */
namespace nsis_variable {
inline constexpr uint32_t kInstDir = 21;
inline constexpr uint32_t kOutDir = 22;
inline constexpr uint32_t kExeDir = 23;
inline constexpr uint32_t kTemp = 25;
inline constexpr uint32_t kPluginsDir = 26;
inline constexpr uint32_t kSavedOutDir = 31; // $_OUTDIR, with which the compiler goes back to a folder
} // namespace nsis_variable

/** Gives the strings of a script as texts. */
class NsisStrings {
public:
    /** `strings`: the block of strings; `languages`: the table of the first language, after its head. Both must
     * outlive the object. */
    NsisStrings(std::span<const uint8_t> strings, std::span<const uint8_t> languages);

    /** "NSIS 3 Unicode" and the like. */
    std::string version() const;

    /** The string with that number as UTF-8, up to about `longest` bytes: variables that have a value in `values`
     * replaced, others by name, backslashes as they are. "" for a number outside of the block. */
    std::string Text(uint32_t number, const std::map<uint32_t, std::string> &values, std::size_t longest) const;

    /** Whether the string begins with a folder of the system or a variable that is one: as a path, it is absolute. */
    bool BeginsWithFolder(uint32_t number) const;

private:
    /** What a code in a string stands for. */
    enum class Code : uint8_t { None, Skip, Variable, Shell, Language };
    enum class Dialect : uint8_t { Unknown, Old, New }; // of codes: before and since version 3

    /** A text that is being made, with what is left of its bounds. */
    struct Expansion {
        const std::map<uint32_t, std::string> &values;
        std::size_t longest;
        std::size_t units_left; // of all strings that it is made of, since strings can name others and be empty
        std::string text;
    };

    std::size_t width() const { return is_wide_ ? 2 : 1; }
    uint32_t UnitAt(std::size_t place) const;
    Code CodeOf(uint32_t unit) const;
    uint32_t TakeParameter(std::size_t &place) const;
    std::string FolderName(uint32_t parameter) const;
    std::string RawText(std::size_t number) const;
    void Append(Expansion &out, uint32_t number, int depth) const;
    void AppendCode(Expansion &out, Code code, uint32_t parameter, int depth) const;
    void AppendLanguage(Expansion &out, uint32_t index, int depth) const;
    std::optional<uint32_t> LanguageString(uint32_t index) const;
    uint32_t Decoded(uint32_t parameter) const;
    void FindDialect();

    std::span<const uint8_t> strings_;
    std::span<const uint8_t> languages_;
    bool is_wide_ = false;
    Dialect dialect_ = Dialect::Unknown;
};

} // namespace tavrik::scanner::payloads

#endif
