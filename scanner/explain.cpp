#include "scanner/explain.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>

#include <fmt/format.h>

#include "base/text.h"
#include "scanner/gate_tree.h"
#include "scanner/locator_info.h"
#include "scanner/module_stream.h"
#include "scanner/scan.h"
#include "tavrik2/locators/locators.h"

namespace tavrik::scanner {

namespace {

using tavrik2::Field;

constexpr std::size_t kIndent = 2;

// Writes an evaluated gate, one condition per line.
class Printer {
public:
    explicit Printer(std::string &text) : text_(text) {}

    void Write(const GateNode &node, std::size_t indent) {
        for (const GateNode &child : node.children) {
            if (child.kind == GateNode::Kind::Condition)
                WriteCondition(child, indent);
            else
                WriteAlternatives(child, indent);
        }
    }

private:
    void WriteCondition(const GateNode &node, std::size_t indent) {
        constexpr std::size_t kNameWidth = 36;
        constexpr std::size_t kValueWidth = 12;
        Line(node.holds ? "ok" : "FAIL", indent,
             fmt::format("{:<{}}{:<{}}  wanted {}", FieldName(node.field), kNameWidth - std::min(indent, kNameWidth),
                         ValueText(node.field, node.value), kValueWidth, WantedText(node)));
    }

    // Where one alternative holds, the conditions of the others are left out.
    void WriteAlternatives(const GateNode &group, std::size_t indent) {
        Line("", indent, "one of these must hold:");
        const std::size_t nearest = CountFailed(group);
        std::size_t number = 0;
        for (const GateNode &alternative : group.children) {
            ++number;
            const std::size_t failed = CountFailed(alternative);
            Line("", indent + kIndent,
                 fmt::format("{}: {}{}",
                             alternative.heading.empty() ? fmt::format("alternative {}", number) : alternative.heading,
                             Verdict(failed), !group.holds && failed == nearest ? ", the nearest" : ""));
            if (alternative.holds || !group.holds)
                Write(alternative, indent + 2 * kIndent);
        }
    }

    static std::string Verdict(std::size_t failed) {
        if (failed == 0)
            return "holds";
        return failed == 1 ? "1 condition fails" : fmt::format("{} conditions fail", failed);
    }

    void Line(std::string_view mark, std::size_t indent, std::string_view words) {
        fmt::format_to(std::back_inserter(text_), "{:<6}{:{}}{}\n", mark, "", indent, words);
    }

    std::string &text_;
};

bool LooksAtFirstSection(tavrik2::GateView gate) {
    return std::any_of(gate.rows, gate.rows + gate.count, [](const tavrik2::GateRow &row) {
        return row.field >= Field::FirstSectionName && row.field <= Field::FirstSectionCharacteristics;
    });
}

std::string SectionText(const SectionHeader &section) {
    const auto *name = reinterpret_cast<const char *>(section.Name);
    const std::string_view bytes(name, sizeof section.Name);
    return fmt::format("\"{}\" at address {:#x}", base::Printable(bytes.substr(0, bytes.find('\0'))),
                       uint32_t{section.VirtualAddress});
}

void WriteFinding(std::string &text, const std::optional<Finding> &finding, bool passes) {
    if (!passes)
        text += "The gate fails, so the locator does not look into the file.\n";
    else if (!finding)
        text += "The gate passes, but the locator found no payload where it should stand.\n";
    else
        fmt::format_to(std::back_inserter(text),
                       "The gate passes, and the locator found: {} at offset {} ({:#x}), {} bytes.\n",
                       KindName(finding->kind), finding->offset, finding->offset, finding->size);
}

} // namespace

Explanation Explain(const Module &module, uint32_t entry, base::ByteSource &source, const HostRecords &records) {
    const LocatorInfo &info = kLocatorInfo[entry];
    Explanation explanation;
    std::string &text = explanation.text;
    text = entry == kDecliningEntry ? fmt::format("entry {}: {}\n", entry, info.description)
                                    : fmt::format("entry {}: {}: {}\n", entry, KindName(info.kind), info.description);
    if (entry == kDecliningEntry)
        return explanation;

    const tavrik2::GateView gate = tavrik2::GateOf(entry);
    const std::size_t candidates = LooksAtFirstSection(gate) ? records.first_sections.size() : 1;
    for (const SectionHeader &first_section : std::span(records.first_sections).first(candidates)) {
        ModuleStream stream(source);
        const tavrik2::TargetFile file = {
            stream.stream(),          ModuleStream::handle(), static_cast<int32_t>(source.size()),
            records.data_dirs.data(), &records.file_header,   &records.opt_header,
            &first_section,           &records.last_section,  records.entry_code.data()};
        text += '\n';
        if (candidates > 1)
            text += fmt::format("With the first section {}:\n", SectionText(first_section));
        const GateNode judged = JudgeGate(gate, file);
        Printer(text).Write(judged, 0);
        const std::optional<Finding> finding = RunLocator(module, entry, source, records, first_section);
        text += '\n';
        WriteFinding(text, finding, judged.holds);
        explanation.found = explanation.found || finding.has_value();
    }
    return explanation;
}

} // namespace tavrik::scanner
