#include <algorithm>
#include <map>
#include <memory>
#include <optional>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "base/console.h"
#include "base/ordered_pool.h"
#include "base/system.h"
#include "base/text.h"
#include "evaluation/evaluator.h"
#include "store/hunt.h"
#include "store/store.h"
#include "tools/tavrik-corpus/commands.h"
#include "tools/tavrik-corpus/hunt_rules.h"

namespace tavrik::corpus_tool {

namespace {

struct HuntCounts {
    uint64_t files = 0; // in the store
    uint64_t matched = 0;
    uint64_t undecided = 0; // files that a rule's stored features do not decide
    uint64_t opened = 0;
    uint64_t errors = 0;
};

// The answers of one segment.
struct HuntResult {
    std::string lines;
    std::string errors;
    HuntCounts counts;
    std::map<uint32_t, uint64_t> matched; // by the rule's position: files
    std::map<uint32_t, uint64_t> undecided;
};

// What is known of one file: the rules that match it, and with no_open those that must look.
struct FileAnswer {
    std::string path;
    std::vector<uint32_t> matches;
    std::vector<uint32_t> undecided;
    std::string error;
    bool is_opened = false;
};

class HuntRun {
public:
    HuntRun(const HuntOptions &options, std::span<HeuristicRule *const> rules)
        : options_(options), rules_(rules), hunt_(rules), main_(options.store, store::Store::Access::Read),
          stores_(options.threads) {}

    int Run() {
        base::OrderedPool<store::SegmentEntry, HuntResult> pool(
            options_.threads, [this](store::SegmentEntry &entry, unsigned thread) { return Work(entry, thread); },
            [this](HuntResult &result) { Deliver(result); });
        for (store::SegmentEntry &entry : main_.Segments())
            pool.Submit(std::move(entry));
        pool.Finish();
        if (options_.summary)
            PrintSummary();
        if (!options_.json)
            PrintTotals();
        return counts_.errors > 0 ? kFailed : counts_.matched > 0 ? kFound : kFine;
    }

private:
    HuntResult Work(const store::SegmentEntry &entry, unsigned thread) {
        std::unique_ptr<store::Store> &store = stores_[thread];
        if (!store)
            store = std::make_unique<store::Store>(options_.store, store::Store::Access::Read);
        const std::unique_ptr<store::Segment> segment = store->Open(entry);
        const std::vector<store::Hit> hits = hunt_.Search(*segment, entry.is_gone);
        HuntResult result;
        result.counts.files = entry.live();
        for (std::size_t first = 0; first < hits.size();) {
            const std::size_t end = static_cast<std::size_t>(
                std::find_if(hits.begin() + static_cast<std::ptrdiff_t>(first), hits.end(),
                             [&](const store::Hit &hit) { return hit.row != hits[first].row; }) -
                hits.begin());
            Report(AnswerFor(*segment, std::span(hits).subspan(first, end - first)), result);
            first = end;
        }
        return result;
    }

    // All hits are of one file.
    FileAnswer AnswerFor(store::Segment &segment, std::span<const store::Hit> hits) const {
        FileAnswer answer;
        answer.path = segment.Paths()[hits[0].row];
        for (const store::Hit &hit : hits)
            (hit.is_match ? answer.matches : answer.undecided).push_back(hit.rule);
        if (answer.undecided.empty() || options_.no_open)
            return answer;
        try {
            const std::filesystem::path path = base::PathOf(answer.path);
            if (store::StampOf(path) != segment.StampOf(hits[0].row))
                throw base::Error("has changed since it was added to the store; add it again");
            base::FileSource source(path);
            evaluation::Features features(source);
            answer.is_opened = true;
            for (const uint32_t rule : answer.undecided)
                if (evaluation::Matches(*rules_[rule], features))
                    answer.matches.push_back(rule);
            if (!source.error().empty())
                throw base::Error(source.error());
            std::ranges::sort(answer.matches);
        } catch (const base::Error &error) {
            answer.error = error.reason();
        }
        return answer;
    }

    void Report(const FileAnswer &answer, HuntResult &result) const {
        result.counts.undecided += answer.undecided.empty() ? 0U : 1U;
        result.counts.opened += answer.is_opened ? 1U : 0U;
        result.counts.matched += answer.matches.empty() ? 0U : 1U;
        for (const uint32_t rule : answer.matches)
            ++result.matched[rule];
        if (options_.no_open)
            for (const uint32_t rule : answer.undecided)
                ++result.undecided[rule];
        if (!answer.error.empty()) {
            ++result.counts.errors;
            result.errors +=
                fmt::format("tavrik-corpus: {}: {}\n", base::Printable(answer.path), base::Printable(answer.error));
        }
        if (options_.summary)
            return;
        if (options_.json)
            AddJson(answer, result.lines);
        else
            AddText(answer, result.lines);
    }

    void AddText(const FileAnswer &answer, std::string &lines) const {
        for (const uint32_t rule : answer.matches)
            lines += fmt::format("{}: {}\n", base::Printable(answer.path), Named(rule));
        if (options_.no_open)
            for (const uint32_t rule : answer.undecided)
                lines += fmt::format("{}: must look: {}\n", base::Printable(answer.path), Named(rule));
    }

    void AddJson(const FileAnswer &answer, std::string &lines) const {
        nlohmann::ordered_json line = {{"file", answer.path}, {"opened", answer.is_opened}};
        const auto list = [this](const std::vector<uint32_t> &rules) {
            nlohmann::ordered_json array = nlohmann::ordered_json::array();
            for (const uint32_t rule : rules)
                array.push_back({{"rule", uint32_t{rules_[rule]->rule_id}}, {"name", rules_[rule]->detection_name}});
            return array;
        };
        line["matches"] = list(answer.matches);
        if (options_.no_open)
            line["must_look"] = list(answer.undecided);
        if (!answer.error.empty())
            line["error"] = answer.error;
        if (!answer.matches.empty() || !answer.error.empty() || options_.no_open)
            lines += line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    }

    std::string Named(uint32_t rule) const {
        return fmt::format("rule {} \"{}\"", uint32_t{rules_[rule]->rule_id},
                           base::Printable(rules_[rule]->detection_name));
    }

    void Deliver(const HuntResult &result) {
        counts_.files += result.counts.files;
        counts_.matched += result.counts.matched;
        counts_.undecided += result.counts.undecided;
        counts_.opened += result.counts.opened;
        counts_.errors += result.counts.errors;
        for (const auto &[rule, count] : result.matched)
            matched_[rule] += count;
        for (const auto &[rule, count] : result.undecided)
            undecided_[rule] += count;
        if (!result.errors.empty())
            base::PrintError(result.errors);
        if (!result.lines.empty())
            base::Print(result.lines);
    }

    void PrintSummary() const {
        std::map<uint32_t, std::pair<uint64_t, uint64_t>> both;
        for (const auto &[rule, count] : matched_)
            both[rule].first = count;
        for (const auto &[rule, count] : undecided_)
            both[rule].second = count;
        std::string text;
        for (const auto &[rule, counts] : both) {
            if (options_.json) {
                const nlohmann::ordered_json line = {{"rule", uint32_t{rules_[rule]->rule_id}},
                                                     {"name", rules_[rule]->detection_name},
                                                     {"matched", counts.first},
                                                     {"must_look", counts.second}};
                text += line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
            } else {
                text += fmt::format("{}: {}", Named(rule), base::CountText(counts.first, "file"));
                text += counts.second > 0 ? fmt::format(", {} must be looked at\n", counts.second) : "\n";
            }
        }
        base::Print(text);
    }

    void PrintTotals() const {
        base::Print(fmt::format("{}, {}: {} matched; {} must be looked at, {} opened, {}\n",
                                base::CountText(rules_.size(), "rule"), base::CountText(counts_.files, "file"),
                                counts_.matched, counts_.undecided, counts_.opened,
                                base::CountText(counts_.errors, "error")));
    }

    const HuntOptions &options_;
    std::span<HeuristicRule *const> rules_;
    store::Hunt hunt_;
    store::Store main_;
    std::vector<std::unique_ptr<store::Store>> stores_; // one for each thread
    HuntCounts counts_;
    std::map<uint32_t, uint64_t> matched_;
    std::map<uint32_t, uint64_t> undecided_;
};

} // namespace

int RunHunt(const HuntOptions &options) {
    const bool asks_module = options.rules.empty() || options.with_module;
    const HuntRules rules(options.rules, asks_module ? options.module : std::filesystem::path());
    return HuntRun(options, rules.table()).Run();
}

} // namespace tavrik::corpus_tool
