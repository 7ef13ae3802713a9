#include "draft/drafter.h"

#include <algorithm>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

#include "base/error.h"
#include "base/sha256.h"
#include "base/text.h"
#include "draft/weights.h"
#include "evaluation/evaluator.h"
#include "pe/format.h"
#include "rules/analysis/lints.h"
#include "rules/lists.h"
#include "rules/numbers.h"
#include "rules/record/record_builder.h"
#include "rules/text/parser.h"
#include "rules/text/printer.h"

namespace tavrik::draft {

namespace {

using rules::Item;

constexpr std::size_t kLeastConditions = 4; // fewer would be met by files that no corpus has yet
constexpr std::size_t kMostConditions = 16;
constexpr std::size_t kMostTextsDrafted = 48; // strings that are considered
constexpr int kOfList = 15;                   // that each condition of a list lowers the next one's weight
constexpr uint64_t kWidestRange = 4;          // the largest value over the smallest
constexpr uint32_t kEntropyMargin = 125;      // thousandths of a bit, at both ends

// Those of the rows that all files meet.
std::vector<Row> MetByAll(std::vector<Row> rows, FilePointers files) {
    const rules::record::RecordSet records(rules::RuleSet{rows});
    std::vector<Row> met;
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (std::ranges::all_of(files,
                                [&](const auto &file) { return evaluation::Matches(*records.rules()[i], *file); }))
            met.push_back(std::move(rows[i]));
    return met;
}

// The two conditions of a range.
template <typename Element, typename Set>
void PutRange(std::vector<Element> &list, Set set, uint64_t low, uint64_t high) {
    Element element = list.front();
    list.clear();
    element.op = rules::Operator::AtLeast;
    set(element, low);
    list.push_back(element);
    element.op = rules::Operator::AtMost;
    set(element, high);
    list.push_back(element);
}

// The file's value of what a row asks for, entropies in thousandths.
std::optional<uint32_t> ValueOf(const Row &row, evaluation::Features &file) {
    switch (ItemOf(row)) {
    case Item::Header:
        return file.Header(row.header_conditions.front().field);
    case Item::Sections:
        return file.SectionValue(row.section_conditions.front().section, row.section_conditions.front().field);
    default:
        return file.Entropy(row.measure_conditions.front().region, row.measure_conditions.front().index, 0);
    }
}

// The row with a range that holds the values of all files; nothing when it would say too little.
std::optional<Row> RangeOf(Row row, FilePointers files) {
    uint64_t low = UINT64_MAX;
    uint64_t high = 0;
    for (const auto &file : files) {
        const std::optional<uint32_t> value = ValueOf(row, *file);
        if (!value)
            return std::nullopt;
        low = std::min<uint64_t>(low, *value);
        high = std::max<uint64_t>(high, *value);
    }
    const auto set_value = [](auto &element, uint64_t value) { element.value = static_cast<uint32_t>(value); };
    if (ItemOf(row) == Item::Measures) {
        constexpr uint64_t kMost = 8000;
        const auto set_bits = [](auto &element, uint64_t value) {
            element.bits = rules::MeasureBits(static_cast<double>(value) / 1000);
        };
        PutRange(row.measure_conditions, set_bits, low - std::min<uint64_t>(low, kEntropyMargin),
                 std::min(high + kEntropyMargin, kMost));
        return row;
    }
    if (low == high || low == 0 || high / low >= kWidestRange)
        return std::nullopt;
    if (ItemOf(row) == Item::Header)
        PutRange(row.header_conditions, set_value, low, high);
    else
        PutRange(row.section_conditions, set_value, low, high);
    return row;
}

// What a draft may ask for: exact values that all files have, ranges of others, strings.
std::vector<Row> CandidatesOf(FilePointers files) {
    const std::vector<Row> all = RowsOf(*files.front());
    std::vector<Row> tried;
    std::vector<Row> ranges;
    for (const Row &row : all) {
        const bool is_entropy = ItemOf(row) == Item::Measures && MayBeRange(row);
        if (!is_entropy && !(files.size() == 1 && IsOfOneBuild(row)) && ItemOf(row) != Item::ImportTable)
            tried.push_back(row);
        if (MayBeRange(row))
            if (auto range = RangeOf(row, files))
                ranges.push_back(std::move(*range));
        if (ItemOf(row) == Item::Resources && row.resource_entries.front().crc32 != 0) {
            tried.push_back(row);
            tried.back().resource_entries.front().crc32 = 0;
        }
    }
    std::ranges::move(SharedTexts(files, kMostTextsDrafted), std::back_inserter(tried));
    std::ranges::move(ranges, std::back_inserter(tried));
    return MetByAll(std::move(tried), files);
}

uint32_t TargetOf(evaluation::Features &file) {
    enum : uint32_t { kLibrary = 0, kProgram = 1, kDriver = 2, kManaged = 4 };
    constexpr uint32_t kNative = 1;
    namespace field = rules::header_field;
    if (file.Header(field::kSubsystem) == kNative)
        return kDriver;
    if ((file.Header(field::kCharacteristics).value_or(0) & pe::file_flag::kDll) != 0)
        return kLibrary;
    return file.Header(field::kClrRuntimeHeader).value_or(0) != 0 ? kProgram | kManaged : kProgram;
}

// Chooses rows so that few files of a corpus meet all of them.
class Chooser {
public:
    Chooser(const std::vector<Row> &rows, const CorpusAnswer &corpus)
        : rows_(rows), corpus_(corpus), left_(corpus.files.size(), true), is_out_(rows.size()) {}

    // The rows chosen, in the order in which they were.
    std::vector<std::size_t> Choose() {
        std::vector<std::size_t> chosen;
        while (chosen.size() < kMostConditions) {
            const auto [best, left] = Best();
            const std::size_t before = CountLeft();
            if (best == rows_.size() || (left == before && chosen.size() >= kLeastConditions))
                break;
            chosen.push_back(best);
            Take(best);
        }
        return chosen;
    }

    // Leaves out a row, and begins again.
    void Exclude(std::size_t row) {
        for (const std::size_t taken : taken_)
            is_out_[taken] = false;
        is_out_[row] = true;
        taken_.clear();
        lists_.clear();
        left_.assign(left_.size(), true);
    }

    std::size_t CountLeft() const { return static_cast<std::size_t>(std::ranges::count(left_, true)); }

private:
    // The row that leaves the fewest files, of equals the one that says most; and the number that it leaves.
    std::pair<std::size_t, std::size_t> Best() const {
        std::size_t best = rows_.size();
        std::pair<std::size_t, int> best_rank;
        for (std::size_t i = 0; i < rows_.size(); ++i) {
            if (is_out_[i])
                continue;
            std::size_t left = 0;
            for (std::size_t file = 0; file < left_.size(); ++file)
                left += left_[file] && corpus_.met[i][file] ? 1U : 0U;
            const auto list = lists_.find(ItemOf(rows_[i]));
            const int weight = WeightOf(rows_[i]) - kOfList * (list == lists_.end() ? 0 : list->second);
            const std::pair rank = {left, -weight};
            if (best == rows_.size() || rank < best_rank) {
                best = i;
                best_rank = rank;
            }
        }
        return {best, best_rank.first};
    }

    void Take(std::size_t row) {
        is_out_[row] = true;
        taken_.push_back(row);
        ++lists_[ItemOf(rows_[row])];
        for (std::size_t file = 0; file < left_.size(); ++file)
            left_[file] = left_[file] && corpus_.met[row][file];
    }

    const std::vector<Row> &rows_;
    const CorpusAnswer &corpus_;
    std::vector<bool> left_; // files that meet all rows so far
    std::vector<bool> is_out_;
    std::vector<std::size_t> taken_;
    std::map<Item, int> lists_; // conditions taken of each
};

// A rule with the row that each element comes from.
struct Made {
    rules::Rule rule;
    std::map<std::pair<Item, std::size_t>, std::size_t> rows; // of an element, the first of its rows
};

Made Make(const rules::Rule &head, const std::vector<Row> &rows, const std::vector<std::size_t> &chosen) {
    Made made = {head, {}};
    for (const std::size_t row : chosen) {
        Add(made.rule, rows[row]);
        rules::EachList(
            [&](auto tag, const auto &list) {
                for (std::size_t i = 0; i < list.size(); ++i)
                    made.rows.try_emplace({tag.kItem, i}, row);
            },
            made.rule);
    }
    return made;
}

// A row that `check` warns about in this rule.
std::optional<std::size_t> WarnedRow(const Made &made) {
    const rules::text::Source source = {"draft", rules::text::PrintRule(made.rule)};
    const rules::text::ParsedFile parsed = rules::text::ParseRules(source.text);
    const rules::analysis::LintedFile file = {&source, &parsed};
    const std::vector<std::vector<rules::text::Diagnostic>> lints = rules::analysis::FindLints({&file, 1});
    for (const rules::text::Diagnostic &lint : lints.front())
        for (const auto &[element, row] : made.rows) {
            const auto &offsets = parsed.origins.front().of(element.first).rows;
            if (element.second < offsets.size() && offsets[element.second] == lint.offset)
                return row;
        }
    return std::nullopt;
}

std::string CountText(std::size_t count, bool is_at_most) {
    return (is_at_most && count > 0 ? "at most " : "") + std::to_string(count);
}

// The rule's text, after each row how many files of the corpus meet it and how many it leaves.
std::string TextOf(const Made &made, const CorpusAnswer &corpus, const std::map<std::size_t, std::string> &left_after) {
    std::string text;
    for (const rules::text::PrintedLine &line : rules::text::RuleLines(made.rule)) {
        for (std::size_t level = 0; level < line.indent; ++level)
            text += rules::text::kIndent;
        text += line.text;
        const auto row =
            line.kind == rules::text::LineKind::Row ? made.rows.find({line.item, line.first}) : made.rows.end();
        if (row != made.rows.end() && !corpus.files.empty())
            text += "  // met by " +
                    CountText(static_cast<std::size_t>(std::ranges::count(corpus.met[row->second], true)),
                              corpus.is_at_most[row->second]) +
                    ", leaves " + left_after.at(row->second);
        text += "\n";
    }
    return text;
}

// Whether a file that was not opened before matches. One that cannot be read may.
bool MayMatch(const rules::Rule &rule, const std::filesystem::path &path) {
    try {
        const rules::record::RecordSet records(rules::RuleSet{{rule}});
        base::FileSource source(path);
        evaluation::Features features(source);
        return evaluation::Matches(*records.rules().front(), features) || !source.error().empty();
    } catch (const base::Error &) {
        return true;
    }
}

void RequireMatches(const rules::Rule &rule, FilePointers files) {
    const rules::record::RecordSet records(rules::RuleSet{{rule}});
    for (const auto &file : files)
        if (!evaluation::Matches(*records.rules().front(), *file))
            throw std::logic_error("a draft does not match a file that it was made from");
}

} // namespace

GivenFiles::GivenFiles(const std::vector<std::string> &names) {
    for (const std::string &name : names) {
        const std::filesystem::path path = base::PathOf(name);
        sources_.push_back(std::make_unique<base::FileSource>(path));
        digests_.push_back(base::Sha256Of(*sources_.back()));
        sizes_.push_back(sources_.back()->size());
        features_.push_back(std::make_unique<evaluation::Features>(*sources_.back()));
        if (!sources_.back()->error().empty())
            throw base::Error(path, sources_.back()->error());
        if (!features_.back()->IsPe())
            throw base::Error(path, "is no PE file, and rules are asked of those alone", base::ErrorCode::NotPe);
    }
}

std::vector<Row> SharedRows(const GivenFiles &files, std::size_t most_texts) {
    std::vector<Row> rows = RowsOf(*files.features().front());
    std::ranges::move(SharedTexts(files.features(), most_texts), std::back_inserter(rows));
    return MetByAll(std::move(rows), files.features());
}

rules::Rule RuleOf(const GivenFiles &files, const std::vector<Row> &rows) {
    rules::Rule rule;
    rule.rule_id = 1;
    rule.attribute_a = TargetOf(*files.features().front());
    for (const Row &row : rows)
        Add(rule, row);
    return rule;
}

Draft MakeDraft(const GivenFiles &files, const DraftSettings &settings) {
    const std::vector<Row> rows = CandidatesOf(files.features());
    Draft draft;
    draft.corpus = AskCorpus(settings.corpus, rows, files.digests(), files.sizes());
    if (settings.ask_more)
        settings.ask_more(rows, draft.corpus);
    rules::Rule head = RuleOf(files, {});
    head.rule_id = settings.rule_id;
    head.detection_name = settings.name;
    for (const std::string &digest : files.digests())
        head.metadata.push_back({rules::MetadataKey::Sample, digest});

    Chooser chooser(rows, draft.corpus);
    std::vector<std::size_t> chosen = chooser.Choose();
    Made made = Make(head, rows, chosen);
    // What adds nothing to the others is left out, and another row may take its place.
    for (std::size_t round = 0; round < rows.size(); ++round) {
        const std::optional<std::size_t> warned = WarnedRow(made);
        if (!warned)
            break;
        chooser.Exclude(*warned);
        chosen = chooser.Choose();
        made = Make(head, rows, chosen);
    }
    RequireMatches(made.rule, files.features());

    std::map<std::size_t, std::string> left_after;
    std::vector<bool> left(draft.corpus.files.size(), true);
    bool is_at_most = false;
    for (const std::size_t row : chosen) {
        for (std::size_t file = 0; file < left.size(); ++file)
            left[file] = left[file] && draft.corpus.met[row][file];
        is_at_most = is_at_most || draft.corpus.is_at_most[row];
        left_after[row] = CountText(static_cast<std::size_t>(std::ranges::count(left, true)), is_at_most);
    }
    for (std::size_t file = 0; file < left.size(); ++file)
        if (left[file] && (!is_at_most || MayMatch(made.rule, draft.corpus.files[file])))
            draft.hits.push_back(file);
    draft.text = TextOf(made, draft.corpus, left_after);
    return draft;
}

} // namespace tavrik::draft
