#include "rules/analysis/lints.h"

#include <algorithm>
#include <deque>
#include <numeric>
#include <unordered_map>

#include "rules/analysis/rule_logic.h"

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

class Linter {
public:
    explicit Linter(std::span<const LintedFile> files) : files_(files), findings_(files.size()) {
        for (std::size_t file = 0; file < files.size(); ++file) {
            const text::ParsedFile &parsed = *files[file].parsed;
            for (std::size_t i = 0; i < parsed.set.rules.size(); ++i)
                rules_.push_back({file, &parsed.origins[i], RuleLogic(parsed.set.rules[i])});
        }
    }

    std::vector<std::vector<text::Diagnostic>> Find() {
        for (const LintedRule &rule : rules_) {
            for (const Conflict &conflict : rule.logic.conflicts())
                WarnOf(rule, conflict);
            if (rule.logic.IsAlwaysMet())
                Warn(rule, rule.origin->begin, "W506", Named(rule) + " matches every PE file",
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

    void Warn(const LintedRule &rule, std::size_t offset, const char *code, std::string message, std::string help) {
        std::vector<text::Diagnostic> &found = findings_[rule.file];
        if (found.size() < kMost)
            found.push_back({text::Severity::Warning, code, offset, WordLength(SourceOf(rule).text, offset),
                             std::move(message), std::move(help)});
    }

    void WarnOf(const LintedRule &rule, const Conflict &conflict) {
        const std::size_t offset = OffsetOf(*rule.origin, conflict.at);
        if (conflict.kind == Conflict::Kind::String)
            return Warn(rule, offset, "W505", "no file that the rule matches has room for this string in its window",
                        "the window begins too far behind for the sizes that the rule asks for; change one of them");
        const char *code = conflict.kind == Conflict::Kind::Value ? "W503" : "W504";
        const std::size_t other = conflict.with ? OffsetOf(*rule.origin, *conflict.with) : offset;
        if (other == offset) // of a range that is empty, too
            return Warn(rule, offset, code, "no file meets this condition, so the rule never matches",
                        "there is no such value, or names do not know this operator");
        Warn(rule, offset, code,
             "no file meets both this condition and that at " + PlaceText(rule, other) + ", so the rule never matches",
             "remove one of them; alternatives are written in one row: a == 1 | 2");
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
            Warn(narrow, narrow.origin->begin, "W507", Named(narrow) + " asks for the same as " + Reference(wide),
                 "remove one of them, or ask for something that sets them apart");
        else
            Warn(narrow, narrow.origin->begin, "W508",
                 "every file that " + Named(narrow) + " matches is matched by " + Reference(wide) + " as well",
                 "remove this rule, or narrow the other one");
    }

    static constexpr std::size_t kMost = 100000; // that are kept until they are sorted

    std::span<const LintedFile> files_;
    std::vector<std::vector<text::Diagnostic>> findings_;
    std::deque<LintedRule> rules_; // which do not move
    std::unordered_map<uint64_t, std::vector<std::size_t>> holders_;
    std::vector<std::size_t> all_;
};

} // namespace

std::vector<std::vector<text::Diagnostic>> FindLints(std::span<const LintedFile> files) {
    return Linter(files).Find();
}

} // namespace tavrik::rules::analysis
