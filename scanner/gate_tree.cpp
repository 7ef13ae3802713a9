#include "scanner/gate_tree.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "base/text.h"

namespace tavrik::scanner {

using tavrik2::Condition;
using tavrik2::Field;
using tavrik2::GateView;
using tavrik2::TargetFile;

namespace {

constexpr uint32_t kGateFails = std::numeric_limits<uint32_t>::max();

// ---- From rows to a tree -------------------------------------------------------------------------------------------

class Builder {
public:
    Builder(GateView gate, const TargetFile &file) : rows_(gate.rows), count_(gate.count), file_(file) {}

    GateNode Build() const { return Sequence(0, count_, kGateFails); }

private:
    // Rows that test one field and go on alike: a single condition, or the ranges of one.
    struct Unit {
        uint32_t end;
        uint32_t on_fail;
    };

    uint32_t FailTarget(uint32_t row) const { return rows_[row].on_fail == 0 ? kGateFails : row + rows_[row].on_fail; }
    uint32_t PassTarget(uint32_t row) const { return row + rows_[row].on_pass; }

    Unit UnitAt(uint32_t row) const {
        while (row + 1 < count_ && FailTarget(row) == row + 1 && rows_[row].field == rows_[row + 1].field &&
               PassTarget(row) == PassTarget(row + 1))
            ++row;
        return {row + 1, FailTarget(row)};
    }

    // The rows from `begin` to `end`, which must all hold; a failure among them leads to `on_fail`.
    GateNode Sequence(uint32_t begin, uint32_t end, uint32_t on_fail) const {
        GateNode node;
        for (uint32_t row = begin; row < end;) {
            const Unit unit = UnitAt(row);
            if (unit.on_fail != on_fail && unit.on_fail < end) {
                // The first alternative ends where its failure leads to; all of them go on behind the last.
                const uint32_t group_end = std::min(PassTarget(unit.on_fail - 1), end);
                node.children.push_back(Alternatives(row, group_end, on_fail));
                row = group_end;
                continue;
            }
            if (!rows_[row].IsHeading())
                node.children.push_back(ConditionNode(row, unit.end));
            row = unit.end;
        }
        node.holds = std::all_of(node.children.begin(), node.children.end(), Holds);
        return node;
    }

    GateNode Alternatives(uint32_t begin, uint32_t end, uint32_t on_fail) const {
        GateNode node;
        node.kind = GateNode::Kind::Alternatives;
        for (uint32_t start = begin; start < end;) {
            const uint32_t next = UnitAt(start).on_fail;
            const bool last = next >= end;
            // The heading's own way on is that of its column, not a further choice.
            const uint32_t first = rows_[start].IsHeading() ? start + 1 : start;
            GateNode alternative = Sequence(first, last ? end : next, last ? on_fail : next);
            if (rows_[start].IsHeading())
                alternative.heading = Heading(rows_[start]);
            node.children.push_back(std::move(alternative));
            start = last ? end : next;
        }
        node.holds = std::any_of(node.children.begin(), node.children.end(), Holds);
        return node;
    }

    GateNode ConditionNode(uint32_t begin, uint32_t end) const {
        GateNode node;
        node.kind = GateNode::Kind::Condition;
        node.field = rows_[begin].field;
        node.ranges = {rows_ + begin, rows_ + end};
        node.value = FieldValue(node.field, file_);
        node.holds = std::any_of(node.ranges.begin(), node.ranges.end(),
                                 [&](const Condition &range) { return range.Accepts(node.value); });
        return node;
    }

    static bool Holds(const GateNode &node) { return node.holds; }

    static std::string Heading(const Condition &row) {
        switch (row.field) {
        case Field::Profile:
            return fmt::format("profile {}", static_cast<char>(row.span));
        case Field::Variant:
            return fmt::format("variant {}", row.span);
        default:
            return fmt::format("files of {} sections", row.span);
        }
    }

    const Condition *rows_;
    uint32_t count_;
    const TargetFile &file_;
};

// ---- Words ---------------------------------------------------------------------------------------------------------

enum class Style { Hexadecimal, Decimal, Both, Name, Pointer };

struct FieldWords {
    std::string_view name;
    Style style;
};

constexpr std::size_t Index(Field field) {
    return static_cast<std::size_t>(field);
}

// The bytes of the entry point share one text.
constexpr std::array<FieldWords, tavrik2::kFieldCount> kWords = [] {
    std::array<FieldWords, tavrik2::kFieldCount> words = {};
#define WORDS(field, name, style) words[Index(Field::field)] = {name, Style::style}
#define SAME_NAME(field, style) WORDS(field, #field, style)
    WORDS(Stream, "file stream", Pointer);
    WORDS(FileSize, "file size", Both);
    SAME_NAME(NumberOfSections, Decimal);
    SAME_NAME(Characteristics, Hexadecimal);
    SAME_NAME(MajorLinkerVersion, Decimal);
    SAME_NAME(MinorLinkerVersion, Decimal);
    SAME_NAME(SizeOfCode, Hexadecimal);
    SAME_NAME(SizeOfInitializedData, Hexadecimal);
    SAME_NAME(SizeOfUninitializedData, Hexadecimal);
    SAME_NAME(AddressOfEntryPoint, Hexadecimal);
    SAME_NAME(BaseOfCode, Hexadecimal);
    SAME_NAME(ImageBase, Hexadecimal);
    SAME_NAME(BaseOfData, Hexadecimal);
    SAME_NAME(SectionAlignment, Hexadecimal);
    SAME_NAME(FileAlignment, Hexadecimal);
    SAME_NAME(MajorOperatingSystemVersion, Decimal);
    SAME_NAME(MinorOperatingSystemVersion, Decimal);
    SAME_NAME(MajorImageVersion, Decimal);
    SAME_NAME(MinorImageVersion, Decimal);
    SAME_NAME(MajorSubsystemVersion, Decimal);
    SAME_NAME(MinorSubsystemVersion, Decimal);
    SAME_NAME(SizeOfHeaders, Hexadecimal);
    SAME_NAME(CheckSum, Hexadecimal);
    SAME_NAME(Subsystem, Decimal);
    SAME_NAME(DllCharacteristics, Hexadecimal);
    SAME_NAME(NumberOfRvaAndSizes, Both);
    WORDS(ExportSize, "export Size", Hexadecimal);
    WORDS(ImportVirtualAddress, "import VirtualAddress", Hexadecimal);
    WORDS(ImportSize, "import Size", Hexadecimal);
    WORDS(ResourceVirtualAddress, "resource VirtualAddress", Hexadecimal);
    WORDS(ResourceSize, "resource Size", Hexadecimal);
    WORDS(CertificateSize, "certificate table Size", Hexadecimal);
    WORDS(BaseRelocationSize, "base relocation Size", Hexadecimal);
    WORDS(DebugSize, "debug Size", Hexadecimal);
    WORDS(ImportAddressTableSize, "import address table Size", Hexadecimal);
    WORDS(FirstSectionName, "first section Name", Name);
    WORDS(FirstSectionVirtualSize, "first section VirtualSize", Hexadecimal);
    WORDS(FirstSectionSizeOfRawData, "first section SizeOfRawData", Hexadecimal);
    WORDS(FirstSectionPointerToRawData, "first section PointerToRawData", Hexadecimal);
    WORDS(FirstSectionCharacteristics, "first section Characteristics", Hexadecimal);
    WORDS(LastSectionName, "last section Name", Name);
    WORDS(LastSectionSizeOfRawData, "last section SizeOfRawData", Hexadecimal);
    WORDS(LastSectionCharacteristics, "last section Characteristics", Hexadecimal);
#undef SAME_NAME
#undef WORDS
    return words;
}();

bool IsEntryCode(Field field) {
    return field >= Field::EntryCode0 && field <= Field::EntryCodeLast;
}

std::string NameText(uint64_t value, std::size_t length) {
    std::string name;
    for (std::size_t byte = 0; byte < length; ++byte)
        name += static_cast<char>(value >> (8 * byte) & 0xFF);
    name.resize(std::min(name.size(), name.find('\0')));
    return fmt::format("\"{}\"", base::Printable(name));
}

// A name's mask takes the bit of capitals out of letters when their case does not count.
std::string WantedName(const Condition &range) {
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

std::string RangeText(Field field, const Condition &range) {
    const Style style = kWords[Index(field)].style;
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
    return Builder(gate, file).Build();
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

std::string FieldName(Field field) {
    if (IsEntryCode(field))
        return fmt::format("entry code byte {}", Index(field) - Index(Field::EntryCode0));
    return std::string(kWords[Index(field)].name);
}

std::string ValueText(Field field, uint64_t value) {
    switch (kWords[Index(field)].style) {
    case Style::Decimal:
        return fmt::format("{}", value);
    case Style::Both:
        return fmt::format("{} ({:#x})", value, value);
    case Style::Name:
        return NameText(value, sizeof value);
    case Style::Pointer:
        return value != 0 ? "present" : "missing";
    default:
        return IsEntryCode(field) ? fmt::format("{:02X}", value) : fmt::format("{:#x}", value);
    }
}

std::string WantedText(const GateNode &condition) {
    std::string wanted;
    for (const Condition &range : condition.ranges) {
        if (!wanted.empty())
            wanted += " or ";
        wanted += RangeText(condition.field, range);
    }
    return wanted;
}

} // namespace tavrik::scanner
