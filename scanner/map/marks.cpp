#include "scanner/map/marks.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "evaluation/string_search.h"
#include "rules/model.h"
#include "scanner/locator_info.h"
#include "scanner/near_report.h"

namespace tavrik::scanner::map {

namespace {

base::Region PlaceOf(uint64_t offset, const std::optional<payloads::Extent> &extent) {
    return extent ? base::Region{extent->offset, extent->present} : base::Region{offset, 1};
}

void AddStrings(const HeuristicRule &rule, evaluation::Features &features, std::vector<Mark> &marks) {
    for (uint32_t index = 0; index < rule.strings.count; ++index) {
        const StringFeature &string = rule.strings.elements[index];
        const std::optional<uint64_t> place =
            evaluation::FindString(features.bytes(), features.StringRegion(string), string);
        const bool is_wide = (string.param_e & rules::kStringWide) != 0;
        if (place)
            marks.push_back({MarkKind::DetectionString,
                             {*place, uint64_t{string.length} * (is_wide ? 2 : 1)},
                             fmt::format("rule {} \"{}\", string {}", uint32_t{rule.rule_id}, DetectionName(rule),
                                         static_cast<char>('A' + index))});
    }
}

} // namespace

std::vector<Mark> MarksOf(const FileReport &report, const Scanner &scanner, evaluation::Features &features) {
    std::vector<Mark> marks;
    for (const Payload &payload : report.payloads)
        marks.push_back(
            {MarkKind::Payload, PlaceOf(payload.offset, payload.extent),
             fmt::format("{}, {} {}", payload.extent ? payload.extent->description : KindName(payload.kind),
                         payload.entries.size() == 1 ? "entry" : "entries", fmt::join(payload.entries, ", "))});
    for (const NearMiss &miss : report.near.value_or(std::vector<NearMiss>{}))
        marks.push_back({MarkKind::NearMiss, PlaceOf(miss.offset, miss.extent), NearTitle(miss)});
    for (const Detection &detection : report.detections)
        if (marks.size() < kMostMarks)
            AddStrings(*scanner.rules()[detection.place], features, marks);
    marks.resize(std::min(marks.size(), kMostMarks));
    return marks;
}

} // namespace tavrik::scanner::map
