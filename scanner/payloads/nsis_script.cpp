#include "scanner/payloads/nsis_script.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <string_view>
#include <tuple>
#include <utility>

#include "scanner/payloads/file_time.h"
#include "scanner/payloads/nsis_strings.h"

namespace tavrik::scanner::payloads {
namespace {

// Instructions.
constexpr uint32_t kSetOutPath = 11; // with its second parameter 1; otherwise CreateDirectory
constexpr uint32_t kExtractFile = 20;
constexpr uint32_t kAssignVariable = 25;
constexpr uint32_t kWriteUninstaller = 62;

constexpr std::size_t kParameters = 6;
constexpr std::size_t kEntryLength = 4 + 4 * kParameters;
constexpr std::size_t kBlocks = 8;
constexpr std::size_t kFirstBlock = 4; // after the flags
constexpr std::size_t kLanguageHead = 10;

// The blocks that are used here, by their place in the table.
constexpr std::size_t kEntries = 2;
constexpr std::size_t kStrings = 3;
constexpr std::size_t kLanguages = 4;
constexpr std::size_t kColours = 5;

struct Block {
    uint64_t offset = 0; // in the script
    uint32_t count = 0;
};

template <typename Number>
Number NumberAt(std::span<const uint8_t> bytes, std::size_t offset) {
    Number value;
    std::memcpy(&value, bytes.data() + offset, sizeof(value));
    return value;
}

// The table of blocks with offsets of 32 bits or, in installers for 64-bit systems, of 64.
template <typename Offset>
std::optional<std::array<Block, kBlocks>> ReadBlocks(std::span<const uint8_t> script) {
    constexpr std::size_t kRow = sizeof(Offset) + sizeof(uint32_t);
    if (script.size() < kFirstBlock + kBlocks * kRow)
        return std::nullopt;
    std::array<Block, kBlocks> blocks;
    for (std::size_t i = 0; i < kBlocks; ++i) {
        const std::size_t row = kFirstBlock + i * kRow;
        blocks[i] = {NumberAt<Offset>(script, row), NumberAt<uint32_t>(script, row + sizeof(Offset))};
        if (blocks[i].offset > script.size())
            return std::nullopt;
    }
    const Block &entries = blocks[kEntries];
    if (entries.count > (script.size() - entries.offset) / kEntryLength ||
        blocks[kStrings].offset > blocks[kLanguages].offset || entries.offset == 0 || blocks[kStrings].offset == 0)
        return std::nullopt;
    return blocks;
}

bool HasRoot(std::string_view path) {
    return path.starts_with('\\') || path.starts_with('/') || (path.size() > 1 && path[1] == ':');
}

/** Follows the script's instructions from the first to the last, as far as they name files. */
class Interpreter {
public:
    Interpreter(const NsisStrings &strings, NsisScript &script) : strings_(strings), script_(script) {
        values_[nsis_variable::kOutDir] = "$INSTDIR";
    }

    // Returns whether to go on.
    bool Run(uint32_t instruction, const std::array<uint32_t, kParameters> &parameters) {
        switch (instruction) {
        case kSetOutPath:
            if (parameters[1] != 0)
                values_[nsis_variable::kOutDir] = Text(parameters[0]);
            break;
        case kAssignVariable:
            if (parameters[0] == nsis_variable::kOutDir || parameters[0] == nsis_variable::kSavedOutDir)
                values_[parameters[0]] = Text(parameters[1]);
            break;
        case kExtractFile:
            Add(parameters[1],
                {Text(parameters[1]), parameters[2], UnixTime(uint64_t{parameters[4]} << 32 | parameters[3])});
            break;
        case kWriteUninstaller:
            Add(parameters[0], {Text(parameters[0]), parameters[1], std::nullopt, true, parameters[2]});
            break;
        default:
            break;
        }
        script_.is_cut = script_.files.size() >= NsisScript::kMostFiles || text_ >= NsisScript::kMostText;
        return !script_.is_cut;
    }

private:
    std::string Text(uint32_t number) {
        std::string text = strings_.Text(number, values_, NsisScript::kLongestPath);
        if (text.size() > NsisScript::kLongestPath)
            text.resize(NsisScript::kLongestPath);
        text_ += text.size();
        return text;
    }

    // The path is that of the string `name`. What the values of other variables are is not known: most are single
    // names.
    void Add(uint32_t name, NsisFile file) {
        if (file.path.empty())
            return;
        if (!strings_.BeginsWithFolder(name) && !HasRoot(file.path))
            file.path = values_[nsis_variable::kOutDir] + "\\" + file.path;
        std::replace(file.path.begin(), file.path.end(), '\\', '/');
        text_ += file.path.size();
        script_.files.push_back(std::move(file));
    }

    const NsisStrings &strings_;
    NsisScript &script_;
    std::map<uint32_t, std::string> values_; // of the variables that are followed
    std::size_t text_ = 0;                   // bytes of all texts
};

} // namespace

std::optional<NsisScript> ParseNsisScript(std::span<const uint8_t> script) {
    std::optional<std::array<Block, kBlocks>> blocks = ReadBlocks<uint64_t>(script);
    if (!blocks)
        blocks = ReadBlocks<uint32_t>(script);
    if (!blocks)
        return std::nullopt;
    const auto range = [&](uint64_t begin, uint64_t end) {
        return script.subspan(static_cast<std::size_t>(begin), static_cast<std::size_t>(std::max(begin, end) - begin));
    };
    const uint64_t languages = (*blocks)[kLanguages].offset;
    const uint64_t languages_end = (*blocks)[kColours].offset;
    std::span<const uint8_t> first_language = range(languages, languages_end);
    first_language = first_language.subspan(std::min(kLanguageHead, first_language.size()));
    const NsisStrings strings(range((*blocks)[kStrings].offset, languages), first_language);

    NsisScript result;
    result.version = strings.version();
    Interpreter interpreter(strings, result);
    const auto entries = static_cast<std::size_t>((*blocks)[kEntries].offset);
    for (uint32_t i = 0; i < (*blocks)[kEntries].count; ++i) {
        const std::size_t entry = entries + i * kEntryLength;
        std::array<uint32_t, kParameters> parameters;
        std::memcpy(parameters.data(), script.data() + entry + 4, sizeof(parameters));
        if (!interpreter.Run(NumberAt<uint32_t>(script, entry), parameters))
            break;
    }
    std::vector<NsisFile> &files = result.files;
    // Functions that are written out more than once name their files again.
    const auto place = [](const NsisFile &file) { return std::tie(file.offset, file.path); };
    std::sort(files.begin(), files.end(), [&](const NsisFile &a, const NsisFile &b) { return place(a) < place(b); });
    const auto same = [&](const NsisFile &a, const NsisFile &b) { return place(a) == place(b); };
    files.erase(std::unique(files.begin(), files.end(), same), files.end());
    return result;
}

} // namespace tavrik::scanner::payloads
