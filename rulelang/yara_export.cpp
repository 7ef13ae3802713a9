#include "rulelang/yara_export.h"

#include "rulelang/expression.h"
#include "rulelang/names.h"
#include "rulelang/yara_strings.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

// Names in the text that is written: t is the offset of the section table, n the number of sections in it, i a section
// that a condition is about, j one that it is compared with, e the file offset of
// an address, r a Rich offset in words, d that of its start.

namespace tavrik::rules {

namespace {

using fmt::format;

// The first reason why a rule has no counterpart.
struct NotExpressible {
    std::string reason;
};

[[noreturn]] void Refuse(std::string reason) {
    throw NotExpressible{std::move(reason)};
}

constexpr uint32_t kPe32 = 0x10B;
constexpr uint32_t kPe32Plus = 0x20B;
constexpr unsigned kOptionalHeader = 24; // from the PE signature
constexpr unsigned kSectionHeader = 40;  // bytes

// Header fields.
constexpr uint16_t kSizeOfOptionalHeader = 36;
constexpr uint16_t kMagic = 38;
constexpr uint16_t kAddressOfEntryPoint = 44;
constexpr uint16_t kBaseOfCode = 45;
constexpr uint16_t kBaseOfData = 46;
constexpr uint16_t kSizeOfHeaders = 58;
constexpr uint16_t kNumberOfRvaAndSizes = 67;
constexpr uint16_t kFirstDirectory = 68; // VirtualAddress; Size follows, then the next one
constexpr uint16_t kFileSize = 100;
constexpr uint16_t kOverlayOffset = 101;
constexpr uint16_t kOverlaySize = 102;
constexpr uint16_t kEntryPointOffset = 103;
constexpr uint16_t kEntryPointSection = 104;
constexpr uint16_t kEntryPointDelta = 105;
constexpr uint16_t kEntryBytes0 = 106;
constexpr uint16_t kEntryBytes4 = 107;
constexpr uint16_t kRichOffset = 108;
constexpr uint16_t kRichKey = 109;
constexpr uint16_t kRichCount = 110;
constexpr uint16_t kRichLastBuild = 111;
constexpr uint16_t kImportModuleCount = 112;
constexpr uint16_t kImportFunctionCount = 113;
constexpr uint16_t kExportNameCount = 114;
constexpr uint16_t kResourceCount = 115;
constexpr uint16_t kImageBaseHigh = 116;
constexpr uint16_t kClrFlags = 117;

// Data directories.
enum Directory : uint16_t { kExport = 0, kImport = 1, kResource = 2, kRelocation = 5, kTls = 9 };

// Fields of a section header, by their offsets.
constexpr unsigned kVirtualSize = 8;
constexpr unsigned kVirtualAddress = 12;
constexpr unsigned kSizeOfRawData = 16;
constexpr unsigned kPointerToRawData = 20;
constexpr unsigned kCharacteristics = 36;

constexpr uint32_t kExecutable = 0x20000000;
constexpr uint32_t kWritable = 0x80000000;
constexpr uint32_t kMostModules = 1024; // import descriptors that count

constexpr std::string_view kCountText =
    "math.min(math.min(uint16(uint32(0x3C) + 6), 512), (filesize - t) \\ 40)"; // of sections
constexpr std::string_view kRichEnd = "(math.min(uint32(0x3C), 0x10000) - 8) \\ 4";

// The order of conditions: what is cheap and rarely met comes first.
enum Rank { kRareHeader, kWideHeader, kHeader, kPlainString, kFixedSection, kLoop, kRich, kMeasure };

using Parts = std::vector<std::string>;

std::string Joined(const Parts &parts, std::string_view by) {
    return format("{}", fmt::join(parts, by));
}

std::string All(const Parts &parts) {
    return Joined(parts, " and ");
}

std::string Any(const Parts &parts) {
    return parts.size() == 1 ? parts.front() : "(" + Joined(parts, " or ") + ")";
}

std::string Compared(std::string_view value, Operator op, uint32_t wanted) {
    if (op == Operator::kHasBits)
        return format("({0}) & 0x{1:X} == 0x{1:X}", value, wanted);
    if (op < Operator::kEqual || op > Operator::kHasBits)
        Refuse("an operator that is never met");
    return format("{} {} 0x{:X}", value, OperatorText(op), wanted);
}

// A test of one value: an operator and values, of which there are several only with kEqual.
struct Test {
    Operator op;
    std::vector<uint32_t> values;

    std::string On(std::string_view value) const {
        Parts parts;
        for (const uint32_t wanted : values)
            parts.push_back(Compared(value, op, wanted));
        return Any(parts);
    }

    bool Accepts(uint32_t value) const {
        return std::ranges::any_of(values, [&](uint32_t wanted) {
            switch (op) {
            case Operator::kEqual:
                return value == wanted;
            case Operator::kNotEqual:
                return value != wanted;
            case Operator::kLess:
                return value < wanted;
            case Operator::kGreater:
                return value > wanted;
            case Operator::kAtMost:
                return value <= wanted;
            case Operator::kAtLeast:
                return value >= wanted;
            case Operator::kHasBits:
                return (value & wanted) == wanted;
            }
            return false;
        });
    }

    bool Asks(uint32_t value) const { return op == Operator::kEqual && values.size() == 1 && values[0] == value; }
};

// A value that only "at least" can be asked of: `at_least` writes that it is at least a number.
std::string TestByBounds(const Test &test, const std::function<std::string(uint64_t)> &at_least) {
    Parts parts;
    for (const uint64_t value : test.values) {
        const std::string from = at_least(value);
        const std::string above = at_least(value + 1);
        switch (test.op) {
        case Operator::kEqual:
            parts.push_back(format("({} and not ({}))", from, above));
            break;
        case Operator::kNotEqual:
            parts.push_back(format("(not ({}) or {})", from, above));
            break;
        case Operator::kLess:
            parts.push_back(format("not ({})", from));
            break;
        case Operator::kGreater:
            parts.push_back(above);
            break;
        case Operator::kAtMost:
            parts.push_back(format("not ({})", above));
            break;
        case Operator::kAtLeast:
            parts.push_back(from);
            break;
        default:
            Refuse("bits of a value that is compared by its bounds");
        }
    }
    return Any(parts);
}

// Calls action(first, count) for each run of alternatives in a list.
template <typename List, typename Same, typename Action>
void ForRuns(const List &list, Same same, Action action) {
    for (std::size_t first = 0, count = 1; first < list.size(); first += count) {
        count = 1;
        while (first + count < list.size() && list[first].op == Operator::kEqual &&
               list[first + count].op == Operator::kEqual && same(list[first], list[first + count]))
            ++count;
        action(first, count);
    }
}

template <typename List>
Test TestOf(const List &list, std::size_t first, std::size_t count) {
    Test test{list[first].op, {}};
    for (std::size_t i = first; i < first + count; ++i)
        test.values.push_back(list[i].value);
    return test;
}

// ---- Places ---------------------------------------------------------------------------------------------------------

// What fields of the optional header need of a file, so that they are there.
struct Need {
    unsigned end_pe32 = 0; // bytes of the optional header
    unsigned end_pe32_plus = 0;
    unsigned directories = 0;

    void Add(const Need &other) {
        end_pe32 = std::max(end_pe32, other.end_pe32);
        end_pe32_plus = std::max(end_pe32_plus, other.end_pe32_plus);
        directories = std::max(directories, other.directories);
    }

    bool Covers(const Need &other) const {
        return end_pe32 >= other.end_pe32 && end_pe32_plus >= other.end_pe32_plus && directories >= other.directories;
    }
};

// A stretch of the file: offsets as expressions. Strings cannot reach beyond the file, so that for them `end` need not
// be cut there; `cut_end` is.
struct Span {
    std::string begin;
    std::string end;
    std::string cut_end;
};

Span SpanOf(std::string begin, std::string end) {
    std::string cut = format("math.min({}, filesize)", end);
    return {std::move(begin), std::move(end), std::move(cut)};
}

// The field at `offset` of the section whose header stands at `header`.
std::string SectionField(std::string_view header, unsigned offset) {
    return format("uint32({} + {})", header, offset);
}

std::string HeaderOf(std::string_view index) {
    return format("t + {} * {}", kSectionHeader, index);
}

Span RawData(std::string_view header) {
    const std::string begin = SectionField(header, kPointerToRawData);
    return SpanOf(begin, begin + " + " + SectionField(header, kSizeOfRawData));
}

// That a section is so named.
std::string Named(std::string_view header, std::string_view name) {
    const std::size_t length = std::min(name.size() + 1, kMaxSectionName); // with the NUL that ends it
    if (length == 1)
        return format("uint8({}) == 0", header);
    Parts parts;
    for (std::size_t word = 0; word < length; word += 4) {
        uint32_t value = 0;
        uint32_t mask = 0;
        for (std::size_t i = word; i < std::min(word + 4, length); ++i) {
            const unsigned shift = 8 * static_cast<unsigned>(i - word);
            mask |= 0xFFu << shift;
            value |= static_cast<uint32_t>(i < name.size() ? static_cast<uint8_t>(name[i]) : 0) << shift;
        }
        const std::string read = word == 0 ? format("uint32({})", header) : format("uint32({} + {})", header, word);
        parts.push_back(mask == 0xFFFFFFFF ? format("{} == 0x{:X}", read, value)
                                           : format("{} & 0x{:X} == 0x{:X}", read, mask, value));
    }
    return parts.size() == 1 ? parts[0] : "(" + All(parts) + ")";
}

// ---- A rule ---------------------------------------------------------------------------------------------------------

// Where a condition is asked: a section, or a stretch that takes some finding.
struct Place {
    enum Kind : uint8_t { kNowhere, kFixed, kRole, kNamed, kEntryCode, kOverlay };
    Kind kind = kNowhere;
    uint16_t number = 0; // section or role
    std::string name;

    auto operator<=>(const Place &) const = default;
};

// Writes a condition, given the place's span, and, where the place is a section, its header and index.
struct Scene {
    Span span;
    std::string header;
    std::string index;
};
using Body = std::function<std::string(const Scene &)>;

class RuleWriter {
public:
    // `granted` is what all conditions together need, as an earlier writing of the same rule found it.
    RuleWriter(const Rule &rule, const Need &granted) : rule_(rule), granted_(granted) { Write(); }

    const Need &need() const { return need_; }
    const Parts &strings() const { return strings_; }
    std::string Condition() const;

private:
    struct Item {
        Rank rank;
        bool in_table; // uses t and n
        std::string text;
    };

    void Write();
    void RefuseLists() const;
    void WriteHeader();
    void WriteHeaderRun(uint16_t field, const Test &test);
    void WriteSections();
    void WriteSectionNames();
    void WriteTraits();
    void WriteStrings();
    void WriteMeasures();
    void WriteImportTable();

    void Add(Rank rank, bool in_table, std::string text) { items_.push_back({rank, in_table, std::move(text)}); }
    void AddAt(const Place &place, Rank rank, Body body) { groups_[place].push_back({rank, std::move(body)}); }
    void FlushGroups();

    // Values of the optional header.
    Need NeedOf(uint16_t field) const;
    std::string Offset(uint16_t field) const;
    std::string Value(uint16_t field) const;
    std::string Required(uint16_t field);
    std::string Guard(const Need &need) const;

    // Places.
    std::string RoleRva(uint16_t role, Need &need) const;
    std::string Holding(const std::string &rva, std::string_view i) const;
    std::string AtOffsetOf(const std::string &rva, const Need &need, const Body &body, bool has_loops = false) const;
    std::string AtPlace(const Place &place, const Body &body, Need &need) const;
    std::string OverlayAtLeast(const std::string &bound) const;
    std::string AtOverlay(const Body &body) const;
    std::string HeadersSize() const;

    std::string Present(std::size_t string, bool is_required);
    std::string Expression(std::string_view &text, bool is_required);
    static std::string Window(char letter, const StringFeature &string, const Span &span);

    const Rule &rule_;
    Need granted_;
    Need need_;
    uint32_t magic_ = 0; // where only one is possible
    bool asks_magic_ = false;
    std::vector<Item> items_;
    std::map<Place, std::vector<std::pair<Rank, Body>>> groups_;
    Parts strings_;
};

void RuleWriter::RefuseLists() const {
    const std::pair<bool, const char *> lists[] = {
        {!rule_.import_modules.empty() || !rule_.import_functions.empty(),
         "import names: the pe module compares and bounds them otherwise"},
        {!rule_.export_module_names.empty() || !rule_.export_functions.empty(),
         "export names: the pe module compares and bounds them otherwise"},
        {!rule_.resource_entries.empty() || !rule_.resource_type_entries.empty(),
         "resources: the pe module walks the tree otherwise"},
        {!rule_.resource_strings.empty(), "strings of resources: the pe module reads them otherwise"},
        {!rule_.secondary_conditions.empty() || !rule_.object_names.empty() || !rule_.member_names.empty(),
         "objects of Visual Basic"},
    };
    for (const auto &[is_used, reason] : lists)
        if (is_used)
            Refuse(reason);
}

void RuleWriter::Write() {
    RefuseLists();
    for (const HeaderCondition &condition : rule_.header_conditions)
        if (condition.field == kBaseOfData)
            magic_ = kPe32;
        else if (condition.field == kImageBaseHigh)
            magic_ = kPe32Plus;
    ForRuns(
        rule_.header_conditions, [](const auto &a, const auto &b) { return a.field == b.field; },
        [&](std::size_t first, std::size_t count) {
            const Test test = TestOf(rule_.header_conditions, first, count);
            if (rule_.header_conditions[first].field == kMagic && (test.Asks(kPe32) || test.Asks(kPe32Plus)))
                magic_ = test.values[0];
        });
    WriteHeader();
    WriteSections();
    WriteSectionNames();
    WriteTraits();
    WriteImportTable();
    WriteMeasures();
    WriteStrings();
    FlushGroups();
    if (asks_magic_)
        need_.Add({2, 2, 0});
}

// ---- The optional header

unsigned PlaceInPe32Plus(unsigned offset) {
    constexpr unsigned kImageBase = 0x1C;
    constexpr unsigned kSizeOfStackReserve = 0x48;
    constexpr unsigned kLoaderFlags = 0x58;
    if (offset == kImageBase)
        return 0x18;
    if (offset >= kLoaderFlags)
        return offset + 16;
    return offset >= kSizeOfStackReserve ? 2 * offset - kSizeOfStackReserve : offset;
}

Need RuleWriter::NeedOf(uint16_t number) const {
    const Field &field = *FindField(HeaderFields(), number);
    Need need;
    need.end_pe32 = field.offset + unsigned{field.width};
    need.end_pe32_plus = PlaceInPe32Plus(field.offset) + field.width;
    if (number >= kFirstDirectory)
        need.directories = (number - kFirstDirectory) / 2u + 1;
    return need;
}

// Where the field stands, from the PE signature.
std::string RuleWriter::Offset(uint16_t number) const {
    const unsigned narrow = FindField(HeaderFields(), number)->offset;
    const unsigned wide = PlaceInPe32Plus(narrow);
    if (narrow == wide || magic_ == kPe32)
        return format("0x{:X}", kOptionalHeader + narrow);
    if (magic_ == kPe32Plus)
        return format("0x{:X}", kOptionalHeader + wide);
    // Bit 0x200 of Magic tells the two layouts apart.
    const auto shift = [&] {
        return format("((uint16(uint32(0x3C) + 0x18) & 0x200) >> 9) * {}",
                      wide > narrow ? wide - narrow : narrow - wide);
    };
    return format("0x{:X} {} {}", kOptionalHeader + narrow, wide > narrow ? '+' : '-', shift());
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
        if (condition.field == kSizeOfOptionalHeader && condition.op == Operator::kEqual)
            exact_size = exact_size ? 0 : condition.value; // alternatives count as unknown
    const auto layout = [&](uint32_t magic, unsigned end) {
        std::string text = format("uint16(uint32(0x3C) + 0x18) == 0x{:X}", magic);
        return exact_size && *exact_size >= end ? text : format("{} and uint16(uint32(0x3C) + 0x14) >= {}", text, end);
    };
    std::string text;
    if (need.end_pe32 == 2 && magic_ == 0)
        text = "uint16(uint32(0x3C) + 0x14) >= 2"; // Magic alone, which is there whatever it is
    else if (magic_ != 0)
        text = layout(magic_, magic_ == kPe32 ? need.end_pe32 : need.end_pe32_plus);
    else
        text = format("({} or {})", layout(kPe32, need.end_pe32), layout(kPe32Plus, need.end_pe32_plus));
    if (need.directories > 0)
        text += format(" and {} >= {}", Value(kNumberOfRvaAndSizes), need.directories);
    return text;
}

// SizeOfHeaders where it is known to be there.
std::string RuleWriter::HeadersSize() const {
    if (!granted_.Covers(NeedOf(kSizeOfHeaders)))
        Refuse("a place that depends on SizeOfHeaders, in files that may lack it");
    return Value(kSizeOfHeaders);
}

// ---- Places

// That section i holds an RVA and none before it does.
std::string RuleWriter::Holding(const std::string &rva, std::string_view i) const {
    const auto holds = [&](std::string_view index) {
        const std::string header = HeaderOf(index);
        const std::string start = SectionField(header, kVirtualAddress);
        return format("{0} >= {1} and ({0} < {1} + {2} or {0} < {1} + {3})", rva, start,
                      SectionField(header, kVirtualSize), SectionField(header, kSizeOfRawData));
    };
    return format("{} and not for any j in (0..{} - 1) : ({})", holds(i), i, holds("j"));
}

std::string RuleWriter::RoleRva(uint16_t role, Need &need) const {
    const auto value = [&](uint16_t field) {
        need.Add(NeedOf(field));
        return Value(field);
    };
    const auto directory = [&](Directory number) { return value(static_cast<uint16_t>(kFirstDirectory + 2 * number)); };
    switch (static_cast<SectionRole>(role)) {
    case SectionRole::kEntry:
        return value(kAddressOfEntryPoint);
    case SectionRole::kCode:
        return value(kBaseOfCode);
    case SectionRole::kData:
        return value(kBaseOfData);
    case SectionRole::kImport:
        return directory(kImport);
    case SectionRole::kResource:
        return directory(kResource);
    case SectionRole::kExport:
        return directory(kExport);
    case SectionRole::kRelocation:
        return directory(kRelocation);
    case SectionRole::kTls:
        return directory(kTls);
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
        format("for any i in (0..n - 1) : ({} and {} < {} and {})", Holding(rva, "i"), distance,
               SectionField(header, kSizeOfRawData),
               has_loops ? asked(offset) : format("for any e in ({}) : ({})", offset, asked("e")));
    const std::string size = HeadersSize();
    // Which section comes first is no matter where none may hold the address.
    const std::string start = SectionField(header, kVirtualAddress);
    const std::string in_headers = format(
        "({0} < {1} and {0} < filesize and not for any i in (0..n - 1) : ({0} >= {2} and ({0} < {2} + {3} or {0} < "
        "{2} + {4})) and {5})",
        rva, size, start, SectionField(header, kVirtualSize), SectionField(header, kSizeOfRawData),
        body({SpanOf(rva, size), "", ""}));
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
        need.Add(NeedOf(kAddressOfEntryPoint));
        const std::string rva = Value(kAddressOfEntryPoint);
        return format("{} != 0 and {}", rva, AtOffsetOf(rva, {}, body));
    }
    case Place::kRole:
        break;
    default:
        Refuse("a region that is none");
    }
    switch (static_cast<SectionRole>(place.number)) {
    case SectionRole::kLast:
        return counted(1, "(n - 1)");
    case SectionRole::kNextToLast:
        return counted(2, "(n - 2)");
    case SectionRole::kLargest: {
        const std::string size = SectionField(header, kSizeOfRawData);
        const std::string other = SectionField(HeaderOf("j"), kSizeOfRawData);
        return loop(format("not for any j in (0..n - 1) : ({0} > {1} or ({0} == {1} and j < i))", other, size));
    }
    default:
        break;
    }
    const std::string rva = RoleRva(place.number, need);
    const bool may_be_0 = place.number == static_cast<uint16_t>(SectionRole::kCode) ||
                          place.number == static_cast<uint16_t>(SectionRole::kData);
    const std::string there = may_be_0 ? "" : rva + " != 0 and ";
    return there + loop(Holding(rva, "i"));
}

void RuleWriter::FlushGroups() {
    for (auto &group : groups_) {
        const Place &place = group.first;
        auto &bodies = group.second;
        std::ranges::stable_sort(bodies, {}, [](const auto &body) { return body.first; });
        const auto write = [&](const auto &selected) {
            const Body all = [&](const Scene &scene) {
                Parts parts;
                for (const auto &[rank, body] : selected)
                    parts.push_back(body(scene));
                return All(parts);
            };
            return AtPlace(place, all, need_);
        };
        const bool is_fixed = place.kind == Place::kFixed;
        // A loop costs more than what stands in it, so that all that is asked of a place shares one. Measures read more
        // than that and come last of all.
        std::vector<std::pair<Rank, Body>> cheap;
        std::vector<std::pair<Rank, Body>> dear;
        for (const auto &body : bodies)
            (body.first == kMeasure ? dear : cheap).push_back(body);
        if (!cheap.empty())
            Add(is_fixed ? kFixedSection : kLoop, true, write(cheap));
        if (!dear.empty())
            Add(kMeasure, true, write(dear));
    }
    groups_.clear();
}

// ---- Header values

void RuleWriter::WriteHeader() {
    ForRuns(
        rule_.header_conditions, [](const auto &a, const auto &b) { return a.field == b.field; },
        [&](std::size_t first, std::size_t count) {
            WriteHeaderRun(rule_.header_conditions[first].field, TestOf(rule_.header_conditions, first, count));
        });
}

// Derived values are at most 0xFFFFFFFF here and may be more there.
void CheckDerived(const Test &test) {
    for (const uint32_t value : test.values)
        if (test.op == Operator::kHasBits || value == std::numeric_limits<uint32_t>::max())
            Refuse("bits or the largest of a derived value");
}

void RuleWriter::WriteHeaderRun(uint16_t number, const Test &test) {
    const Field *field = FindField(HeaderFields(), number);
    if (field == nullptr)
        Refuse("a header value without a number");
    const bool is_rare = test.op == Operator::kEqual && test.values.size() == 1 && test.values[0] > 0xFFFF;
    const Rank rank = is_rare ? kRareHeader : test.op == Operator::kEqual && test.values[0] > 0 ? kWideHeader : kHeader;
    const Place entry_section{Place::kRole, static_cast<uint16_t>(SectionRole::kEntry), ""};
    const Place entry_code{Place::kEntryCode, 0, ""};
    switch (field->origin) {
    case Origin::kDosHeader:
        return Add(rank, false, test.On(format("uint{}(0x{:X})", 8 * field->width, field->offset)));
    case Origin::kFileHeader:
        return Add(rank, false, test.On(format("uint{}(uint32(0x3C) + 0x{:X})", 8 * field->width, 4 + field->offset)));
    case Origin::kOptionalHeader:
        if (number == kMagic) {
            asks_magic_ = true;
            if (magic_ == 0 || !test.Asks(magic_))
                Add(rank, false, test.On("uint16(uint32(0x3C) + 0x18)"));
            return;
        }
        if (number == kBaseOfData && magic_ == kPe32Plus)
            Refuse("a condition that is never met");
        return Add(rank, false, test.On(Required(number)));
    case Origin::kDerived:
        break;
    default:
        Refuse("values of Visual Basic structures");
    }
    switch (number) {
    case kFileSize:
        CheckDerived(test);
        return Add(kRareHeader, false, test.On("filesize"));
    case kOverlayOffset:
        CheckDerived(test);
        return Add(kLoop, true,
                   TestByBounds(test, [&](uint64_t value) { return OverlayAtLeast(format("0x{:X}", value)); }));
    case kOverlaySize: {
        CheckDerived(test);
        // The size is at least v where the offset is at most filesize - v, that is, not at least one more.
        return Add(kLoop, true, TestByBounds(test, [&](uint64_t value) {
                       return value == 0 ? std::string("true")
                                         : format("(filesize >= {0} and not {1})", value,
                                                  OverlayAtLeast(format("filesize - 0x{:X}", value - 1)));
                   }));
    }
    case kEntryPointOffset:
        CheckDerived(test);
        return AddAt(entry_code, rank, [=](const Scene &scene) { return test.On("(" + scene.span.begin + ")"); });
    case kEntryPointSection:
        return AddAt(entry_section, rank, [=](const Scene &scene) { return test.On(scene.index); });
    case kEntryPointDelta: {
        const std::string entry = Required(kAddressOfEntryPoint);
        return AddAt(entry_section, rank, [=](const Scene &scene) {
            return test.On(format("({} - {})", entry, SectionField(scene.header, kVirtualAddress)));
        });
    }
    case kEntryBytes0:
    case kEntryBytes4: {
        const std::string distance = number == kEntryBytes4 ? " + 4" : "";
        return AddAt(entry_code, rank,
                     [=](const Scene &scene) { return test.On(format("uint32({}{})", scene.span.begin, distance)); });
    }
    case kRichOffset:
    case kRichKey:
    case kRichCount:
    case kRichLastBuild: {
        // The last "Rich", and for two of the values the nearest "DanS" before it, both in words.
        std::string asked;
        if (number == kRichOffset)
            asked = test.On("(r * 4)");
        else if (number == kRichKey)
            asked = test.On("uint32(r * 4 + 4)");
        else
            asked = format(
                "for any d in (16..r - 4) : (uint32(d * 4) == 0x536E6144 ^ uint32(r * 4 + 4) and not for any q in (d + "
                "1..r - 1) : (uint32(q * 4) == 0x536E6144 ^ uint32(r * 4 + 4)) and (r - d) % 2 == 0 and {})",
                number == kRichCount ? test.On("((r - d - 4) \\ 2)")
                                     : "r > d + 4 and " + test.On("(uint32(r * 4 - 8) ^ uint32(r * 4 + 4))"));
        return Add(kRich, false,
                   format("for any r in (16..{0}) : (uint32(r * 4) == 0x68636952 and not for any q in (r + 1..{0}) : "
                          "(uint32(q * 4) == 0x68636952) and {1})",
                          kRichEnd, asked));
    }
    case kImageBaseHigh:
        need_.Add({0x1C + 4, 0x1C + 4, 0});
        if (magic_ != kPe32Plus)
            Refuse("a condition that is never met");
        return Add(rank, false, test.On("uint32(uint32(0x3C) + 0x34)"));
    case kImportModuleCount: {
        const uint16_t directory = kFirstDirectory + 2 * kImport;
        const Need need = NeedOf(directory);
        const std::string rva = Value(directory);
        return Add(kLoop, true, TestByBounds(test, [&](uint64_t value) {
                       if (value == 0 || value > kMostModules)
                           return std::string(value == 0 ? "true" : "false");
                       const std::string found = AtOffsetOf(
                           rva, need,
                           [&](const Scene &scene) {
                               return format(
                                   "{0} + {1} <= filesize and not for any d in (0..{2}) : (uint32({0} + d * 20 + 12) "
                                   "== 0)",
                                   scene.span.begin, 20 * value, value - 1);
                           },
                           true);
                       return format("({} != 0 and {})", rva, found);
                   }));
    }
    case kExportNameCount:
    case kClrFlags: {
        const bool is_clr = number == kClrFlags;
        const uint16_t directory = is_clr ? 96 : kFirstDirectory + 2 * kExport;
        if (is_clr)
            Refuse("flags of the .NET header");
        const Need need = NeedOf(directory);
        const std::string rva = Value(directory);
        // A file without the directory has 0 names.
        const bool or_absent = test.Accepts(0);
        const std::string found = AtOffsetOf(rva, need, [&](const Scene &scene) {
            const std::string asked = test.On(format("uint32({} + 24)", scene.span.begin));
            return format("{} + 40 <= filesize and {}", scene.span.begin, or_absent ? "not (" + asked + ")" : asked);
        });
        return Add(kLoop, true, format("{}({} != 0 and {})", or_absent ? "not " : "", rva, found));
    }
    case kImportFunctionCount:
        Refuse("ImportFunctionCount: a sum over the import table");
    case kResourceCount:
        Refuse("ResourceCount: a sum over the resource tree");
    default:
        Refuse("values of Visual Basic structures");
    }
}

// ---- Sections

Place SectionPlace(uint16_t selector) {
    if (selector < kFirstNameOnlyRole)
        return {Place::kFixed, selector, ""};
    return {Place::kRole, selector, ""};
}

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
    const auto is_single = [](uint16_t section) { return section < kFirstNameOnlyRole || section > kLastNameOnlyRole; };
    ForRuns(
        rule_.section_names,
        [&](const auto &a, const auto &b) { return a.section == b.section && is_single(a.section); },
        [&](std::size_t first, std::size_t count) {
            const SectionNameCondition &condition = rule_.section_names[first];
            if (condition.op != Operator::kEqual && condition.op != Operator::kNotEqual)
                Refuse("an operator that is never met");
            const bool is_not = condition.op == Operator::kNotEqual;
            if (is_single(condition.section)) {
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
            if (condition.section != static_cast<uint16_t>(SectionRole::kAny))
                which += format(" and {} & 0x{:X} {} 0", SectionField(header, kCharacteristics), kExecutable,
                                condition.section == static_cast<uint16_t>(SectionRole::kAnyCode) ? "!=" : "==");
            Add(kLoop, true, format("{}for any i in (0..n - 1) : ({})", is_not ? "not " : "", which));
        });
}

void RuleWriter::WriteTraits() {
    enum Trait : uint32_t {
        kHasOverlay = 1,
        kEntryInLast = 2,
        kWritableEntry = 4,
        kExecutableLast = 8,
        kFewImports = 16,
        kVirtualSection = 32,
    };
    constexpr uint32_t kVisualBasicTraits = 64 | 128;
    const uint32_t traits = rule_.attribute_b;
    const Place entry = SectionPlace(static_cast<uint16_t>(SectionRole::kEntry));
    const Place last = SectionPlace(static_cast<uint16_t>(SectionRole::kLast));
    const auto with_bit = [](uint32_t bit) {
        return [=](const Scene &scene) {
            return format("{} & 0x{:X} != 0", SectionField(scene.header, kCharacteristics), bit);
        };
    };
    if ((traits & kFewImports) != 0)
        Refuse("few_imports: a sum over the import table");
    if ((traits & kVisualBasicTraits) != 0)
        Refuse("values of Visual Basic structures");
    if (traits > 255)
        Refuse("a trait that is never met");
    if ((traits & kHasOverlay) != 0)
        Add(kLoop, true, "not " + OverlayAtLeast("filesize"));
    if ((traits & kEntryInLast) != 0)
        AddAt(entry, kHeader, [](const Scene &scene) { return scene.index + " == n - 1"; });
    if ((traits & kWritableEntry) != 0)
        AddAt(entry, kHeader, with_bit(kWritable));
    if ((traits & kExecutableLast) != 0)
        AddAt(last, kHeader, with_bit(kExecutable));
    if ((traits & kVirtualSection) != 0)
        Add(kLoop, true,
            format("for any i in (0..n - 1) : ({} == 0 and {} > 0)", SectionField(HeaderOf("i"), kSizeOfRawData),
                   SectionField(HeaderOf("i"), kVirtualSize)));
}

void RuleWriter::WriteImportTable() {
    const uint16_t directory = kFirstDirectory + 2 * kImport;
    ForRuns(
        rule_.indexed_conditions, [](const auto &a, const auto &b) { return a.index == b.index && a.field == b.field; },
        [&](std::size_t first, std::size_t count) {
            const IndexedCondition &condition = rule_.indexed_conditions[first];
            const Field *field = FindField(ImportTableFields(), condition.field);
            if (field == nullptr)
                Refuse("a value of the import table without a number");
            const Test test = TestOf(rule_.indexed_conditions, first, count);
            const std::string rva = Required(directory);
            const std::string found = AtOffsetOf(
                rva, {},
                [&](const Scene &scene) {
                    const unsigned place = 20u * condition.index;
                    return format(
                        "{0} + {1} <= filesize and not for any d in (0..{2}) : (uint32({0} + d * 20 + 12) == 0) and "
                        "{3}",
                        scene.span.begin, place + 20, condition.index,
                        test.On(format("uint32({} + {})", scene.span.begin, place + field->offset)));
                },
                true);
            Add(kLoop, true, format("{} != 0 and {}", rva, found));
        });
}

// ---- Content

// Where a region of strings or measures is; kNowhere for those that need no finding, whose span `span` becomes.
Place RegionPlace(const Region &region, uint16_t index, std::string_view section_name, std::string_view &plain) {
    constexpr std::pair<std::string_view, SectionRole> kRoles[] = {
        {"last", SectionRole::kLast},
        {"entry", SectionRole::kEntry},
        {"code", SectionRole::kCode},
        {"data", SectionRole::kData},
        {"import", SectionRole::kImport},
        {"resource", SectionRole::kResource},
        {"export", SectionRole::kExport},
        {"relocation", SectionRole::kRelocation},
        {"tls", SectionRole::kTls},
        {"largest", SectionRole::kLargest},
        {"next_to_last", SectionRole::kNextToLast},
    };
    for (const auto &[name, role] : kRoles)
        if (region.name == name)
            return {Place::kRole, static_cast<uint16_t>(role), ""};
    if (region.argument == RegionArgument::kName)
        return {Place::kNamed, 0, std::string(section_name)};
    if (region.name == "section")
        return {Place::kFixed, index, ""};
    if (region.name == "entry_code")
        return {Place::kEntryCode, 0, ""};
    if (region.name == "overlay")
        return {Place::kOverlay, 0, ""};
    if (region.name == "resource_data")
        Refuse("data of resources: the pe module walks the tree otherwise");
    if (region.name == "vb")
        Refuse("values of Visual Basic structures");
    plain = region.name;
    return {};
}

// The span of a region that stands where the header says.
Span PlainSpan(std::string_view region, const std::function<std::string()> &headers_size) {
    if (region == "file")
        return {"0", "filesize", "filesize"};
    if (region == "headers")
        return SpanOf("0", headers_size());
    if (region == "dos_stub")
        return {"0x40", "uint32(0x3C)", "uint32(0x3C)"};
    Refuse("a region that is none");
}

std::string RuleWriter::Window(char letter, const StringFeature &string, const Span &span) {
    const auto length = static_cast<int64_t>(YaraStringLength(string));
    const int64_t low = std::max(0, string.window_start - string.drift);
    const int64_t high = int64_t{string.window_start} + string.window_length + string.drift - 1; // if there is a length
    const bool is_bounded = string.window_length != 0;
    const auto sum = [](const std::string &base, int64_t distance) {
        if (distance == 0)
            return base;
        if (base == "0")
            return format("{}", distance);
        return format("{} {} {}", base, distance < 0 ? '-' : '+', distance < 0 ? -distance : distance);
    };
    const bool to_file_end = span.cut_end == "filesize";
    if (!FromEnd(string.kind)) {
        const std::string first = sum(span.begin, low);
        if (is_bounded && low == high)
            return to_file_end
                       ? format("${} at {}", letter, first)
                       : format("(${} at {} and {} <= {})", letter, first, sum(span.begin, low + length), span.end);
        if (to_file_end && !is_bounded)
            return span.begin == "0" && low == 0 ? format("${}", letter)
                                                 : format("${} in ({}..filesize)", letter, first);
        if (to_file_end)
            return format("${} in ({}..{})", letter, first, sum(span.begin, high));
        const std::string end =
            is_bounded ? format("math.min({}, {})", sum(span.begin, high + length), span.end) : span.end;
        return format("${} in ({}..{})", letter, first, sum(end, -length));
    }
    const std::string last = sum(span.cut_end, -length - low);
    if (is_bounded && low == high)
        return span.begin == "0" ? format("${} at {}", letter, last)
                                 : format("(${0} at {1} and {1} >= {2})", letter, last, span.begin);
    const std::string first =
        is_bounded ? sum(format("math.max({}, {})", sum(span.begin, high + length), span.cut_end), -high - length)
                   : span.begin;
    return format("${} in ({}..{})", letter, first, last);
}

// That a string is present. A required one may share its place with other conditions; then nothing is returned.
std::string RuleWriter::Present(std::size_t index, bool is_required) {
    if (index >= rule_.strings.size())
        Refuse("a letter without a string");
    const StringFeature &string = rule_.strings[index];
    const auto letter = static_cast<char>('a' + index);
    const Region *region = FindStringRegion(string.kind);
    if (region == nullptr)
        Refuse("a region that is none");
    std::string_view plain;
    const Place place = RegionPlace(*region, string.index, string.section_name, plain);
    Need need;
    const Body body = [=](const Scene &scene) { return Window(letter, string, scene.span); };
    if (place.kind == Place::kNowhere) {
        const Span span = PlainSpan(plain, [&] {
            need.Add(NeedOf(kSizeOfHeaders));
            return Value(kSizeOfHeaders);
        });
        std::string text = body({span, "", ""});
        if (is_required) {
            need_.Add(need);
            Add(kPlainString, false, std::move(text));
            return "";
        }
        return granted_.Covers(need) ? text : format("({} and {})", Guard(need), text);
    }
    if (is_required) {
        AddAt(place, kPlainString, body);
        return "";
    }
    std::string text = AtPlace(place, body, need);
    return granted_.Covers(need) ? "(" + text + ")" : format("({} and {})", Guard(need), text);
}

// One operand of a well-formed expression, which is taken off the front of `text`.
std::string RuleWriter::Expression(std::string_view &text, bool is_required) {
    const auto next = [&] {
        while (text.starts_with(' '))
            text.remove_prefix(1);
        const char c = text.empty() ? '\0' : text.front();
        text.remove_prefix(text.empty() ? 0 : 1);
        return c;
    };
    const char c = next();
    if (c != '(')
        return Present(static_cast<std::size_t>(c - 'A'), is_required);
    // Whether the pair is one of "and" decides how its halves are written: look ahead.
    unsigned depth = 0;
    bool is_and = false;
    for (const char ahead : text) {
        if (depth == 0 && (ahead == '&' || ahead == '|')) {
            is_and = ahead == '&';
            break;
        }
        depth += ahead == '(' ? 1u : 0u;
        depth -= ahead == ')' ? 1u : 0u;
    }
    const std::string left = Expression(text, is_required && is_and);
    next();
    const std::string right = Expression(text, is_required && is_and);
    next();
    if (is_required && is_and)
        return "";
    std::string pair = format("({} {} {})", left, is_and ? "and" : "or", right);
    if (!is_required)
        return pair;
    Add(kLoop, true, std::move(pair));
    return "";
}

void RuleWriter::WriteStrings() {
    for (std::size_t i = 0; i < rule_.strings.size(); ++i) {
        const auto text = YaraString(rule_.strings[i]);
        if (!text)
            Refuse("a string that may occur more often than the engine counts");
        strings_.push_back(format("${} = {}", static_cast<char>('a' + i), *text));
    }
    if (!rule_.expression.empty()) {
        if (CheckExpression(rule_.expression, rule_.strings.size()))
            Refuse("an expression that is never true");
        std::string_view text = rule_.expression;
        Expression(text, true);
    }
    const LetterSet mentioned = LettersOf(rule_.expression);
    for (std::size_t i = 0; i < rule_.strings.size(); ++i)
        if ((mentioned >> i & 1) == 0)
            Present(i, true);
}

// An entropy in thousandths of a bit, compared where the rounded values would be.
std::string EntropyTest(std::string_view value, Operator op, uint32_t thousandths) {
    const double low = (thousandths - 0.5) / 1000;
    const double high = (thousandths + 0.5) / 1000;
    switch (op) {
    case Operator::kEqual:
        return format("({0} >= {1:.4f} and {0} < {2:.4f})", value, low, high);
    case Operator::kNotEqual:
        return format("({0} < {1:.4f} or {0} >= {2:.4f})", value, low, high);
    case Operator::kLess:
        return format("{} < {:.4f}", value, low);
    case Operator::kGreater:
        return format("{} >= {:.4f}", value, high);
    case Operator::kAtMost:
        return format("{} < {:.4f}", value, high);
    case Operator::kAtLeast:
        return format("{} >= {:.4f}", value, low);
    default:
        Refuse("an operator that is never met");
    }
}

void RuleWriter::WriteMeasures() {
    ForRuns(
        rule_.measure_conditions,
        [](const auto &a, const auto &b) {
            return a.region == b.region && a.index == b.index && a.measure == b.measure && a.length == b.length;
        },
        [&](std::size_t first, std::size_t count) {
            const MeasureCondition &condition = rule_.measure_conditions[first];
            const Region *region = FindMeasureRegion(condition.region);
            if (region == nullptr)
                Refuse("a region that is none");
            if (condition.measure != Measure::kEntropy && condition.measure != Measure::kCrc32)
                Refuse("a measure that is none");
            const Body body = [=, this](const Scene &scene) {
                const Span &span = scene.span;
                const bool is_whole = condition.length == 0;
                const std::string there = is_whole
                                              ? format("{} < {}", span.begin, span.cut_end)
                                              : format("{} + {} <= {}", span.begin, condition.length, span.cut_end);
                const std::string length = !is_whole           ? std::to_string(condition.length)
                                           : span.begin == "0" ? span.cut_end
                                                               : format("{} - ({})", span.cut_end, span.begin);
                const bool is_entropy = condition.measure == Measure::kEntropy;
                const std::string value =
                    format("{}({}, {})", is_entropy ? "math.entropy" : "hash.crc32", span.begin, length);
                Parts parts;
                for (std::size_t i = first; i < first + count; ++i) {
                    const MeasureCondition &asked = rule_.measure_conditions[i];
                    parts.push_back(is_entropy ? EntropyTest(value, asked.op, EntropyThousandths(MeasureEntropy(asked)))
                                               : Compared(value, asked.op, static_cast<uint32_t>(asked.bits)));
                }
                return there + " and " + Any(parts);
            };
            std::string_view plain;
            const Place place = RegionPlace(*region, condition.index, "", plain);
            if (place.kind != Place::kNowhere)
                return AddAt(place, kMeasure, body);
            const Span span = PlainSpan(plain, [&] { return Required(kSizeOfHeaders); });
            Add(kMeasure, false, body({span, "", ""}));
        });
}

// ---- The whole

std::string RuleWriter::Condition() const {
    std::vector<Item> items = items_;
    const std::string guard = Guard(need_);
    if (!guard.empty())
        items.push_back({kHeader, false, guard});
    // Rich values nest three loops of their own, so that they stay outside those of the table.
    std::ranges::stable_sort(items, {}, [](const Item &item) {
        const int part = item.in_table ? 1 : item.rank == kMeasure ? 2 : 0;
        return std::pair(part, item.rank);
    });
    const auto first = std::ranges::find(items, true, &Item::in_table);
    const auto last = std::find_if(first, items.end(), [](const Item &item) { return !item.in_table; });
    std::string text = "        pe_file";
    for (auto item = items.begin(); item != items.end(); ++item) {
        if (item == first)
            text += format(" and\n        for any t in (uint32(0x3C) + 24 + uint16(uint32(0x3C) + 20)) : (for any n in "
                           "({}) : (",
                           kCountText);
        text += item == first ? "\n" : " and\n";
        text += std::string(item->in_table ? 12 : 8, ' ') + item->text;
        if (item->in_table && item + 1 == last)
            text += "\n        ))";
    }
    return text;
}

constexpr std::string_view kHead = R"(import "hash"
import "math"

// Written by tavrik-rules export-yara. Conditions read the headers themselves, so that damaged files get the same
// answers as from the rules that these were made of.

private rule pe_file {
    condition:
        uint16(0) == 0x5A4D and uint32(uint32(0x3C)) == 0x00004550 and uint32(0x3C) + 24 <= filesize
}
)";

bool AsksNothing(const Rule &rule) {
    return rule.attribute_b == 0 && ComputeFeatureFlags(rule) == 0;
}

} // namespace

std::string YaraRuleName(const RuleSet &set, std::size_t place) {
    const uint32_t id = set.rules[place].rule_id;
    std::size_t before = 0;
    for (std::size_t i = 0; i < place; ++i)
        before += set.rules[i].rule_id == id ? 1u : 0u;
    return format("rule_{}_{}", id, before);
}

YaraExport ExportYara(const RuleSet &set) {
    YaraExport result;
    result.text = kHead;
    std::map<uint32_t, std::size_t> same_ids;
    for (std::size_t place = 0; place < set.rules.size(); ++place) {
        const Rule &rule = set.rules[place];
        const std::size_t before = same_ids[rule.rule_id]++;
        try {
            if (AsksNothing(rule))
                Refuse("a rule that asks nothing");
            // What the conditions need together is known only when all are written; then each can rely on it.
            constexpr unsigned kEverything = 0x10000;
            const Need granted = RuleWriter(rule, {kEverything, kEverything, 16}).need();
            const RuleWriter writer(rule, granted);
            result.text += format("\nrule rule_{}_{} {{\n    meta:\n        id = {}\n        name = {}\n", rule.rule_id,
                                  before, rule.rule_id, YaraText(rule.detection_name));
            if (!writer.strings().empty())
                result.text += "    strings:\n";
            for (const std::string &string : writer.strings())
                result.text += "        " + string + "\n";
            result.text += "    condition:\n" + writer.Condition() + "\n}\n";
            result.exported.push_back(place);
        } catch (NotExpressible &refusal) {
            result.omitted.push_back({place, std::move(refusal.reason)});
        }
    }
    return result;
}

} // namespace tavrik::rules
