#include "store/hunt.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "evaluation/evaluator.h"
#include "evaluation/table_conditions.h"
#include "rules/lists.h"
#include "rules/numbers.h"
#include "store/stored_row.h"

namespace tavrik::store {

namespace {

namespace field = rules::header_field;

constexpr auto kEqual = static_cast<uint8_t>(rules::Operator::Equal);

// Header fields whose values hardly repeat between unrelated programs: most segments lack a rule's value.
constexpr uint16_t kSelectiveFields[] = {
    field::kTimeDateStamp, field::kCheckSum,    field::kSizeOfCode,          field::kSizeOfInitializedData,
    field::kSizeOfImage,   field::kFileSize,    field::kAddressOfEntryPoint, field::kResourceTable + 1,
    field::kEntryBytes0,   field::kEntryBytes4,
};

// Ranks of filters, the most selective first.
constexpr uint32_t kSelectiveRank = 0;
constexpr uint32_t kOrdinaryRank = 1;
constexpr uint32_t kZeroRank = 2;  // 0 is common
constexpr uint32_t kRangeRank = 3; // operators other than `==`

uint32_t RankOf(uint16_t column, uint8_t op, uint64_t value) {
    if (op != kEqual)
        return kRangeRank;
    if (value == 0)
        return kZeroRank;
    return std::ranges::find(kSelectiveFields, column) != std::end(kSelectiveFields) ? kSelectiveRank : kOrdinaryRank;
}

template <typename List>
auto ElementsOfList(const List &list) {
    return std::span(list.elements, list.count);
}

// Whether a rule asks for nothing but what a StoredRow answers.
bool IsDecidedByTables(const HeuristicRule &rule) {
    bool is_decided = rule.expression[0] == '\0';
    rules::EachList(
        [&]<rules::Item item>(rules::ListTag<item>, const auto &list) {
            constexpr bool is_table =
                item == rules::Item::Header || item == rules::Item::Sections || item == rules::Item::SectionNames;
            is_decided = is_decided && (is_table || list.count == 0);
        },
        rule);
    return is_decided;
}

} // namespace

Hunt::Hunt(std::span<HeuristicRule *const> rules) : rules_(rules) {
    for (uint32_t position = 0; position < rules.size(); ++position)
        if (evaluation::AsksSomething(*rules[position])) {
            plans_.push_back(PlanOf(position));
            decided_ += plans_.back().is_decided ? 1U : 0U;
        }
}

Hunt::PlannedRule Hunt::PlanOf(uint32_t position) const {
    const HeuristicRule &rule = *rules_[position];
    PlannedRule plan;
    plan.position = position;
    plan.tokens = NeededTokens(rule);
    plan.is_decided = IsDecidedByTables(rule);
    AddHeaderFilters(plan, rule);
    AddSectionFilters(plan, rule);
    std::ranges::stable_sort(plan.filters, {}, &Filter::rank);
    return plan;
}

// Runs of alternatives are cut here as the evaluator cuts them.
void Hunt::AddHeaderFilters(PlannedRule &plan, const HeuristicRule &rule) {
    const auto elements = ElementsOfList(rule.header_conditions);
    for (std::size_t i = 0; i < elements.size();) {
        const HeaderCondition &first = elements[i];
        Filter filter{first.field, first.op, {first.value}, RankOf(first.field, first.op, first.value)};
        for (++i;
             first.op == kEqual && i < elements.size() && elements[i].op == kEqual && elements[i].field == first.field;
             ++i)
            filter.values.push_back(elements[i].value);
        if (first.field < rules::kHeaderFieldCount)
            plan.filters.push_back(std::move(filter));
    }
}

void Hunt::AddSectionFilters(PlannedRule &plan, const HeuristicRule &rule) {
    const auto elements = ElementsOfList(rule.section_conditions);
    for (std::size_t i = 0; i < elements.size();) {
        const SectionCondition &first = elements[i];
        Filter filter{0, first.op, {first.value}, std::max(RankOf(UINT16_MAX, first.op, first.value), kOrdinaryRank)};
        for (++i; first.op == kEqual && i < elements.size() && elements[i].op == kEqual &&
                  elements[i].section == first.section && elements[i].field == first.field;
             ++i)
            filter.values.push_back(elements[i].value);
        if (first.section >= kColumnSections || first.field == 0 || first.field >= kSectionColumns)
            continue;
        filter.column = SectionColumn(first.section, first.field);
        plan.filters.push_back(std::move(filter));
    }
    const auto names = ElementsOfList(rule.section_names);
    for (std::size_t i = 0; i < names.size();) {
        const SectionNameCondition &first = names[i];
        Filter filter{0, first.op, {}, kOrdinaryRank};
        const auto add = [&](const SectionNameCondition &e) {
            uint64_t name = 0;
            std::memcpy(&name, e.name, strnlen(e.name, sizeof(name)));
            filter.values.push_back(name);
        };
        add(first);
        for (++i; first.op == kEqual && i < names.size() && names[i].op == kEqual && names[i].section == first.section;
             ++i)
            add(names[i]);
        if (first.section >= kColumnSections || first.op != kEqual)
            continue;
        filter.column = SectionColumn(first.section, 0);
        plan.filters.push_back(std::move(filter));
    }
}

// Whether a value of the segment meets the filter.
bool Hunt::MayMeet(Segment &segment, const Filter &filter) {
    const std::span<const uint64_t> values = segment.Values(filter.column);
    if (filter.op == kEqual)
        return std::ranges::any_of(filter.values,
                                   [&](uint64_t value) { return std::ranges::binary_search(values, value); });
    return std::ranges::any_of(values, [&](uint64_t value) {
        return evaluation::MeetsNumber(filter.op, static_cast<uint32_t>(value),
                                       static_cast<uint32_t>(filter.values.front()));
    });
}

// The rows that the filter with the most values leaves; without one those that have a token, or all. Ascending.
std::vector<Row> Hunt::Candidates(Segment &segment, const PlannedRule &plan) const {
    const Filter *best = nullptr;
    for (const Filter &filter : plan.filters)
        if (filter.op == kEqual && (best == nullptr || segment.Values(filter.column).size() * best->values.size() >
                                                           segment.Values(best->column).size() * filter.values.size()))
            best = &filter;
    const bool is_selective = best != nullptr && segment.Values(best->column).size() > best->values.size();
    if (is_selective || (best != nullptr && plan.tokens.empty())) {
        std::vector<Row> rows = segment.RowsWith(best->column, best->values.front());
        for (std::size_t i = 1; i < best->values.size(); ++i) {
            std::vector<Row> both;
            std::ranges::set_union(rows, segment.RowsWith(best->column, best->values[i]), std::back_inserter(both));
            rows = std::move(both);
        }
        return rows;
    }
    if (!plan.tokens.empty())
        return segment.RowsThatMayHave(plan.tokens.front());
    std::vector<Row> rows(segment.rows());
    for (std::size_t row = 0; row < rows.size(); ++row)
        rows[row] = static_cast<Row>(row);
    return rows;
}

std::vector<Row> Hunt::RowsThatMeet(Segment &segment, const PlannedRule &plan, const std::vector<bool> &is_gone) const {
    const HeuristicRule &rule = *rules_[plan.position];
    std::vector<Row> rows = Candidates(segment, plan);
    std::erase_if(rows, [&](Row row) {
        if ((row < is_gone.size() && is_gone[row]) || !segment.IsPe(row))
            return true;
        StoredRow file(segment, row);
        return !evaluation::MeetsHeader(ElementsOfList(rule.header_conditions), file) ||
               !evaluation::MeetsSections(ElementsOfList(rule.section_conditions), file) ||
               !evaluation::MeetsSectionNames(ElementsOfList(rule.section_names), file) ||
               !evaluation::HasTraits(rule.attribute_b, file);
    });
    for (const Token token : plan.tokens) {
        if (rows.empty())
            break;
        std::vector<Row> both;
        std::ranges::set_intersection(rows, segment.RowsThatMayHave(token), std::back_inserter(both));
        rows = std::move(both);
    }
    return rows;
}

std::vector<Hit> Hunt::Search(Segment &segment, const std::vector<bool> &is_gone) const {
    std::vector<Hit> hits;
    for (const PlannedRule &plan : plans_) {
        if (!std::ranges::all_of(plan.filters, [&](const Filter &filter) { return MayMeet(segment, filter); }))
            continue;
        for (const Row row : RowsThatMeet(segment, plan, is_gone))
            hits.push_back({row, plan.position, plan.is_decided});
    }
    std::ranges::sort(hits, [](const Hit &left, const Hit &right) {
        return left.row != right.row ? left.row < right.row : left.rule < right.rule;
    });
    return hits;
}

} // namespace tavrik::store
