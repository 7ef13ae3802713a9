#include <limits>
#include <string_view>

#include <fmt/format.h>

#include "pe/format.h"
#include "rules/names.h"
#include "rules/numbers.h"
#include "rules/yara/rule_writer.h"

namespace tavrik::rules::yara {

using fmt::format;
namespace field = header_field;

namespace {

constexpr uint32_t kMostModules = 1024; // import descriptors that count

constexpr std::string_view kRichEnd = "(math.min(uint32(0x3C), 0x10000) - 8) \\ 4";

// Derived values are at most 0xFFFFFFFF in rules; in YARA they may be larger.
void CheckDerived(const Test &test) {
    for (const uint32_t value : test.values)
        if (test.op == Operator::HasBits || value == std::numeric_limits<uint32_t>::max())
            Refuse("bits or the largest of a derived value");
}

Place SectionPlace(uint16_t selector) {
    if (selector < kFirstNameOnlyRole)
        return {Place::kFixed, selector, ""};
    return {Place::kRole, selector, ""};
}

} // namespace

// ---- Header values --------------------------------------------------------------------------------------------------

void RuleWriter::WriteHeader() {
    ForRuns(
        rule_.header_conditions, [](const auto &a, const auto &b) { return a.field == b.field; },
        [&](std::size_t first, std::size_t count) {
            WriteHeaderRun(rule_.header_conditions[first].field, TestOf(rule_.header_conditions, first, count));
        });
}

void RuleWriter::WriteHeaderRun(uint16_t number, const Test &test) {
    const Field *field = FindField(HeaderFields(), number);
    if (field == nullptr)
        Refuse("a header value without a number");
    const bool is_rare = test.op == Operator::Equal && test.values.size() == 1 && test.values[0] > 0xFFFF;
    const Rank rank = is_rare ? kRareHeader : test.op == Operator::Equal && test.values[0] > 0 ? kWideHeader : kHeader;
    switch (field->origin) {
    case Origin::DosHeader:
        return Add(rank, false, test.On(format("uint{}(0x{:X})", 8 * field->width, field->offset)));
    case Origin::FileHeader:
        return Add(
            rank, false,
            test.On(format("uint{}(uint32(0x3C) + 0x{:X})", 8 * field->width, pe::kFileHeaderOffset + field->offset)));
    case Origin::OptionalHeader:
        return WriteOptionalField(number, test, rank);
    case Origin::Derived:
        return WriteDerived(number, test, rank);
    default:
        Refuse("values of Visual Basic structures");
    }
}

void RuleWriter::WriteOptionalField(uint16_t number, const Test &test, Rank rank) {
    if (number == field::kMagic) {
        asks_magic_ = true;
        if (magic_ == 0 || !test.Asks(magic_))
            Add(rank, false, test.On("uint16(uint32(0x3C) + 0x18)"));
        return;
    }
    if (number == field::kBaseOfData && magic_ == kMagicPe32Plus)
        Refuse("a condition that is never met");
    Add(rank, false, test.On(Required(number)));
}

void RuleWriter::WriteDerived(uint16_t number, const Test &test, Rank rank) {
    const Place entry_section{Place::kRole, static_cast<uint16_t>(SectionRole::Entry), ""};
    const Place entry_code{Place::kEntryCode, 0, ""};
    switch (number) {
    case field::kFileSize:
        CheckDerived(test);
        return Add(kRareHeader, false, test.On("filesize"));
    case field::kOverlayOffset:
        CheckDerived(test);
        return Add(kLoop, true,
                   TestByBounds(test, [&](uint64_t value) { return OverlayAtLeast(format("0x{:X}", value)); }));
    case field::kOverlaySize:
        CheckDerived(test);
        // The size is at least v where the offset is at most filesize - v, that is, not at least one more.
        return Add(kLoop, true, TestByBounds(test, [&](uint64_t value) {
                       return value == 0 ? std::string("true")
                                         : format("(filesize >= {0} and not {1})", value,
                                                  OverlayAtLeast(format("filesize - 0x{:X}", value - 1)));
                   }));
    case field::kEntryPointOffset:
        CheckDerived(test);
        return AddAt(entry_code, rank, [=](const Scene &scene) { return test.On("(" + scene.span.begin + ")"); });
    case field::kEntryPointSection:
        return AddAt(entry_section, rank, [=](const Scene &scene) { return test.On(scene.index); });
    case field::kEntryPointDelta: {
        const std::string entry = Required(field::kAddressOfEntryPoint);
        return AddAt(entry_section, rank, [=](const Scene &scene) {
            return test.On(format("({} - {})", entry, SectionField(scene.header, kVirtualAddress)));
        });
    }
    case field::kEntryBytes0:
    case field::kEntryBytes4: {
        const std::string distance = number == field::kEntryBytes4 ? " + 4" : "";
        return AddAt(entry_code, rank,
                     [=](const Scene &scene) { return test.On(format("uint32({}{})", scene.span.begin, distance)); });
    }
    case field::kRichOffset:
    case field::kRichKey:
    case field::kRichCount:
    case field::kRichLastBuild:
        return WriteRich(number, test);
    case field::kImageBaseHigh: {
        constexpr unsigned kEnd = pe::optional_header::kImageBaseHighPlus + 4;
        need_.Add({kEnd, kEnd, 0});
        if (magic_ != kMagicPe32Plus)
            Refuse("a condition that is never met");
        return Add(rank, false,
                   test.On(format("uint32(uint32(0x3C) + 0x{:X})",
                                  pe::kOptionalHeaderOffset + pe::optional_header::kImageBaseHighPlus)));
    }
    case field::kImportModuleCount:
        return WriteImportModuleCount(test);
    case field::kExportNameCount:
        return WriteExportNameCount(test);
    case field::kClrFlags:
        Refuse("flags of the .NET header");
    case field::kImportFunctionCount:
        return WriteImportFunctionCount(test);
    case field::kResourceCount:
        return WriteResourceCount(test);
    default:
        Refuse("values of Visual Basic structures");
    }
}

// The last "Rich", and for two of the values the nearest "DanS" before it, both in words.
void RuleWriter::WriteRich(uint16_t number, const Test &test) {
    std::string asked;
    if (number == field::kRichOffset)
        asked = test.On("(r * 4)");
    else if (number == field::kRichKey)
        asked = test.On("uint32(r * 4 + 4)");
    else
        asked =
            format("for any d in (16..r - 4) : (uint32(d * 4) == 0x{0:X} ^ uint32(r * 4 + 4) and not for any q in (d + "
                   "1..r - 1) : (uint32(q * 4) == 0x{0:X} ^ uint32(r * 4 + 4)) and (r - d) % 2 == 0 and {1})",
                   pe::rich::kStartMark,
                   number == field::kRichCount ? test.On("((r - d - 4) \\ 2)")
                                               : "r > d + 4 and " + test.On("(uint32(r * 4 - 8) ^ uint32(r * 4 + 4))"));
    Add(kRich, false,
        format(
            "for any r in (16..{0}) : (uint32(r * 4) == 0x{2:X} and not for any q in (r + 1..{0}) : (uint32(q * 4) == "
            "0x{2:X}) and {1})",
            kRichEnd, asked, pe::rich::kEndMark));
}

void RuleWriter::WriteImportModuleCount(const Test &test) {
    const Need need = NeedOf(field::kImportTable);
    const std::string rva = Value(field::kImportTable);
    Add(kLoop, true, TestByBounds(test, [&](uint64_t value) {
            if (value == 0 || value > kMostModules)
                return std::string(value == 0 ? "true" : "false");
            const std::string found = AtOffsetOf(
                rva, need, [&](const Scene &scene) { return HasDescriptors(scene.span.begin, value); }, true);
            return format("({} != 0 and {})", rva, found);
        }));
}

void RuleWriter::WriteExportNameCount(const Test &test) {
    const Need need = NeedOf(field::kExportTable);
    const std::string rva = Value(field::kExportTable);
    // A file without the directory has 0 names.
    const bool or_absent = test.Accepts(0);
    const std::string found = AtOffsetOf(rva, need, [&](const Scene &scene) {
        using namespace pe::export_directory;
        const std::string asked = test.On(format("uint32({} + {})", scene.span.begin, 4 * kNumberOfNames));
        return format("{} + {} <= filesize and {}", scene.span.begin, kSize, or_absent ? "not (" + asked + ")" : asked);
    });
    Add(kLoop, true, format("{}({} != 0 and {})", or_absent ? "not " : "", rva, found));
}

// ---- Sections -------------------------------------------------------------------------------------------------------

void RuleWriter::WriteSections() {
    ForRuns(
        rule_.section_conditions,
        [](const auto &a, const auto &b) { return a.section == b.section && a.field == b.field; },
        [&](std::size_t first, std::size_t count) {
            const SectionCondition &condition = rule_.section_conditions[first];
            const Field *field = FindField(SectionFields(), condition.field);
            if (field == nullptr)
                Refuse("a section value without a number");
            const Test test = TestOf(rule_.section_conditions, first, count);
            AddAt(SectionPlace(condition.section), kHeader, [=](const Scene &scene) {
                return test.On(format("uint{}({} + {})", 8 * field->width, scene.header, field->offset));
            });
        });
}

void RuleWriter::WriteSectionNames() {
    ForRuns(
        rule_.section_names,
        [](const auto &a, const auto &b) { return a.section == b.section && !IsAnySection(a.section); },
        [&](std::size_t first, std::size_t count) {
            const SectionNameCondition &condition = rule_.section_names[first];
            if (condition.op != Operator::Equal && condition.op != Operator::NotEqual)
                Refuse("an operator that is never met");
            const bool is_not = condition.op == Operator::NotEqual;
            if (!IsAnySection(condition.section)) {
                AddAt(SectionPlace(condition.section), kHeader, [=, this](const Scene &scene) {
                    Parts parts;
                    for (std::size_t i = first; i < first + count; ++i)
                        parts.push_back(Named(scene.header, rule_.section_names[i].name));
                    return is_not ? "not (" + Any(parts) + ")" : Any(parts);
                });
                return;
            }
            const std::string header = HeaderOf("i");
            std::string which = Named(header, condition.name);
            if (condition.section != static_cast<uint16_t>(SectionRole::Any))
                which +=
                    format(" and {} & 0x{:X} {} 0", SectionField(header, kCharacteristics), pe::section_flag::kExecute,
                           condition.section == static_cast<uint16_t>(SectionRole::AnyCode) ? "!=" : "==");
            Add(kLoop, true, format("{}for any i in (0..n - 1) : ({})", is_not ? "not " : "", which));
        });
}

void RuleWriter::WriteTraits() {
    const uint32_t traits = rule_.attribute_b;
    const Place entry = SectionPlace(static_cast<uint16_t>(SectionRole::Entry));
    const Place last = SectionPlace(static_cast<uint16_t>(SectionRole::Last));
    const auto with_bit = [](uint32_t bit) {
        return [=](const Scene &scene) {
            return format("{} & 0x{:X} != 0", SectionField(scene.header, kCharacteristics), bit);
        };
    };
    if ((traits & trait::kFewImports) != 0)
        WriteImportFunctionCount({Operator::AtMost, {kFewImports}});
    if ((traits & (trait::kVisualBasic | trait::kNativeCode)) != 0)
        Refuse("values of Visual Basic structures");
    if ((traits & ~trait::kAll) != 0)
        Refuse("a trait that is never met");
    if ((traits & trait::kOverlay) != 0)
        Add(kLoop, true, "not " + OverlayAtLeast("filesize"));
    if ((traits & trait::kEntryInLast) != 0)
        AddAt(entry, kHeader, [](const Scene &scene) { return scene.index + " == n - 1"; });
    if ((traits & trait::kWritableEntry) != 0)
        AddAt(entry, kHeader, with_bit(pe::section_flag::kWrite));
    if ((traits & trait::kExecutableLast) != 0)
        AddAt(last, kHeader, with_bit(pe::section_flag::kExecute));
    if ((traits & trait::kVirtualSection) != 0)
        Add(kLoop, true,
            format("for any i in (0..n - 1) : ({} == 0 and {} > 0)", SectionField(HeaderOf("i"), kSizeOfRawData),
                   SectionField(HeaderOf("i"), kVirtualSize)));
}

void RuleWriter::WriteImportTable() {
    ForRuns(
        rule_.indexed_conditions, [](const auto &a, const auto &b) { return a.index == b.index && a.field == b.field; },
        [&](std::size_t first, std::size_t count) {
            const IndexedCondition &condition = rule_.indexed_conditions[first];
            const Field *field = FindField(ImportTableFields(), condition.field);
            if (field == nullptr)
                Refuse("a value of the import table without a number");
            const Test test = TestOf(rule_.indexed_conditions, first, count);
            const std::string rva = Required(field::kImportTable);
            const std::string found = AtOffsetOf(
                rva, {},
                [&](const Scene &scene) {
                    const unsigned place = pe::import_descriptor::kSize * condition.index + field->offset;
                    return format("{} and {}", HasDescriptors(scene.span.begin, condition.index + 1u),
                                  test.On(format("uint32({} + {})", scene.span.begin, place)));
                },
                true);
            Add(kLoop, true, format("{} != 0 and {}", rva, found));
        });
}

} // namespace tavrik::rules::yara
