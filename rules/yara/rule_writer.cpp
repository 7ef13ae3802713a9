#include "rules/yara/rule_writer.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "rules/numbers.h"

namespace tavrik::rules::yara {

using fmt::format;
namespace field = header_field;

namespace {

constexpr std::string_view kCountText =
    "math.min(math.min(uint16(uint32(0x3C) + 6), 512), (filesize - t) \\ 40)"; // of sections

} // namespace

void RuleWriter::RefuseLists() const {
    const std::pair<bool, const char *> lists[] = {
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
        if (condition.field == field::kBaseOfData)
            magic_ = kMagicPe32;
        else if (condition.field == field::kImageBaseHigh)
            magic_ = kMagicPe32Plus;
    ForRuns(
        rule_.header_conditions, [](const auto &a, const auto &b) { return a.field == b.field; },
        [&](std::size_t first, std::size_t count) {
            const Test test = TestOf(rule_.header_conditions, first, count);
            if (rule_.header_conditions[first].field == field::kMagic &&
                (test.Asks(kMagicPe32) || test.Asks(kMagicPe32Plus)))
                magic_ = test.values[0];
        });
    WriteHeader();
    WriteSections();
    WriteSectionNames();
    WriteTraits();
    WriteImportTable();
    WriteImportNames();
    WriteExportNames();
    WriteResources();
    WriteMeasures();
    WriteStrings();
    FlushGroups();
    if (asks_magic_)
        need_.Add({2, 2, 0});
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
        // A loop costs more than what is in it, so that all that is asked of a place shares one. Measures read more
        // than that and come last of all.
        std::vector<std::pair<Rank, Body>> cheap;
        std::vector<std::pair<Rank, Body>> expensive;
        for (const auto &body : bodies)
            (body.first == kMeasure ? expensive : cheap).push_back(body);
        if (!cheap.empty())
            Add(is_fixed ? kFixedSection : kLoop, true, write(cheap));
        if (!expensive.empty())
            Add(kMeasure, true, write(expensive));
    }
    groups_.clear();
}

std::string RuleWriter::Condition() const {
    std::vector<Item> items = items_;
    const std::string guard = Guard(need_);
    if (!guard.empty())
        items.push_back({kHeader, false, guard});
    // Rich values and directories nest loops of their own, so that they stay outside those of the table.
    std::ranges::stable_sort(items, {}, [](const Item &item) {
        const int part = item.in_table ? 1 : item.rank >= kDirectory ? 2 : 0;
        return std::pair(part, item.rank);
    });
    const auto first = std::ranges::find(items, true, &Item::in_table);
    const auto last = std::find_if(first, items.end(), [](const Item &item) { return !item.in_table; });
    // A condition that fails goes on after each "and" that follows it. In parentheses the long texts are passed at
    // once.
    const auto in_tables =
        std::ranges::find_if(items, [](const Item &item) { return !item.in_table && item.rank >= kDirectory; });
    std::string text = "        pe_file";
    for (auto item = items.begin(); item != items.end(); ++item) {
        if (item == first)
            text += format(" and\n        for any t in (uint32(0x3C) + 24 + uint16(uint32(0x3C) + 20)) : (for any n in "
                           "({}) : (",
                           kCountText);
        text += item == first ? "\n" : item == in_tables ? " and (\n" : " and\n";
        text += std::string(item->in_table ? 12 : 8, ' ') + item->text;
        if (item->in_table && item + 1 == last)
            text += "\n        ))";
    }
    if (in_tables != items.end())
        text += ')';
    return text;
}

} // namespace tavrik::rules::yara
