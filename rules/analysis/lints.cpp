#include "rules/analysis/lints.h"

#include <algorithm>
#include <deque>
#include <numeric>
#include <optional>
#include <unordered_map>
#include <utility>

#include "rules/analysis/row_lints.h"
#include "rules/analysis/rule_logic.h"
#include "rules/text/lexer.h"

namespace tavrik::rules::analysis {

namespace {

struct LintedRule {
    std::size_t file;
    const text::RuleOrigin *origin;
    RuleLogic logic;
};

std::size_t OffsetOf(const text::RuleOrigin &origin, ElementOf at) {
    const text::ItemOrigin &item = origin.of(at.item);
    return at.element < item.rows.size() ? item.rows[at.element] : item.begin;
}

// The first word of a row.
std::size_t WordLength(std::string_view text, std::size_t offset) {
    const std::size_t end = text.find_first_of(" \t\r\n", offset);
    return (end == std::string_view::npos ? text.size() : end) - offset;
}

// The bounds, as written, of the range in the row at `offset`; nothing when the row has none. Only for rows of which no
// file meets the range, whose first bound is then above the second.
std::optional<std::pair<std::string, std::string>> ReversedRange(std::string_view text, std::size_t offset) {
    std::vector<text::Diagnostic> ignored;
    text::Lexer lexer(text.substr(offset), ignored);
    text::Token token = lexer.Next();
    const auto is_in = [](const text::Token &each) {
        return each.kind == text::TokenKind::Identifier && each.text == "in";
    };
    while (token.kind != text::TokenKind::End && !is_in(token)) {
        token = lexer.Next();
        if (token.first_on_line)
            return std::nullopt;
    }
    const std::string first(lexer.Next().text);
    if (lexer.Next().text != "..")
        return std::nullopt;
    return std::pair(first, std::string(lexer.Next().text));
}

class Linter {
public:
    explicit Linter(std::span<const LintedFile> files) : files_(files), findings_(files.size()) {
        for (std::size_t file = 0; file < files.size(); ++file) {
            const text::ParsedFile &parsed = *files[file].parsed;
            for (std::size_t i = 0; i < parsed.set.rules.size(); ++i)
                rules_.push_back({file, &parsed.origins[i], RuleLogic(parsed.set.rules[i])});
        }
    }

    std::vector<std::vector<text::Diagnostic>> Find(std::span<const uint32_t> shared_ids) {
        FindRepeatedIds(shared_ids);
        for (const LintedRule &rule : rules_) {
            for (const RowLint &lint : FindRowLints(rule.logic.rule()))
                Warn(rule, lint.at ? OffsetOf(*rule.origin, *lint.at) : rule.origin->begin, lint.code, lint.message,
                     lint.help);
            for (const Conflict &conflict : rule.logic.conflicts())
                WarnOf(rule, conflict);
            if (rule.logic.IsAlwaysMet())
                Warn(rule, rule.origin->begin, text::Code::W506, Named(rule) + " matches every PE file",
                     "ask for something that only its family has");
        }
        IndexMarks();
        FindImplied();
        for (std::vector<text::Diagnostic> &found : findings_) {
            std::ranges::stable_sort(found, {}, &text::Diagnostic::offset);
            found.resize(std::min(found.size(), text::kMaxErrors));
        }
        return std::move(findings_);
    }

private:
    static std::string Named(const LintedRule &rule) {
        return "rule " + std::to_string(rule.logic.rule().rule_id) + " \"" + rule.logic.rule().detection_name + "\"";
    }

    const text::Source &SourceOf(const LintedRule &rule) const { return *files_[rule.file].source; }

    std::string PlaceText(const LintedRule &rule, std::size_t offset) const {
        const text::Place place = text::PlaceOf(SourceOf(rule).text, offset);
        return std::to_string(place.line) + ":" + std::to_string(place.column);
    }

    // A rule with its file and place.
    std::string Reference(const LintedRule &rule) const {
        return Named(rule) + " (" + SourceOf(rule).name + ":" + PlaceText(rule, rule.origin->begin) + ")";
    }

    void Warn(const LintedRule &rule, std::size_t offset, text::Code code, std::string message, std::string help) {
        std::vector<text::Diagnostic> &found = findings_[rule.file];
        if (found.size() < kMost)
            found.push_back({text::Severity::Warning, code, offset, WordLength(SourceOf(rule).text, offset),
                             std::move(message), std::move(help)});
    }

    void WarnOf(const LintedRule &rule, const Conflict &conflict) {
        const std::size_t offset = OffsetOf(*rule.origin, conflict.at);
        if (conflict.kind == Conflict::Kind::String)
            return Warn(rule, offset, text::Code::W505,
                        "no file that the rule matches has room for this string in its window",
                        "its region is too small, or not there, with the sizes and numbers that the rule asks for");
        if (conflict.kind == Conflict::Kind::Redundant)
            return Warn(rule, offset, text::Code::W511,
                        "this condition adds nothing to the one at " +
                            PlaceText(rule, OffsetOf(*rule.origin, conflict.with.value_or(conflict.at))),
                        "every file that meets the others on this value meets it; remove it");
        text::Code code = conflict.kind == Conflict::Kind::Value ? text::Code::W503 : text::Code::W504;
        const std::size_t other = conflict.with ? OffsetOf(*rule.origin, *conflict.with) : offset;
        if (const auto range = ReversedRange(SourceOf(rule).text, offset); range && other == offset)
            return Warn(rule, offset, code, range->first + " is above " + range->second + ", so the rule never matches",
                        "swap the bounds: in " + range->second + ".." + range->first);
        if (other == offset)
            return Warn(rule, offset, code, "no file meets this condition, so the rule never matches",
                        "there is no such value, or the operator does not apply to names");
        Warn(rule, offset, code,
             "no file meets both this condition and that at " + PlaceText(rule, other) + ", so the rule never matches",
             "remove one of them; alternatives are written in one row: a == 1 | 2");
    }

    // An id that several rules have; a shared id may be that of two.
    void FindRepeatedIds(std::span<const uint32_t> shared_ids) {
        std::unordered_map<uint32_t, std::vector<const LintedRule *>> rules_of;
        for (const LintedRule &rule : rules_) {
            std::vector<const LintedRule *> &same = rules_of[rule.logic.rule().rule_id];
            same.push_back(&rule);
            const bool is_shared = std::ranges::find(shared_ids, rule.logic.rule().rule_id) != shared_ids.end();
            // The records of one rule with either share its id.
            const bool is_same_rule =
                same.front()->file == rule.file && same.front()->origin->begin == rule.origin->begin;
            if (same.size() > (is_shared ? 2U : 1U) && !is_same_rule)
                Warn(rule, rule.origin->begin, text::Code::W509,
                     Named(rule) + " has the id of " + Reference(*same.front()),
                     "give it an id that no other rule has");
        }
    }

    void IndexMarks() {
        for (std::size_t i = 0; i < rules_.size(); ++i)
            if (!rules_[i].logic.IsNeverMet())
                for (const uint64_t mark : rules_[i].logic.marks())
                    holders_[mark].push_back(i);
    }

    // The rules that have the rarest of the marks that a rule needs.
    const std::vector<std::size_t> &Candidates(const RuleLogic &logic) {
        const std::vector<std::size_t> *fewest = nullptr;
        for (const uint64_t mark : logic.needed_marks()) {
            const std::vector<std::size_t> &holders = holders_[mark];
            if (fewest == nullptr || holders.size() < fewest->size())
                fewest = &holders;
        }
        if (fewest != nullptr)
            return *fewest;
        if (all_.empty()) {
            all_.resize(rules_.size());
            std::iota(all_.begin(), all_.end(), std::size_t{0});
        }
        return all_;
    }

    void FindImplied() {
        std::vector<bool> is_reported(rules_.size());
        for (std::size_t wide = 0; wide < rules_.size(); ++wide) {
            const RuleLogic &logic = rules_[wide].logic;
            if (logic.IsNeverMet() || logic.IsAlwaysMet())
                continue;
            for (const std::size_t narrow : Candidates(logic)) {
                const RuleLogic &other = rules_[narrow].logic;
                if (narrow == wide || is_reported[narrow] || other.IsNeverMet() || other.IsAlwaysMet() ||
                    !std::ranges::includes(other.marks(), logic.needed_marks()) || !other.Implies(logic))
                    continue;
                const bool are_equal = logic.Implies(other);
                if (are_equal && narrow < wide)
                    continue; // the later of two equal rules is reported
                is_reported[narrow] = true;
                WarnOfImplied(rules_[narrow], rules_[wide], are_equal);
            }
        }
    }

    void WarnOfImplied(const LintedRule &narrow, const LintedRule &wide, bool are_equal) {
        if (are_equal)
            Warn(narrow, narrow.origin->begin, text::Code::W507,
                 Named(narrow) + " asks for the same as " + Reference(wide),
                 "remove one of them, or ask for something that distinguishes them");
        else
            Warn(narrow, narrow.origin->begin, text::Code::W508,
                 "every file that " + Named(narrow) + " matches is matched by " + Reference(wide) + " as well",
                 "remove this rule, or narrow the other one");
    }

    static constexpr std::size_t kMost = 100000; // findings in a file, before they are sorted and cut

    std::span<const LintedFile> files_;
    std::vector<std::vector<text::Diagnostic>> findings_;
    std::deque<LintedRule> rules_; // elements do not move
    std::unordered_map<uint64_t, std::vector<std::size_t>> holders_;
    std::vector<std::size_t> all_;
};

} // namespace

std::vector<std::vector<text::Diagnostic>> FindLints(std::span<const LintedFile> files,
                                                     std::span<const uint32_t> shared_ids) {
    return Linter(files).Find(shared_ids);
}

} // namespace tavrik::rules::analysis
