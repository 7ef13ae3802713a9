#include <utility>

#include <fmt/format.h>

#include "rules/names.h"
#include "rules/numbers.h"
#include "rules/yara/rule_writer.h"

namespace tavrik::rules::yara {

using fmt::format;
namespace field = header_field;

// ---- The optional header --------------------------------------------------------------------------------------------

using pe::kOptionalHeaderOffset;
using pe::OffsetInPe32Plus;

Need RuleWriter::NeedOf(uint16_t number) const {
    const Field &field = *FindField(HeaderFields(), number);
    Need need;
    need.end_pe32 = field.offset + unsigned{field.width};
    need.end_pe32_plus = OffsetInPe32Plus(field.offset) + field.width;
    if (number >= field::kExportTable)
        need.directories = (number - field::kExportTable) / 2u + 1;
    return need;
}

// The field's offset from the PE signature.
std::string RuleWriter::Offset(uint16_t number) const {
    const uint16_t offset = FindField(HeaderFields(), number)->offset;
    const unsigned narrow = offset;
    const unsigned wide = OffsetInPe32Plus(offset);
    if (narrow == wide || magic_ == kMagicPe32)
        return format("0x{:X}", kOptionalHeaderOffset + narrow);
    if (magic_ == kMagicPe32Plus)
        return format("0x{:X}", kOptionalHeaderOffset + wide);
    // Bit 0x200 of Magic tells the two layouts apart.
    const auto shift = [&] {
        return format("((uint16(uint32(0x3C) + 0x18) & 0x200) >> 9) * {}",
                      wide > narrow ? wide - narrow : narrow - wide);
    };
    return format("0x{:X} {} {}", kOptionalHeaderOffset + narrow, wide > narrow ? '+' : '-', shift());
}

// The field's value, in a file that has what it needs.
std::string RuleWriter::Value(uint16_t number) const {
    return format("uint{}(uint32(0x3C) + {})", 8 * FindField(HeaderFields(), number)->width, Offset(number));
}

std::string RuleWriter::Required(uint16_t number) {
    need_.Add(NeedOf(number));
    return Value(number);
}

std::string RuleWriter::Guard(const Need &need) const {
    if (need.end_pe32 == 0)
        return "";
    std::optional<uint32_t> exact_size;
    for (const HeaderCondition &condition : rule_.header_conditions)
        if (condition.field == field::kSizeOfOptionalHeader && condition.op == Operator::Equal)
            exact_size = exact_size ? 0 : condition.value; // alternatives count as unknown
    const auto layout = [&](uint32_t magic, unsigned end) {
        std::string text = format("uint16(uint32(0x3C) + 0x18) == 0x{:X}", magic);
        return exact_size && *exact_size >= end ? text : format("{} and uint16(uint32(0x3C) + 0x14) >= {}", text, end);
    };
    std::string text;
    if (need.end_pe32 == 2 && magic_ == 0)
        text = "uint16(uint32(0x3C) + 0x14) >= 2"; // Magic alone, which is there whatever it is
    else if (magic_ != 0)
        text = layout(magic_, magic_ == kMagicPe32 ? need.end_pe32 : need.end_pe32_plus);
    else
        text = format("({} or {})", layout(kMagicPe32, need.end_pe32), layout(kMagicPe32Plus, need.end_pe32_plus));
    if (need.directories > 0)
        text += format(" and {} >= {}", Value(field::kNumberOfRvaAndSizes), need.directories);
    return text;
}

// SizeOfHeaders, 0 where it is absent.
std::string RuleWriter::HeadersSize() const {
    if (granted_.Covers(NeedOf(field::kSizeOfHeaders)))
        return Value(field::kSizeOfHeaders);
    constexpr std::string_view kThere = "math.to_number(has_headers_size)"; // what is multiplied by it is a read at 0
    return format("{0} * uint32({0} * (uint32(0x3C) + {1}))", kThere, Offset(field::kSizeOfHeaders));
}

std::string RuleWriter::RuleOfHeadersSize() const {
    return format("\nprivate rule has_headers_size {{\n    condition:\n        pe_file and {} and {} >= 0\n}}\n",
                  Guard(NeedOf(field::kSizeOfHeaders)), Value(field::kSizeOfHeaders));
}

// ---- Places ---------------------------------------------------------------------------------------------------------

namespace {

// That section i holds an RVA and none before it does.
std::string FirstHolding(std::string_view rva) {
    return format("{} and not for any j in (0..i - 1) : ({})", Holds(HeaderOf("i"), rva), Holds(HeaderOf("j"), rva));
}

} // namespace

std::string RuleWriter::RoleRva(uint16_t role, Need &need) const {
    const auto value = [&](uint16_t field) {
        need.Add(NeedOf(field));
        return Value(field);
    };
    switch (static_cast<SectionRole>(role)) {
    case SectionRole::Entry:
        return value(field::kAddressOfEntryPoint);
    case SectionRole::Code:
        return value(field::kBaseOfCode);
    case SectionRole::Data:
        return value(field::kBaseOfData);
    case SectionRole::Import:
        return value(field::kImportTable);
    case SectionRole::Resource:
        return value(field::kResourceTable);
    case SectionRole::Export:
        return value(field::kExportTable);
    case SectionRole::Relocation:
        return value(field::kBaseRelocationTable);
    case SectionRole::Tls:
        return value(field::kTlsTable);
    default:
        Refuse("a section selector that selects nothing");
    }
}

// The body with the span that begins at the offset of an RVA: in the section that holds it, or in the headers.
std::string RuleWriter::AtOffsetOf(const std::string &rva, const Need &need, const Body &body, bool has_loops) const {
    const std::string header = HeaderOf("i");
    const std::string distance = format("{} - {}", rva, SectionField(header, kVirtualAddress));
    const Span raw = RawData(header);
    const std::string offset = format("{} + {}", raw.begin, distance);
    const auto asked = [&](const std::string &begin) {
        return format("{} < filesize and {}", begin, body({{begin, raw.end, raw.cut_end}, header, "i"}));
    };
    // Loops nest four deep at most.
    const std::string in_section =
        format("for any i in (0..n - 1) : ({} and {} < {} and {})", FirstHolding(rva), distance,
               SectionField(header, kSizeOfRawData),
               has_loops ? asked(offset) : format("for any e in ({}) : ({})", offset, asked("e")));
    const std::string size = HeadersSize();
    // No section may hold the address, so that their order does not matter.
    const std::string in_headers =
        format("({0} < {1} and {0} < filesize and not for any i in (0..n - 1) : ({2}) and {3})", rva, size,
               Holds(header, rva), body({SpanOf(rva, size), "", ""}));
    std::string text = format("({} or {})", in_section, in_headers);
    if (!granted_.Covers(need))
        text = format("({} and {})", Guard(need), text);
    return text;
}

// That OverlayOffset is at least `bound`.
std::string RuleWriter::OverlayAtLeast(const std::string &bound) const {
    const std::string header = HeaderOf("i");
    return format("(filesize >= {0} and ({1} >= {0} or for any i in (0..n - 1) : ({2} > 0 and {3} + {2} >= {0})))",
                  bound, HeadersSize(), SectionField(header, kSizeOfRawData), SectionField(header, kPointerToRawData));
}

// The body with the overlay. Where several sections end at the same offset, the answer is the same for each.
std::string RuleWriter::AtOverlay(const Body &body) const {
    const auto end_of = [](std::string_view index) {
        const std::string header = HeaderOf(index);
        return std::pair(SectionField(header, kSizeOfRawData),
                         SectionField(header, kPointerToRawData) + " + " + SectionField(header, kSizeOfRawData));
    };
    const std::string size = HeadersSize();
    const auto [i_size, i_end] = end_of("i");
    const auto [j_size, j_end] = end_of("j");
    const auto scene = [](const std::string &begin) {
        return Scene{{format("math.min({}, filesize)", begin), "filesize", "filesize"}, "", ""};
    };
    return format(
        "(for any i in (0..n - 1) : ({0} > 0 and {1} >= {2} and not for any j in (0..n - 1) : ({3} > 0 and {4} > "
        "{1}) and {5}) or (not for any j in (0..n - 1) : ({3} > 0 and {4} > {2}) and {6}))",
        i_size, i_end, size, j_size, j_end, body(scene(i_end)), body(scene(size)));
}

// That the place is there and the body true of it. `need` grows by what the place needs of the optional header.
std::string RuleWriter::AtPlace(const Place &place, const Body &body, Need &need) const {
    const std::string header = HeaderOf("i");
    const Scene scene{RawData(header), header, "i"};
    const auto loop = [&](const std::string &which) {
        return format("for any i in (0..n - 1) : ({} and {})", which, body(scene));
    };
    const auto counted = [&](unsigned sections, const std::string &index) {
        const std::string at = HeaderOf(index);
        return format("n >= {} and {}", sections, body({RawData(at), at, index}));
    };
    switch (place.kind) {
    case Place::kFixed:
        return counted(place.number + 1u, std::to_string(place.number));
    case Place::kNamed:
        return loop(format("{} and not for any j in (0..i - 1) : ({})", Named(header, place.name),
                           Named(HeaderOf("j"), place.name)));
    case Place::kOverlay:
        return AtOverlay(body);
    case Place::kEntryCode: {
        need.Add(NeedOf(field::kAddressOfEntryPoint));
        const std::string rva = Value(field::kAddressOfEntryPoint);
        return format("{} != 0 and {}", rva, AtOffsetOf(rva, {}, body));
    }
    case Place::kRole:
        break;
    default:
        Refuse("not a valid region");
    }
    switch (static_cast<SectionRole>(place.number)) {
    case SectionRole::Last:
        return counted(1, "(n - 1)");
    case SectionRole::NextToLast:
        return counted(2, "(n - 2)");
    case SectionRole::Largest: {
        const std::string size = SectionField(header, kSizeOfRawData);
        const std::string other = SectionField(HeaderOf("j"), kSizeOfRawData);
        return loop(format("not for any j in (0..n - 1) : ({0} > {1} or ({0} == {1} and j < i))", other, size));
    }
    default:
        break;
    }
    const std::string rva = RoleRva(place.number, need);
    const bool may_be_0 = place.number == static_cast<uint16_t>(SectionRole::Code) ||
                          place.number == static_cast<uint16_t>(SectionRole::Data);
    const std::string there = may_be_0 ? "" : rva + " != 0 and ";
    return there + loop(FirstHolding(rva));
}

} // namespace tavrik::rules::yara
