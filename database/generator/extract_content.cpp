// Strings and measures: conditions on the contents.
#include <algorithm>
#include <set>
#include <stdexcept>

#include "base/crc32.h"
#include "database/generator/extract.h"

namespace tavrik::generator {
namespace {

using rules::Measure;
using rules::MeasureCondition;
using rules::Operator;
using rules::StringFeature;
using rules::StringKind;

// ---- Strings -------------------------------------------------------------------------------------------------------

constexpr uint32_t kBlock = 0x100; // windows are cut in these
constexpr uint32_t kLastStringSection = 20;

class Strings {
public:
    Strings(const Source &source, rules::Rule &rule)
        : source_(source), facts_(source.facts), random_(source.random), list_(rule.strings) {}

    void Extract() {
        bool number_resource = source_.plan.number_resource;
        uint32_t tails = source_.plan.section_tails;
        bool far = source_.plan.far_string;
        for (const uint8_t kind : source_.plan.string_kinds) {
            StringFeature string;
            string.kind = kind;
            switch (static_cast<StringKind>(rules::ForwardKind(kind))) {
            case StringKind::IndexedSection:
                string.index = static_cast<uint8_t>(ChooseSection(kLastStringSection, false));
                break;
            case StringKind::NamedSection:
                string.section_name = facts_.SectionName(ChooseSection(UINT32_MAX, true));
                if (tails > 0 && string.section_name.size() < rules::kMaxSectionName && !rules::FromEnd(kind)) {
                    string.section_tail.assign(1, '\x01');
                    --tails;
                }
                break;
            case StringKind::ResourceData:
                if (number_resource && !rules::FromEnd(kind)) {
                    string.index = 1;
                    number_resource = false;
                }
                break;
            default:
                break;
            }
            const bool is_far = far && kind == static_cast<uint8_t>(StringKind::IndexedSection);
            if (is_far)
                AddFar(string);
            else
                Add(string);
            far = far && !is_far;
        }
    }

private:
    // A section that holds something to pick from; with a name that strings can carry, if asked for.
    uint32_t ChooseSection(uint32_t last, bool named) {
        constexpr std::size_t kShortestName = 4;
        std::vector<uint32_t> sections;
        std::set<std::string> names;
        for (uint32_t i = 0; i < facts_.Sections().size() && i <= last; ++i) {
            const std::string name = facts_.SectionName(i);
            const bool first = names.insert(name).second;
            if (named && (!first || name.size() < kShortestName))
                continue;
            const std::size_t weight = MarksIn(facts_.RawData(i)).size();
            sections.insert(sections.end(), std::min<std::size_t>(weight, 8), i);
        }
        if (source_.plan.many_sections) { // each of them as often
            std::ranges::sort(sections);
            sections.erase(std::unique(sections.begin(), sections.end()), sections.end());
        }
        if (sections.empty())
            FailShort(source_.plan, "sections with strings");
        return random_.Pick(sections);
    }

    static uint32_t SpanOf(const Mark &mark) { return mark.is_wide ? 2 * mark.length : mark.length; }

    std::vector<Mark> MarksIn(Stretch region) const {
        std::vector<Mark> marks;
        for (const Mark &mark : source_.specimen.marks)
            if (mark.offset >= region.offset && mark.offset + SpanOf(mark) <= region.offset + region.size &&
                !used_.contains(mark.offset))
                marks.push_back(mark);
        return marks;
    }

    void Add(StringFeature &string) {
        constexpr uint32_t kEntryPercent = 55; // of the strings in the entry code begin right there
        constexpr uint32_t kFirstByteOf = 60;  // and one of so many is the first byte alone
        const Stretch region = facts_.StringRegion(string.kind, string.index, string.section_name);
        if (region.size == 0)
            FailShort(source_.plan, "regions of strings");
        std::vector<Mark> marks = MarksIn(region);
        const bool from_entry = string.kind == static_cast<uint8_t>(StringKind::EntryCode);
        if (from_entry && !used_.contains(region.offset) && random_.Chance(kEntryPercent)) {
            const auto at_entry = std::ranges::find(marks, region.offset, &Mark::offset);
            Mark mark = at_entry != marks.end() ? *at_entry : Snippet(region, region.offset);
            if (random_.Below(kFirstByteOf) == 0)
                mark = {.offset = region.offset, .length = 1};
            Fill(string, mark, region);
            string.window_length = 1;
            return Finish(string);
        }
        const Mark mark = marks.empty() ? Snippet(region) : random_.Pick(marks);
        Fill(string, mark, region);
        const uint32_t position = rules::FromEnd(string.kind)
                                      ? region.offset + region.size - (mark.offset + SpanOf(mark))
                                      : mark.offset - region.offset;
        ChooseWindow(string, position);
        Finish(string);
    }

    void AddFar(StringFeature &string) {
        for (uint32_t i = 0; i < facts_.Sections().size(); ++i) {
            const Stretch region = facts_.RawData(i);
            const std::vector<Mark> marks = MarksIn(region);
            const auto far = std::ranges::find(marks, region.offset + kFarPosition, &Mark::offset);
            if (far == marks.end())
                continue;
            string.index = static_cast<uint8_t>(i);
            string.window_start = kFarPosition;
            string.window_length = 1;
            Fill(string, *far, region);
            return Finish(string);
        }
        FailShort(source_.plan, "far strings");
    }

    // Bytes that differ among themselves, from somewhere in a region without marks or from `at`.
    Mark Snippet(Stretch region, uint32_t at = 0) {
        constexpr int kTries = 64;
        constexpr uint32_t kShortest = 8;
        constexpr uint32_t kLongest = 20;
        Mark best;
        std::size_t best_kinds = 0;
        for (int i = 0; i < kTries; ++i) {
            const uint32_t length = std::min(region.size, random_.Between(kShortest, kLongest));
            const uint32_t offset = at != 0 ? at : region.offset + random_.Below(region.size - length + 1);
            if (offset + length > region.offset + region.size || used_.contains(offset))
                continue;
            const auto bytes = facts_.Bytes({offset, length});
            const std::size_t kinds = std::set<uint8_t>(bytes.begin(), bytes.end()).size();
            if (kinds > best_kinds) {
                best = {.offset = offset, .length = length};
                best_kinds = kinds;
            }
        }
        if (best_kinds == 0)
            FailShort(source_.plan, "bytes for strings");
        return best;
    }

    void Fill(StringFeature &string, const Mark &mark, Stretch region) {
        constexpr uint32_t kNoCasePercent = 30;
        if (mark.offset < region.offset || mark.offset + SpanOf(mark) > region.offset + region.size)
            throw std::logic_error("a string lies outside its region");
        const auto bytes = facts_.Bytes({mark.offset, SpanOf(mark)});
        for (uint32_t i = 0; i < mark.length; ++i) {
            const uint8_t byte = bytes[mark.is_wide ? 2 * i : i];
            string.bytes += mark.mask[i] ? '\0' : static_cast<char>(byte);
        }
        string.mask = mark.mask;
        if (mark.is_wide)
            string.options |= rules::kStringWide;
        if (mark.is_text && random_.Chance(kNoCasePercent))
            string.options |= rules::kStringNoCase;
        used_.insert(mark.offset);
    }

    void ChooseWindow(StringFeature &string, uint32_t position) {
        constexpr uint16_t kDrifts[] = {0x100, 0x100, 0x200, 0x400, 0x800, 0x1000};
        constexpr uint16_t kSmallDrifts[] = {8, 16, 64};
        const uint32_t form = random_.Below(100U);
        if (form < 45 || position >= kFarPosition - kBlock)
            return;
        const auto block = static_cast<uint16_t>(position / kBlock * kBlock);
        string.window_start = block;
        if (form < 52) // open at its end
            return;
        string.window_length = static_cast<uint16_t>(kBlock * random_.Between(1, 4));
        if (form < 74)
            return;
        string.drift = random_.Pick(kDrifts);
        if (form < 92)
            return;
        string.window_start = static_cast<uint16_t>(position);
        string.window_length = 1;
        string.drift = form < 97 ? uint16_t{0} : random_.Pick(kSmallDrifts);
    }

    void Finish(StringFeature &string) {
        string.anchor = rules::DefaultAnchor(string);
        list_.push_back(std::move(string));
    }

    const Source &source_;
    const ImageFacts &facts_;
    Random &random_;
    std::vector<StringFeature> &list_;
    std::set<uint32_t> used_; // file offsets of the strings chosen so far
};

// ---- Measures ------------------------------------------------------------------------------------------------------

constexpr uint32_t kLengths[] = {0, 0, 0, 0x40, 0x100, 0x200, 0x400, 0x1000};

class Measures {
public:
    Measures(const Source &source, rules::Rule &rule)
        : source_(source), facts_(source.facts), random_(source.random), list_(rule.measure_conditions) {}

    void Extract() {
        const auto &regions = source_.plan.measure_regions;
        for (std::size_t i = 0; i < regions.size();) {
            const auto same = static_cast<uint32_t>(std::count(regions.begin(), regions.end(), regions[i]));
            AddOf(regions[i], same);
            i += same;
        }
        std::ranges::stable_sort(list_, [](const MeasureCondition &a, const MeasureCondition &b) {
            return a.region != b.region ? a.region < b.region : a.index < b.index;
        });
    }

private:
    void AddOf(uint8_t region, uint32_t left) {
        constexpr int kTries = 400;
        for (int i = 0; left > 0; ++i) {
            if (i == kTries)
                FailShort(source_.plan, "measures");
            MeasureCondition condition;
            condition.region = region;
            condition.length = random_.Pick(kLengths);
            if (region == static_cast<uint8_t>(rules::MeasureRegion::IndexedSection))
                condition.index = static_cast<uint8_t>(random_.Below(facts_.Sections().size()));
            // The first of a rule's measures is a checksum: it knows its own file.
            condition.measure = list_.empty() || random_.Chance(45) ? Measure::Crc32 : Measure::Entropy;
            left -= Add(condition, left);
        }
    }

    // Appends one condition, or two that bound an entropy; returns their number, 0 when this measure is of no use.
    uint32_t Add(MeasureCondition condition, uint32_t room) {
        constexpr uint32_t kLeastBytes = 16;
        constexpr uint32_t kHighEntropy = 6900; // thousandths; packed data
        constexpr uint32_t kStep = 125;
        constexpr uint32_t kGreatest = 7990;
        const Stretch region = facts_.MeasureRegion(condition.region, condition.index);
        if (region.size < std::max(condition.length, kLeastBytes))
            return 0;
        const auto bytes = facts_.Bytes({region.offset, condition.length != 0 ? condition.length : region.size});
        const auto is_same = [&](const MeasureCondition &other) {
            return other.region == condition.region && other.index == condition.index &&
                   other.length == condition.length && other.measure == condition.measure;
        };
        if (std::ranges::any_of(list_, is_same))
            return 0;
        if (condition.measure == Measure::Crc32) {
            condition.bits = base::Crc32(bytes);
            list_.push_back(condition);
            return 1;
        }
        const uint32_t entropy = EntropyInThousandths(bytes);
        const uint32_t low = entropy / kStep * kStep;
        if (entropy > kHighEntropy && random_.Chance(60)) {
            condition.op = Operator::Greater;
            condition.bits = rules::MeasureBits((low - kStep) / 1000.0);
            list_.push_back(condition);
            return 1;
        }
        if (room < 2 || low < 2 * kStep || entropy >= kGreatest)
            return 0;
        condition.op = Operator::AtLeast;
        condition.bits = rules::MeasureBits((low - kStep) / 1000.0);
        list_.push_back(condition);
        condition.op = Operator::AtMost;
        condition.bits = rules::MeasureBits(std::min(low + kStep * random_.Between(2, 4), kGreatest) / 1000.0);
        list_.push_back(condition);
        return 2;
    }

    const Source &source_;
    const ImageFacts &facts_;
    Random &random_;
    std::vector<MeasureCondition> &list_;
};

} // namespace

void ExtractStrings(const Source &source, rules::Rule &rule) {
    Strings(source, rule).Extract();
}

void ExtractMeasures(const Source &source, rules::Rule &rule) {
    Measures(source, rule).Extract();
}

} // namespace tavrik::generator
