#include "engine/gate_text.h"

#include <array>
#include <iterator>

#include <fmt/format.h>

#include "scanner/gate_tree.h"
#include "scanner/locator_info.h"
#include "tavrik2/locators/locators.h"

namespace tavrik::engine {

namespace {

constexpr std::size_t kIndent = 2;

void Write(std::string &text, const scanner::GateNode &node, std::size_t indent) {
    std::size_t number = 0;
    for (const scanner::GateNode &child : node.children) {
        if (child.kind == scanner::GateNode::Kind::Condition) {
            fmt::format_to(std::back_inserter(text), "{:{}}{}: {}\n", "", indent, scanner::FieldName(child.field),
                           scanner::WantedText(child));
            continue;
        }
        fmt::format_to(std::back_inserter(text), "{:{}}one of these:\n", "", indent);
        for (const scanner::GateNode &alternative : child.children) {
            ++number;
            fmt::format_to(std::back_inserter(text), "{:{}}{}:\n", "", indent + kIndent,
                           alternative.heading.empty() ? fmt::format("alternative {}", number) : alternative.heading);
            Write(text, alternative, indent + 2 * kIndent);
        }
    }
}

LocatorTexts MakeTexts(uint32_t entry) {
    const scanner::LocatorInfo &info = scanner::kLocatorInfo[entry];
    LocatorTexts texts;
    texts.description = info.description;
    if (entry == scanner::kDecliningEntry)
        return texts;
    texts.kind = scanner::KindName(info.kind);
    // The tree is judged for records of zeros; what it asks for is the same for all.
    static constexpr uint32_t kDirectories[DATA_DIRECTORY_WORDS] = {};
    static constexpr uint8_t kEntryCode[ENTRY_CODE_BYTES] = {};
    static const FileHeader file_header = {};
    static const OptionalHeader opt_header = {};
    static const SectionHeader section = {};
    const tavrik2::TargetFile file = {nullptr,     0,        0,        kDirectories, &file_header,
                                      &opt_header, &section, &section, kEntryCode};
    Write(texts.gate, scanner::JudgeGate(tavrik2::GateOf(entry), file), 0);
    return texts;
}

} // namespace

const LocatorTexts &TextsOf(uint32_t entry) {
    static const std::array<LocatorTexts, LOCATOR_COUNT> texts = [] {
        std::array<LocatorTexts, LOCATOR_COUNT> all;
        for (uint32_t number = 0; number < LOCATOR_COUNT; ++number)
            all[number] = MakeTexts(number);
        return all;
    }();
    return texts.at(entry);
}

} // namespace tavrik::engine
