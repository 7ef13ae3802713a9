/* The C++ interface of libtavrik, over the C one and header-only: C++17. Failures are tavrik::Error. Objects are
 * movable handles; threads and lifetimes are as tavrik.h says, but results are copies of their own. */
#ifndef TAVRIK_TAVRIK_HPP
#define TAVRIK_TAVRIK_HPP

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "tavrik.h"

namespace tavrik {

/** A failure of the library: what() names the file and the remedy. */
class Error : public std::runtime_error {
public:
    Error(tavrik_status status, const std::string &text) : std::runtime_error(text), status_(status) {}
    tavrik_status status() const { return status_; }

private:
    tavrik_status status_;
};

namespace detail {

template <auto Function>
struct Release {
    template <typename Handle>
    void operator()(Handle *handle) const {
        Function(handle);
    }
};
template <typename Handle, auto Function>
using Owner = std::unique_ptr<Handle, Release<Function>>;

inline tavrik_error NoError() {
    tavrik_error error = {};
    error.size = sizeof error;
    return error;
}

inline void Check(tavrik_status status, const tavrik_error &error) {
    if (status != TAVRIK_OK)
        throw Error(status, error.text);
}

/** A path as the library takes it. */
inline std::string Text(const std::filesystem::path &path) {
    const auto text = path.u8string();
    return {text.begin(), text.end()};
}

/** Fills a structure of the C interface. */
template <typename Structure, typename Call>
Structure Get(Call call) {
    Structure value = {};
    value.size = sizeof value;
    if (const tavrik_status status = call(&value); status != TAVRIK_OK)
        throw Error(status, tavrik_status_name(status));
    return value;
}

} // namespace detail

struct Diagnostic {
    bool is_error = false;
    std::string code, message, help, rendered;
    uint32_t line = 0, column = 0;
    uint64_t offset = 0, length = 0;
};

/** A text of rules, parsed and checked. */
class Rules {
public:
    Rules(const std::string &name, std::string_view text) {
        tavrik_error error = detail::NoError();
        tavrik_rules *made = nullptr;
        detail::Check(tavrik_rules_parse(name.c_str(), text.data(), text.size(), &made, &error), error);
        handle_.reset(made);
    }

    std::size_t size() const { return tavrik_rules_count(handle()); }
    tavrik_rule rule(std::size_t index) const {
        return detail::Get<tavrik_rule>([&](auto *value) { return tavrik_rules_rule(handle(), index, value); });
    }
    const tavrik_rules *handle() const { return handle_.get(); }

    std::vector<Diagnostic> diagnostics() const {
        std::vector<Diagnostic> all;
        for (std::size_t i = 0; i < tavrik_rules_diagnostic_count(handle()); ++i) {
            const auto one = detail::Get<tavrik_diagnostic>(
                [&](auto *value) { return tavrik_rules_diagnostic(handle(), i, value); });
            all.push_back({one.is_error != 0, one.code, one.message, one.help, one.rendered, one.line, one.column,
                           one.offset, one.length});
        }
        return all;
    }

private:
    detail::Owner<tavrik_rules, tavrik_rules_free> handle_;
};

/** A loaded and initialised module. */
class Module {
public:
    /** The module that was installed with the library. */
    Module() : handle_(Open(nullptr)) {}
    explicit Module(const std::filesystem::path &path) : handle_(Open(detail::Text(path).c_str())) {}

    std::string path() const { return tavrik_module_path(handle()); }
    std::size_t rule_count() const { return tavrik_module_rule_count(handle()); }
    std::size_t locator_count() const { return tavrik_module_locator_count(handle()); }
    tavrik_rule rule(std::size_t index) const {
        return detail::Get<tavrik_rule>([&](auto *value) { return tavrik_module_rule(handle(), index, value); });
    }
    tavrik_locator locator(std::size_t index) const {
        return detail::Get<tavrik_locator>([&](auto *value) { return tavrik_module_locator(handle(), index, value); });
    }
    const tavrik_module *handle() const { return handle_.get(); }

private:
    static tavrik_module *Open(const char *path) {
        tavrik_error error = detail::NoError();
        tavrik_module *made = nullptr;
        detail::Check(tavrik_module_open(path, &made, &error), error);
        return made;
    }

    detail::Owner<tavrik_module, tavrik_module_close> handle_;
};

/** Ends calls that were given it, from any thread. */
class Cancel {
public:
    Cancel() {
        tavrik_cancel *made = nullptr;
        if (const tavrik_status status = tavrik_cancel_create(&made); status != TAVRIK_OK)
            throw Error(status, tavrik_status_name(status));
        handle_.reset(made);
    }
    void Request() { tavrik_cancel_request(handle()); }
    tavrik_cancel *handle() { return handle_.get(); }

private:
    detail::Owner<tavrik_cancel, tavrik_cancel_free> handle_;
};

/** What is scanned. */
class Input {
public:
    /** Reads up to `length` bytes at `offset`; returns how many. What it throws fails the read. */
    using ReadAt = std::function<std::size_t(uint64_t offset, void *buffer, std::size_t length)>;

    /** A file, by its path. */
    Input(const std::filesystem::path &path) : name_(detail::Text(path)) {}
    /** Bytes, which must outlive the object. */
    Input(std::string name, const void *bytes, std::size_t length)
        : name_(std::move(name)), bytes_(length == 0 ? "" : bytes), length_(length) {}
    /** `length` bytes that are read by a function. */
    Input(std::string name, uint64_t length, ReadAt read_at)
        : name_(std::move(name)), length_(length), read_at_(std::move(read_at)) {}

    /** Calls `use` with the structure of the C interface. */
    template <typename Use>
    tavrik_status With(Use use) const {
        if (!read_at_) {
            const tavrik_input input = bytes_ == nullptr ? tavrik_input_path(name_.c_str())
                                                         : tavrik_input_bytes(name_.c_str(), bytes_, length_);
            return use(&input);
        }
        const tavrik_stream stream = {sizeof stream, 0, const_cast<Input *>(this), length_, Read};
        const tavrik_input input = tavrik_input_stream(name_.c_str(), &stream);
        return use(&input);
    }

private:
    static int64_t Read(void *context, uint64_t offset, void *buffer, std::size_t length) {
        try {
            return static_cast<int64_t>(static_cast<const Input *>(context)->read_at_(offset, buffer, length));
        } catch (...) {
            return -1;
        }
    }

    std::string name_;
    const void *bytes_ = nullptr;
    uint64_t length_ = 0;
    ReadAt read_at_;
};

struct Detection {
    uint32_t rule = 0;
    std::string name;
    uint32_t action = 0;
    std::string action_name;
    std::string metadata; // JSON, see tavrik_rule
};

struct Finding {
    uint32_t entry = 0, kind = 0, reported = 0;
    uint64_t offset = 0;
    std::string kind_name;
};

struct Payload {
    uint32_t kind = 0;
    uint64_t offset = 0, length = 0, present = 0;
    std::string kind_name, sha256;
    std::vector<uint32_t> entries;
};

/** A payload that no locator finds. */
struct NearMiss {
    bool is_unknown_build = false;
    uint32_t kind = 0, entry = 0;
    uint64_t offset = 0, length = 0, present = 0;
    std::size_t failed = 0; // conditions of the entry's gate
    std::string kind_name, text, conditions;
};

struct Note {
    std::string code, text;
};

struct Report {
    tavrik_outcome outcome = TAVRIK_SCANNED;
    tavrik_status status = TAVRIK_OK;
    std::string name, text, sha256, json;
    uint64_t file_size = 0;
    std::vector<Detection> detections;
    std::vector<Finding> findings;
    std::vector<Payload> payloads;
    uint64_t bytes_read = 0;
    std::string parent; // of a file inside another one: that file's name
    std::vector<NearMiss> near_misses;
    std::vector<Note> notes;
    std::vector<Report> inside; // the files directly inside this one
};

struct Explanation {
    bool holds = false;
    std::string text;
};

struct Feature {
    std::string name;
    std::variant<uint64_t, std::string> value;
};

struct Settings {
    bool sha256 = false;
    double timeout = 0;           // seconds; 0 is no limit
    uint64_t max_size = 0;        // bytes; 0 is no limit
    uint32_t near_conditions = 0; // of a gate that may fail in a near miss; 0: they are not looked for
    bool inside = false;          // scan the files inside payloads and archives, too
    bool add_rules = false;       // rules come after the module's instead of in their place
    // Bounds of what is inside; 0 is the library's own, see tavrik_settings.
    uint32_t inside_depth = 0;
    uint64_t inside_files = 0, inside_bytes = 0, inside_ratio = 0;
};

/** Scans files; any number of threads may share one. */
class Scanner {
public:
    explicit Scanner(const Module &module, const Settings &settings = {}) : Scanner(module, settings, nullptr) {}
    /** With rules in place of the module's. */
    Scanner(const Module &module, const Rules &rules, const Settings &settings = {})
        : Scanner(module, settings, rules.handle()) {}

    /** Every failure of the file is in the report, those of opening it too. */
    Report Scan(const Input &input, Cancel *cancel = nullptr) const {
        tavrik_error error = detail::NoError();
        tavrik_report *made = nullptr;
        const tavrik_status status = input.With(
            [&](const tavrik_input *file) { return tavrik_scan(handle(), file, Of(cancel), &made, &error); });
        const detail::Owner<tavrik_report, tavrik_report_free> owner(made);
        if (made == nullptr)
            detail::Check(status, error);
        return Copy(made);
    }

    Explanation ExplainRule(const Input &input, uint32_t rule, Cancel *cancel = nullptr) const {
        return Explain(input, [&](auto *file, auto *made, auto *error) {
            return tavrik_explain_rule(handle(), file, rule, Of(cancel), made, error);
        });
    }
    Explanation ExplainLocator(const Input &input, uint32_t entry, Cancel *cancel = nullptr) const {
        return Explain(input, [&](auto *file, auto *made, auto *error) {
            return tavrik_explain_locator(handle(), file, entry, Of(cancel), made, error);
        });
    }

    std::vector<Feature> Features(const Input &input, Cancel *cancel = nullptr) const {
        tavrik_error error = detail::NoError();
        tavrik_features *made = nullptr;
        detail::Check(input.With([&](const tavrik_input *file) {
            return tavrik_features_read(handle(), file, Of(cancel), &made, &error);
        }),
                      error);
        const detail::Owner<tavrik_features, tavrik_features_free> owner(made);
        std::vector<Feature> all;
        for (std::size_t i = 0; i < tavrik_features_count(made); ++i) {
            const auto one =
                detail::Get<tavrik_feature>([&](auto *value) { return tavrik_features_get(made, i, value); });
            all.push_back({one.name, one.number});
            if (one.is_text != 0)
                all.back().value = std::string(one.text);
        }
        return all;
    }

    const tavrik_scanner *handle() const { return handle_.get(); }

private:
    Scanner(const Module &module, const Settings &settings, const tavrik_rules *rules) {
        tavrik_settings wanted = {};
        wanted.size = sizeof wanted;
        wanted.sha256 = settings.sha256 ? 1 : 0;
        wanted.timeout = settings.timeout;
        wanted.max_size = settings.max_size;
        wanted.rules = rules;
        wanted.add_rules = settings.add_rules ? 1 : 0;
        wanted.near_conditions = settings.near_conditions;
        wanted.inside = settings.inside ? 1 : 0;
        wanted.inside_depth = settings.inside_depth;
        wanted.inside_files = settings.inside_files;
        wanted.inside_bytes = settings.inside_bytes;
        wanted.inside_ratio = settings.inside_ratio;
        tavrik_error error = detail::NoError();
        tavrik_scanner *made = nullptr;
        detail::Check(tavrik_scanner_open(module.handle(), &wanted, &made, &error), error);
        handle_.reset(made);
    }

    static tavrik_cancel *Of(Cancel *cancel) { return cancel == nullptr ? nullptr : cancel->handle(); }

    template <typename Call>
    static Explanation Explain(const Input &input, Call call) {
        tavrik_error error = detail::NoError();
        tavrik_explanation *made = nullptr;
        detail::Check(input.With([&](const tavrik_input *file) { return call(file, &made, &error); }), error);
        const detail::Owner<tavrik_explanation, tavrik_explanation_free> owner(made);
        return {tavrik_explanation_holds(made) != 0, tavrik_explanation_text(made)};
    }

    static Report Copy(const tavrik_report *from) {
        const auto summary =
            detail::Get<tavrik_summary>([&](auto *value) { return tavrik_report_summary(from, value); });
        Report report;
        report.outcome = static_cast<tavrik_outcome>(summary.outcome);
        report.status = static_cast<tavrik_status>(summary.status);
        report.name = summary.name;
        report.text = summary.text;
        report.sha256 = summary.sha256;
        report.json = tavrik_report_json(from);
        report.file_size = summary.file_size;
        for (std::size_t i = 0; i < summary.detections; ++i) {
            const auto one =
                detail::Get<tavrik_detection>([&](auto *value) { return tavrik_report_detection(from, i, value); });
            report.detections.push_back({one.rule, one.name, one.action, one.action_name, one.metadata});
        }
        for (std::size_t i = 0; i < summary.findings; ++i) {
            const auto one =
                detail::Get<tavrik_finding>([&](auto *value) { return tavrik_report_finding(from, i, value); });
            report.findings.push_back({one.entry, one.kind, one.reported, one.offset, one.kind_name});
        }
        for (std::size_t i = 0; i < summary.payloads; ++i) {
            const auto one =
                detail::Get<tavrik_payload>([&](auto *value) { return tavrik_report_payload(from, i, value); });
            report.payloads.push_back({one.kind, one.offset, one.length, one.present, one.kind_name, one.sha256,
                                       std::vector<uint32_t>(one.entries, one.entries + one.entry_count)});
        }
        report.bytes_read = summary.bytes_read;
        report.parent = summary.parent;
        for (std::size_t i = 0; i < summary.near_misses; ++i) {
            const auto one =
                detail::Get<tavrik_near_miss>([&](auto *value) { return tavrik_report_near_miss(from, i, value); });
            report.near_misses.push_back({one.is_unknown_build != 0, one.kind, one.entry, one.offset, one.length,
                                          one.present, one.failed, one.kind_name, one.text, one.conditions});
        }
        for (std::size_t i = 0; i < summary.notes; ++i) {
            const auto one = detail::Get<tavrik_note>([&](auto *value) { return tavrik_report_note(from, i, value); });
            report.notes.push_back({one.code, one.text});
        }
        for (std::size_t i = 0; i < summary.inside; ++i) {
            const tavrik_report *inner = nullptr;
            if (tavrik_report_inside(from, i, &inner) == TAVRIK_OK)
                report.inside.push_back(Copy(inner));
        }
        return report;
    }

    detail::Owner<tavrik_scanner, tavrik_scanner_close> handle_;
};

} // namespace tavrik

#endif
