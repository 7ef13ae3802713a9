#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "rules/expression.h"
#include "rules/numbers.h"
#include "rules/regions.h"
#include "rules/yara/rule_writer.h"
#include "rules/yara/strings.h"

namespace tavrik::rules::yara {

using fmt::format;
namespace field = header_field;

namespace {

// Where a region of strings or measures is; kNowhere for those at known offsets, whose span PlainSpan() gives.
Place RegionPlace(CodedRegion region, uint16_t index, std::string_view section_name) {
    switch (region.kind) {
    case RegionKind::RoleSection:
        return {Place::kRole, static_cast<uint16_t>(region.role), ""};
    case RegionKind::NamedSection:
        return {Place::kNamed, 0, std::string(section_name)};
    case RegionKind::IndexedSection:
        return {Place::kFixed, index, ""};
    case RegionKind::EntryCode:
        return {Place::kEntryCode, 0, ""};
    case RegionKind::Overlay:
        return {Place::kOverlay, 0, ""};
    case RegionKind::ResourceData:
        Refuse("data of resources: the pe module walks the tree otherwise");
    case RegionKind::VisualBasic:
        Refuse("values of Visual Basic structures");
    default:
        return {};
    }
}

// The span of a region whose offsets are constants or header fields.
Span PlainSpan(RegionKind region, const std::function<std::string()> &headers_size) {
    switch (region) {
    case RegionKind::File:
        return {"0", "filesize", "filesize"};
    case RegionKind::Headers:
        return SpanOf("0", headers_size());
    case RegionKind::DosStub:
        return {"0x40", "uint32(0x3C)", "uint32(0x3C)"};
    default:
        Refuse("not a valid region");
    }
}

// That a string is present in a span, as its window asks.
std::string Window(char letter, const StringFeature &string, const Span &span) {
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

// An entropy compared with a number of thousandths of a bit, at the bounds between which it is rounded to it.
std::string EntropyTest(std::string_view value, Operator op, uint32_t thousandths) {
    const double low = (thousandths - 0.5) / 1000;
    const double high = (thousandths + 0.5) / 1000;
    switch (op) {
    case Operator::Equal:
        return format("({0} >= {1:.4f} and {0} < {2:.4f})", value, low, high);
    case Operator::NotEqual:
        return format("({0} < {1:.4f} or {0} >= {2:.4f})", value, low, high);
    case Operator::Less:
        return format("{} < {:.4f}", value, low);
    case Operator::Greater:
        return format("{} >= {:.4f}", value, high);
    case Operator::AtMost:
        return format("{} < {:.4f}", value, high);
    case Operator::AtLeast:
        return format("{} >= {:.4f}", value, low);
    default:
        Refuse("an operator that is never met");
    }
}

} // namespace

// That a string is present. A required one may share its place with other conditions; then nothing is returned.
std::string RuleWriter::Present(std::size_t index, bool is_required) {
    if (index >= rule_.strings.size())
        Refuse("a letter without a string");
    const StringFeature &string = rule_.strings[index];
    const auto letter = static_cast<char>('a' + index);
    const CodedRegion region = RegionOfString(string.kind);
    const Place place = RegionPlace(region, string.index, string.section_name);
    Need need;
    const Body body = [=](const Scene &scene) { return Window(letter, string, scene.span); };
    if (place.kind == Place::kNowhere) {
        const Span span = PlainSpan(region.kind, [&] {
            need.Add(NeedOf(field::kSizeOfHeaders));
            return Value(field::kSizeOfHeaders);
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

void RuleWriter::WriteMeasures() {
    ForRuns(
        rule_.measure_conditions,
        [](const auto &a, const auto &b) {
            return a.region == b.region && a.index == b.index && a.measure == b.measure && a.length == b.length;
        },
        [&](std::size_t first, std::size_t count) {
            const MeasureCondition &condition = rule_.measure_conditions[first];
            const CodedRegion region = RegionOfMeasure(condition.region);
            if (region.kind == RegionKind::None)
                Refuse("not a valid region");
            if (condition.measure != Measure::Entropy && condition.measure != Measure::Crc32)
                Refuse("not a valid measure");
            const Body body = [=, this](const Scene &scene) {
                const Span &span = scene.span;
                const bool is_whole = condition.length == 0;
                const std::string there = is_whole
                                              ? format("{} < {}", span.begin, span.cut_end)
                                              : format("{} + {} <= {}", span.begin, condition.length, span.cut_end);
                const std::string length = !is_whole           ? std::to_string(condition.length)
                                           : span.begin == "0" ? span.cut_end
                                                               : format("{} - ({})", span.cut_end, span.begin);
                const bool is_entropy = condition.measure == Measure::Entropy;
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
            const Place place = RegionPlace(region, condition.index, "");
            if (place.kind != Place::kNowhere)
                return AddAt(place, kMeasure, body);
            const Span span = PlainSpan(region.kind, [&] { return Required(field::kSizeOfHeaders); });
            Add(kMeasure, false, body({span, "", ""}));
        });
}

} // namespace tavrik::rules::yara
