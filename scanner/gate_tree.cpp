#include "scanner/gate_tree.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string_view>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "base/text.h"
#include "tavrik2/locators/gate/gate_parts.h"

namespace tavrik::scanner {

using tavrik2::Field;
using tavrik2::GateRow;
using tavrik2::GateView;
using tavrik2::TargetFile;

namespace {

// ---- From rows to a tree -------------------------------------------------------------------------------------------

bool Holds(const GateNode &node) {
    return node.holds;
}

std::string HeadingText(const GateRow &row) {
    switch (row.heading) {
    case tavrik2::Heading::Profile:
        return fmt::format("profile {}", static_cast<char>(row.span));
    case tavrik2::Heading::Variant:
        return fmt::format("variant {}", row.span);
    case tavrik2::Heading::SectionCount:
        return fmt::format("files of {} sections", row.span);
    default:
        return "";
    }
}

GateNode JudgeCondition(GateView ranges, const TargetFile &file) {
    GateNode node;
    node.kind = GateNode::Kind::Condition;
    node.field = ranges.rows[0].field;
    node.ranges = {ranges.rows, ranges.count};
    node.value = FieldValue(node.field, file);
    node.holds = std::any_of(node.ranges.begin(), node.ranges.end(),
                             [&](const GateRow &range) { return range.Accepts(node.value); });
    return node;
}

GateNode JudgeAlternatives(GateView alternatives, const TargetFile &file) {
    GateNode node;
    node.kind = GateNode::Kind::Alternatives;
    ForEachColumn(alternatives, [&](const GateRow &heading, GateView rows) {
        node.children.push_back(JudgeGate(rows, file));
        node.children.back().heading = HeadingText(heading);
    });
    node.holds = std::any_of(node.children.begin(), node.children.end(), Holds);
    return node;
}

// ---- Words ---------------------------------------------------------------------------------------------------------

enum class Style { Hexadecimal, Decimal, Both, Name, Pointer, Byte };

struct FieldWords {
    std::string_view name;
    Style style;
};

constexpr FieldWords kWords[tavrik2::kFieldCount] = {
#define GATE_FIELD(name, record, offset, width, text, style) {text, Style::style},
#include "tavrik2/locators/gate/fields.def"
};

const FieldWords &WordsOf(Field field) {
    return kWords[static_cast<std::size_t>(field)];
}

std::string NameText(uint64_t value, std::size_t length) {
    std::string name;
    for (std::size_t byte = 0; byte < length; ++byte)
        name += static_cast<char>(value >> (8 * byte) & 0xFF);
    name.resize(std::min(name.size(), name.find('\0')));
    return fmt::format("\"{}\"", base::Printable(name));
}

// A name's mask takes the bit of capitals out of letters when their case does not count.
std::string WantedName(const GateRow &range) {
    constexpr uint8_t kCaseBit = 'a' ^ 'A';
    bool any_case = false;
    uint64_t name = range.lo;
    for (unsigned byte = 0; byte < sizeof name; ++byte)
        if ((range.mask >> (8 * byte) & 0xFF) == 0xFFu - kCaseBit) {
            any_case = true;
            name |= uint64_t{kCaseBit} << (8 * byte);
        }
    return NameText(name, sizeof name) + (any_case ? " in any case" : "");
}

std::string RangeText(Field field, const GateRow &range) {
    const Style style = WordsOf(field).style;
    const uint64_t hi = range.lo + range.span;
    if (style == Style::Pointer)
        return "present";
    if (style == Style::Name)
        return WantedName(range);
    if (range.mask != tavrik2::gates::kAllBits && range.span == 0 && range.lo == range.mask)
        return fmt::format("all bits of {:#x} set", range.mask);
    const std::string masked =
        range.mask == tavrik2::gates::kAllBits ? "" : fmt::format("under the mask {:#x}: ", range.mask);
    if (range.span == 0)
        return masked + ValueText(field, range.lo);
    if (hi == tavrik2::gates::kAllBits || (field == Field::FileSize && hi == INT32_MAX))
        return fmt::format("{}at least {}", masked, ValueText(field, range.lo));
    if (range.lo == 0)
        return fmt::format("{}at most {}", masked, ValueText(field, hi));
    return fmt::format("{}{}..{}", masked, ValueText(field, range.lo), ValueText(field, hi));
}

} // namespace

GateNode JudgeGate(GateView gate, const TargetFile &file) {
    GateNode node;
    while (gate.count != 0) {
        const GateView part = tavrik2::FirstPart(gate);
        node.children.push_back(IsAlternatives(part) ? JudgeAlternatives(part, file) : JudgeCondition(part, file));
        gate = AfterPart(gate, part);
    }
    node.holds = std::all_of(node.children.begin(), node.children.end(), Holds);
    return node;
}

std::size_t CountFailed(const GateNode &node) {
    if (node.holds)
        return 0;
    if (node.kind == GateNode::Kind::Condition)
        return 1;
    std::size_t sum = 0;
    std::size_t least = std::numeric_limits<std::size_t>::max();
    for (const GateNode &child : node.children) {
        const std::size_t failed = CountFailed(child);
        sum += failed;
        least = std::min(least, failed);
    }
    return node.kind == GateNode::Kind::Alternatives ? least : sum;
}

std::vector<const GateNode *> FailedConditions(const GateNode &node) {
    if (node.holds)
        return {};
    if (node.kind == GateNode::Kind::Condition)
        return {&node};
    if (node.kind == GateNode::Kind::Alternatives) {
        const auto fewer = [](const GateNode &one, const GateNode &other) {
            return CountFailed(one) < CountFailed(other);
        };
        return FailedConditions(*std::min_element(node.children.begin(), node.children.end(), fewer));
    }
    std::vector<const GateNode *> failed;
    for (const GateNode &child : node.children) {
        const std::vector<const GateNode *> below = FailedConditions(child);
        failed.insert(failed.end(), below.begin(), below.end());
    }
    return failed;
}

std::string FieldName(Field field) {
    return std::string(WordsOf(field).name);
}

std::string ValueText(Field field, uint64_t value) {
    switch (WordsOf(field).style) {
    case Style::Decimal:
        return fmt::format("{}", value);
    case Style::Both:
        return fmt::format("{} ({:#x})", value, value);
    case Style::Name:
        return NameText(value, sizeof value);
    case Style::Pointer:
        return value != 0 ? "present" : "missing";
    case Style::Byte:
        return fmt::format("{:02X}", value);
    default:
        return fmt::format("{:#x}", value);
    }
}

std::string WantedText(const GateNode &condition) {
    std::string wanted;
    for (const GateRow &range : condition.ranges) {
        if (!wanted.empty())
            wanted += " or ";
        wanted += RangeText(condition.field, range);
    }
    return wanted;
}

} // namespace tavrik::scanner
