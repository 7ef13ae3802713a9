#include "scanner/explain.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "base/characters.h"
#include "base/text.h"
#include "scanner/gate_tree.h"
#include "scanner/locator_info.h"
#include "scanner/module_stream.h"
#include "scanner/recording_source.h"
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

// Bytes in hexadecimal digits and, where they are printable ASCII, as text.
std::string DumpText(std::span<const uint8_t> bytes) {
    std::string text;
    for (const uint8_t byte : bytes)
        text += base::IsPrintableAscii(static_cast<char>(byte)) ? static_cast<char>(byte) : '.';
    return fmt::format("{:02X}  {}", fmt::join(bytes, " "), text);
}

// Writes where a locator looked in vain, and what is there.
void WriteSearched(std::string &text, const RecordingSource &read, base::ByteSource &source, uint64_t headers_end) {
    constexpr std::size_t kMostShown = 16; // places
    constexpr std::size_t kDumped = 16;    // bytes of each place
    std::size_t searched = 0;
    for (const RecordingSource::Access &access : read.accesses()) {
        if (access.offset + access.asked <= headers_end || ++searched > kMostShown)
            continue;
        uint8_t bytes[kDumped];
        const std::size_t length = std::min<std::size_t>(kDumped, access.delivered);
        const std::size_t count = source.ReadAt(access.offset, bytes, length);
        fmt::format_to(std::back_inserter(text), "  {:#10x}  {:>8} bytes  {}\n", access.offset, access.delivered,
                       count == 0 ? "the file ends before" : DumpText({bytes, count}));
    }
    if (searched > kMostShown)
        fmt::format_to(std::back_inserter(text), "  and {} more\n", base::CountText(searched - kMostShown, "place"));
    if (searched == 0)
        text += "  nothing but headers: what it looks for there is missing, or leads out of the file\n";
}

void WriteFinding(std::string &text, const std::optional<Finding> &finding, bool passes) {
    if (!passes)
        text += "The gate fails, so the locator does not look into the file.\n";
    else if (!finding)
        text += "The gate passes, but the locator found no payload where it should be. It read:\n";
    else
        fmt::format_to(std::back_inserter(text),
                       "The gate passes, and the locator found: {} at offset {} ({:#x}), {} bytes.\n",
                       KindName(finding->kind), finding->offset, finding->offset, finding->size);
}

} // namespace

Explanation Explain(const Module &module, uint32_t entry, base::ByteSource &whole, const HostRecords &records) {
    base::WindowSource source(whole, 0, kLargestFile);
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
        RecordingSource read(source);
        const std::optional<Finding> finding = RunLocator(module, entry, read, records, first_section);
        text += '\n';
        WriteFinding(text, finding, judged.holds);
        if (judged.holds && !finding)
            WriteSearched(text, read, source, records.headers_end);
        explanation.found = explanation.found || finding.has_value();
    }
    return explanation;
}

} // namespace tavrik::scanner
