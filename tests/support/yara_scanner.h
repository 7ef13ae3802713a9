/* Rules on both sides: in the host, and as tavrik-rules export-yara writes them, in libyara. */
#ifndef TAVRIK_TESTS_SUPPORT_YARA_SCANNER_H
#define TAVRIK_TESTS_SUPPORT_YARA_SCANNER_H

#include <algorithm>
#include <cstdint>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "evaluation/rule_index.h"
#include "rules/record/record_builder.h"
#include "rules/yara/export.h"

#include <yara.h> // last: it has macros with plain names

namespace tavrik::tests {

/** Throws std::runtime_error for a failure. */
inline void CheckYara(int result, const char *what) {
    if (result != ERROR_SUCCESS)
        throw std::runtime_error(std::string(what) + " failed with libyara's error " + std::to_string(result));
}

/** libyara in use; one object at a time. */
struct YaraLibrary {
    YaraLibrary() { CheckYara(yr_initialize(), "starting libyara"); }
    ~YaraLibrary() { yr_finalize(); }
    YaraLibrary(const YaraLibrary &) = delete;
    YaraLibrary &operator=(const YaraLibrary &) = delete;
};

/** Rules compiled by libyara and a scanner for them, which is used for all files. */
class YaraScanner {
public:
    explicit YaraScanner(const std::string &text) {
        constexpr int kTimeout = 60; // seconds a file
        std::string errors;
        YR_COMPILER *compiler = nullptr;
        CheckYara(yr_compiler_create(&compiler), "making a compiler");
        yr_compiler_set_callback(
            compiler,
            [](int level, const char *, int line, const YR_RULE *, const char *message, void *to) {
                if (level == YARA_ERROR_LEVEL_ERROR)
                    static_cast<std::string *>(to)->append("\nline " + std::to_string(line) + ": " + message);
            },
            &errors);
        if (yr_compiler_add_string(compiler, text.c_str(), nullptr) != 0)
            throw std::runtime_error("the exported rules do not compile" + errors);
        CheckYara(yr_compiler_get_rules(compiler, &rules_), "compiling");
        yr_compiler_destroy(compiler);
        CheckYara(yr_scanner_create(rules_, &scanner_), "making a scanner");
        yr_scanner_set_flags(scanner_, SCAN_FLAGS_REPORT_RULES_MATCHING);
        yr_scanner_set_timeout(scanner_, kTimeout);
        yr_scanner_set_callback(scanner_, OnMessage, this);
    }
    ~YaraScanner() {
        yr_scanner_destroy(scanner_);
        yr_rules_destroy(rules_);
    }
    YaraScanner(const YaraScanner &) = delete;
    YaraScanner &operator=(const YaraScanner &) = delete;

    /** The names of the rules that match; valid until the next call. */
    const std::vector<const char *> &Match(std::span<const uint8_t> bytes) {
        matches_.clear();
        CheckYara(yr_scanner_scan_mem(scanner_, bytes.data(), bytes.size()), "scanning");
        return matches_;
    }

    /** The same for a file on the disk. */
    const std::vector<const char *> &MatchFile(const std::string &path) {
        matches_.clear();
        CheckYara(yr_scanner_scan_file(scanner_, path.c_str()), "scanning");
        return matches_;
    }

private:
    static int OnMessage(YR_SCAN_CONTEXT *, int message, void *data, void *self) {
        if (message == CALLBACK_MSG_RULE_MATCHING)
            static_cast<YaraScanner *>(self)->matches_.push_back(static_cast<YR_RULE *>(data)->identifier);
        return message == CALLBACK_MSG_TOO_MANY_MATCHES ? CALLBACK_ERROR : CALLBACK_CONTINUE;
    }

    YR_RULES *rules_ = nullptr;
    YR_SCANNER *scanner_ = nullptr;
    std::vector<const char *> matches_;
};

/** The rules of a set that can be exported. */
inline rules::RuleSet Exportable(const rules::RuleSet &set) {
    rules::RuleSet selected;
    for (const std::size_t place : rules::yara::ExportYara(set).exported)
        selected.rules.push_back(set.rules[place]);
    return selected;
}

/** Rules that can be exported, on both sides. Answers are places in the set, ascending. */
class BothSides {
public:
    explicit BothSides(const rules::RuleSet &set)
        : records_(set), index_(records_.rules()), yara_(rules::yara::ExportYara(set).text) {
        for (uint32_t place = 0; place < set.rules.size(); ++place)
            places_.emplace(rules::yara::YaraRuleName(set, place), place);
    }

    std::vector<uint32_t> MatchOurs(std::span<const uint8_t> bytes) const {
        base::MemorySource source(bytes);
        evaluation::Features features(source);
        return index_.Match(features);
    }

    std::vector<uint32_t> MatchYara(std::span<const uint8_t> bytes) {
        std::vector<uint32_t> found;
        for (const char *name : yara_.Match(bytes))
            found.push_back(places_.at(name));
        std::ranges::sort(found);
        return found;
    }

    std::size_t rule_count() const { return places_.size(); }
    YaraScanner &yara() { return yara_; }

private:
    rules::record::RecordSet records_;
    evaluation::RuleIndex index_;
    YaraScanner yara_;
    std::unordered_map<std::string, uint32_t> places_;
};

/** Copies with a few bits turned, most from `first` on (in the headers), some cut short: what damaged files look like.
 */
inline std::vector<std::vector<uint8_t>> Altered(std::span<const uint8_t> bytes, unsigned copies, std::mt19937 &random,
                                                 std::size_t first = 0, std::size_t length = 0x400) {
    std::vector<std::vector<uint8_t>> altered;
    for (unsigned copy = 0; copy < copies; ++copy) {
        std::vector<uint8_t> &changed = altered.emplace_back(bytes.begin(), bytes.end());
        const std::size_t part = std::min(changed.size() - first, length);
        for (unsigned i = 0; i <= copy % 3; ++i)
            changed[first + random() % part] ^= static_cast<uint8_t>(1u << random() % 8);
        changed[random() % changed.size()] ^= static_cast<uint8_t>(1u << random() % 8);
        if (copy % 4 == 3)
            changed.resize(random() % changed.size() + 1);
    }
    return altered;
}

} // namespace tavrik::tests

#endif
