// libtavrik through its C and its C++ interface, as others link it, with the modules as they are delivered.
#include <atomic>
#include <chrono>
#include <cstring>
#include <deque>
#include <functional>
#include <optional>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "base/system.h"
#include "base/text.h"
#include "samples/samples.h"
#include "tavrik/tavrik.hpp"
#include "tests/support/fresh_folder.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;
using samples::MakeSample;
using samples::Sample;

constexpr char kMatchesMost[] =
    "rule 7 \"Test.Small\" for program {\n    header {\n        SizeOfHeaders != 0\n    }\n}\n";

/** Bytes that are handed out in ranges, counted; the first read may do something else, or something before. */
struct Ranges {
    const base::Bytes *bytes;
    int calls = 0;
    std::function<std::optional<std::size_t>(std::size_t length)> first = nullptr;

    Input AsInput() {
        return {"ranges", bytes->size(), [this](uint64_t offset, void *buffer, std::size_t length) -> std::size_t {
                    if (++calls == 1 && first)
                        if (const std::optional<std::size_t> count = first(length))
                            return *count;
                    const std::size_t count = std::min<std::size_t>(length, bytes->size() - offset);
                    std::memcpy(buffer, bytes->data() + offset, count);
                    return count;
                }};
    }
};

Module OwnModule() {
    return Module(base::ProgramFolder() / "tavrik2.hbx");
}

Sample SampleOf(uint32_t entry) {
    for (std::size_t index = 0;; ++index)
        if (Sample sample = MakeSample(index); sample.entry == entry && sample.finding)
            return sample;
}

TEST(Engine, FindsTheSameByPathBytesAndRanges) {
    const FreshFolder folder;
    const Scanner scanner(OwnModule()); // which is gone after this line
    std::vector<base::Bytes> many;
    std::deque<std::string> names;
    std::vector<std::string> expected;
    for (std::size_t index = 0; index < samples::SampleCount(); ++index) {
        const Sample sample = MakeSample(index);
        SCOPED_TRACE(sample.file_name);
        Write(sample.file_name, sample.bytes);
        Ranges ranges{&sample.bytes};
        const Report by_path = scanner.Scan(fs::path(sample.file_name));
        const Report by_bytes = scanner.Scan({sample.file_name, sample.bytes.data(), sample.bytes.size()});
        Report by_ranges = scanner.Scan(ranges.AsInput());
        fs::remove(sample.file_name);
        EXPECT_EQ(by_path.status, TAVRIK_OK) << by_path.text;
        EXPECT_EQ(by_path.outcome, TAVRIK_SCANNED);
        EXPECT_EQ(by_path.json, by_bytes.json);
        many.push_back(sample.bytes);
        expected.push_back(by_bytes.json);
        EXPECT_EQ(by_ranges.findings.size(), by_path.findings.size());
        EXPECT_EQ(by_ranges.payloads.size(), by_path.payloads.size());
        if (!sample.finding) {
            EXPECT_TRUE(by_path.findings.empty() && by_path.payloads.empty());
            EXPECT_LE(ranges.calls, 3);
            continue;
        }
        ASSERT_FALSE(by_path.findings.empty());
        EXPECT_EQ(by_path.findings[0].kind, sample.finding->kind);
        EXPECT_EQ(by_path.findings[0].offset, sample.finding->offset);
        ASSERT_FALSE(by_path.payloads.empty());
        EXPECT_EQ(by_path.payloads[0].entries[0], by_path.findings[0].entry);
    }
    // The same in one call, with inputs of a later version, which are larger.
    struct Later {
        tavrik_input input;
        uint64_t more;
    };
    std::vector<Later> inputs;
    for (std::size_t index = 0; index < many.size(); ++index) {
        const std::string &name = names.emplace_back(MakeSample(index).file_name);
        inputs.push_back({tavrik_input_bytes(name.c_str(), many[index].data(), many[index].size()), ~uint64_t{0}});
    }
    inputs.push_back({tavrik_input_path("is not there"), 0});
    for (Later &later : inputs)
        later.input.size = sizeof later;
    std::vector<tavrik_report *> reports(inputs.size());
    ASSERT_EQ(tavrik_scan_many(scanner.handle(), &inputs[0].input, inputs.size(), nullptr, reports.data(), nullptr),
              TAVRIK_OK);
    auto summary = tavrik_summary{};
    summary.size = sizeof summary;
    EXPECT_EQ(tavrik_report_summary(reports.back(), &summary), TAVRIK_OK);
    EXPECT_TRUE(summary.status == TAVRIK_ERROR_FILE && summary.outcome == TAVRIK_FAILED);
    EXPECT_STREQ(summary.name, "is not there");
    for (std::size_t index = 0; index < expected.size(); ++index)
        EXPECT_EQ(tavrik_report_json(reports[index]), expected[index]);
    for (tavrik_report *report : reports)
        tavrik_report_free(report);
    // An input that cannot be fails all.
    inputs[1].input.name = nullptr;
    inputs[1].input.bytes = nullptr;
    EXPECT_EQ(tavrik_scan_many(scanner.handle(), &inputs[0].input, 2, nullptr, reports.data(), nullptr),
              TAVRIK_ERROR_ARGUMENT);
    EXPECT_TRUE(reports[0] == nullptr && reports[1] == nullptr);
}

TEST(Engine, SharesAScannerAmongThreads) {
    const Module module = OwnModule();
    const Scanner scanner(module);
    const Sample sample = SampleOf(7);
    const Input input{"x", sample.bytes.data(), sample.bytes.size()};
    const std::string expected = scanner.Scan(input).json;
    const std::size_t features = scanner.Features(input).size();
    std::atomic<int> differ = 0;
    const auto work = [&] {
        for (int i = 0; i < 200; ++i)
            differ += scanner.Scan(input).json != expected;
        for (int i = 0; i < 10; ++i)
            differ += !scanner.ExplainLocator(input, 7).holds || scanner.Features(input).size() != features;
        const Module again = OwnModule(); // counted by the module, which has no lock for that
        differ += again.rule_count() != module.rule_count();
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(differ, 0);

    Cancel cancel;
    std::thread canceller([&] { cancel.Request(); });
    tavrik_status status = TAVRIK_OK;
    while (status == TAVRIK_OK)
        status = scanner.Scan(input, &cancel).status;
    canceller.join();
    EXPECT_EQ(status, TAVRIK_ERROR_CANCELLED);
}

/** A tar archive of one file. The Windows build reads none. */
[[maybe_unused]] base::Bytes TarOf(const std::string &name, const base::Bytes &content) {
    std::string head(512, '\0');
    head.replace(0, name.size(), name);
    head.replace(124, 11, fmt::format("{:011o}", content.size()));
    head.replace(148, 8, 8, ' '); // counts as spaces in the sum
    head[156] = '0';
    head.replace(257, 7,
                 std::string("ustar\0"
                             "0",
                             7));
    unsigned sum = 0;
    for (const char letter : head)
        sum += static_cast<unsigned char>(letter);
    head.replace(148, 7, fmt::format("{:06o}", sum) + '\0');
    base::Bytes bytes(head.begin(), head.end());
    bytes.insert(bytes.end(), content.begin(), content.end());
    bytes.resize((bytes.size() + 511) / 512 * 512 + 1024);
    return bytes;
}

TEST(Engine, FindsNearMissesAndWhatIsInside) {
    const Module module = OwnModule();
    Settings settings;
    settings.near_conditions = 1;
    settings.inside = true;
    const Scanner scanner(module, settings);
    std::size_t near = 0;
    for (std::size_t index = 0; index < samples::SampleCount(); ++index) {
        const Sample sample = MakeSample(index);
        const Report report = scanner.Scan({sample.file_name, sample.bytes.data(), sample.bytes.size()});
        EXPECT_EQ(report.bytes_read, sample.bytes.size());
        for (const NearMiss &miss : report.near_misses) {
            SCOPED_TRACE(sample.file_name);
            EXPECT_FALSE(sample.finding);
            EXPECT_EQ(miss.entry, sample.entry);
            EXPECT_FALSE(miss.is_unknown_build);
            EXPECT_EQ(miss.failed, 1u);
            EXPECT_NE(miss.text.find(miss.conditions.substr(0, miss.conditions.find('\n'))), std::string::npos);
            ++near;
        }
    }
    EXPECT_GE(near, 1u);

#ifndef _WIN32 // whose build reads no archives
    const Sample sample = SampleOf(7);
    const base::Bytes tar = TarOf("b.tar", TarOf("x.exe", sample.bytes));
    Ranges ranges{&tar};
    const Report report = scanner.Scan(ranges.AsInput());
    EXPECT_EQ(report.outcome, TAVRIK_NOT_PE);
    EXPECT_TRUE(report.bytes_read > 0 && report.bytes_read <= tar.size()) << report.bytes_read;
    ASSERT_TRUE(report.inside.size() == 1 && report.inside[0].inside.size() == 1);
    const Report &inner = report.inside[0].inside[0];
    EXPECT_EQ(inner.name, "ranges!b.tar!x.exe");
    EXPECT_EQ(inner.parent, "ranges!b.tar");
    ASSERT_EQ(inner.findings.size(), 1u);
    EXPECT_EQ(inner.findings[0].offset, sample.finding->offset);
    EXPECT_TRUE(Scanner(module).Scan({"a.tar", tar.data(), tar.size()}).inside.empty());
    // Of the two containers one may be opened.
    tavrik_settings flat = {};
    flat.size = sizeof flat;
    flat.inside = flat.inside_depth = 1;
    tavrik_scanner *made = nullptr;
    tavrik_report *shallow = nullptr;
    const tavrik_input input = tavrik_input_bytes("a.tar", tar.data(), tar.size());
    ASSERT_EQ(tavrik_scanner_open(module.handle(), &flat, &made, nullptr), TAVRIK_OK);
    ASSERT_EQ(tavrik_scan(made, &input, nullptr, &shallow, nullptr), TAVRIK_OK);
    tavrik_note note = {};
    note.size = sizeof note;
    EXPECT_EQ(tavrik_report_note(shallow, 0, &note), TAVRIK_OK);
    EXPECT_STREQ(note.code, "inside-depth");
    const tavrik_report *none = shallow;
    EXPECT_EQ(tavrik_report_inside(shallow, 1, &none), TAVRIK_ERROR_ARGUMENT);
    EXPECT_EQ(none, nullptr);
    tavrik_report_free(shallow);
    tavrik_scanner_close(made);
#endif
}

// ---- Failures ------------------------------------------------------------------------------------------------------

TEST(Engine, SaysWhyAModuleDoesNotStart) {
    const FreshFolder folder;
    const fs::path from = base::ProgramFolder();
    const fs::path long_name = fs::path(std::string(200, 'a')) / std::string(200, 'b') / std::string(200, 'c') /
                               std::string(200, 'd') / std::string(200, 'e');
    const auto drop = [](const char *name) { return [name](const fs::path &in) { fs::remove(in / name); }; };
    const auto put = [&](const char *name, const char *other) {
        return [=](const fs::path &in) {
            fs::remove(in / name); // MinGW's copy_file replaces no file
            fs::copy_file(from / other, in / name);
        };
    };
    const auto spoil = [](const char *name) {
        return [name](const fs::path &in) { Write(in / name, std::string("no module")); };
    };
    const struct {
        std::function<void(const fs::path &)> damage;
        tavrik_status status;
        const char *names; // in the text
    } rows[] = {
        {drop("tavrik2.hbx"), TAVRIK_ERROR_MODULE_MISSING, "tavrik2.hbx"},
        {spoil("tavrik2.hbx"), TAVRIK_ERROR_MODULE_UNLOADABLE, "tavrik2.hbx"},
        {put("tavrik2.hbx", "scansdk.hbx"), TAVRIK_ERROR_MODULE_FOREIGN, "YNLibInit"},
        {drop("platform.hbx"), TAVRIK_ERROR_COMPANION_MISSING, "platform.hbx"},
        {drop("disasm.hbx"), TAVRIK_ERROR_COMPANION_MISSING, "disasm.hbx"},
        {spoil("disasm.hbx"), TAVRIK_ERROR_COMPANION_UNUSABLE, "disasm.hbx"},
        {put("disasm.hbx", "scansdk.hbx"), TAVRIK_ERROR_COMPANION_UNUSABLE, "GetOffsetsFromBufferEx"},
        {drop("scansdk.hbx"), TAVRIK_OK, ""},
    };
    int number = 0;
    for (const auto &row : rows) {
        const fs::path in = fs::absolute("modules" + std::to_string(number++));
        fs::create_directory(in);
        for (const char *name : {"tavrik2.hbx", "platform.hbx", "disasm.hbx", "scansdk.hbx"})
            fs::copy_file(from / name, in / name);
        row.damage(in);
        SCOPED_TRACE(number);
        try {
            const Module module(in / "tavrik2.hbx");
            EXPECT_EQ(row.status, TAVRIK_OK);
        } catch (const Error &error) {
            EXPECT_EQ(error.status(), row.status) << error.what();
            EXPECT_NE(std::string(error.what()).find(row.names), std::string::npos) << error.what();
        }
    }
#ifndef _WIN32
    fs::create_directories(long_name);
    for (const char *name : {"tavrik2.hbx", "platform.hbx", "disasm.hbx"})
        fs::copy_file(from / name, long_name / name);
    EXPECT_THROW(Module(fs::absolute(long_name) / "tavrik2.hbx"), Error);
#endif
}

TEST(Engine, EndsWhenReadsFailOrTheCallerSaysSo) {
    const Module module = OwnModule();
    const Scanner hasty(module, Settings{false, 0.05, 0});
    const Scanner scanner(module);
    const Sample sample = SampleOf(7);
    Cancel cancel;
    Ranges failing{&sample.bytes, 0, [](std::size_t) -> std::size_t { throw std::runtime_error("no more"); }};
    EXPECT_EQ(scanner.Scan(failing.AsInput()).status, TAVRIK_ERROR_READ);
    Ranges claiming{&sample.bytes, 0, [](std::size_t length) { return length + 1; }};
    EXPECT_EQ(scanner.Scan(claiming.AsInput()).status, TAVRIK_ERROR_READ);
    Ranges slow{&sample.bytes, 0, [](std::size_t) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(80));
                    return std::nullopt;
                }};
    const Report late = hasty.Scan(slow.AsInput());
    EXPECT_EQ(late.status, TAVRIK_ERROR_TIMEOUT);
    EXPECT_EQ(late.outcome, TAVRIK_FAILED);
    Ranges asking{&sample.bytes, 0, [&](std::size_t) {
                      cancel.Request();
                      return std::nullopt;
                  }};
    EXPECT_EQ(scanner.Scan(asking.AsInput(), &cancel).status, TAVRIK_ERROR_CANCELLED);
    EXPECT_EQ(scanner.Scan(fs::path("is not there")).status, TAVRIK_ERROR_FILE);
    const Scanner small(module, Settings{false, 0, 10});
    const Report skipped = small.Scan({"x", sample.bytes.data(), sample.bytes.size()});
    EXPECT_EQ(skipped.outcome, TAVRIK_SKIPPED);
    EXPECT_EQ(skipped.status, TAVRIK_OK);
}

TEST(Engine, KeepsToTheCallersSizesAndRefusesNull) {
    const Module module = OwnModule();
    struct Larger {
        tavrik_rule known;
        uint64_t unknown;
    } larger = {{sizeof(Larger), 0, nullptr, nullptr}, 5};
    EXPECT_EQ(tavrik_module_rule(module.handle(), 0, &larger.known), TAVRIK_OK);
    EXPECT_EQ(larger.unknown, 0u);
    EXPECT_EQ(larger.known.size, sizeof(Larger));
    tavrik_rule smaller = {offsetof(tavrik_rule, name), 0, "kept", nullptr};
    EXPECT_EQ(tavrik_module_rule(module.handle(), 0, &smaller), TAVRIK_OK);
    EXPECT_EQ(smaller.rule, larger.known.rule);
    EXPECT_STREQ(smaller.name, "kept");
    tavrik_rule none = {0, 0, nullptr, nullptr};
    EXPECT_EQ(tavrik_module_rule(module.handle(), 0, &none), TAVRIK_ERROR_ARGUMENT);
    EXPECT_EQ(tavrik_module_rule(module.handle(), module.rule_count(), &smaller), TAVRIK_ERROR_ARGUMENT);
    EXPECT_EQ(tavrik_module_open(nullptr, nullptr, nullptr), TAVRIK_ERROR_ARGUMENT);
    tavrik_scanner *scanner = nullptr;
    EXPECT_EQ(tavrik_scanner_open(nullptr, nullptr, &scanner, nullptr), TAVRIK_ERROR_ARGUMENT);
    tavrik_report *report = nullptr;
    tavrik_error error = {sizeof error, 0, ""};
    EXPECT_EQ(tavrik_scan(nullptr, nullptr, nullptr, &report, &error), TAVRIK_ERROR_ARGUMENT);
    EXPECT_EQ(error.status, TAVRIK_ERROR_ARGUMENT);
    EXPECT_STRNE(error.text, "");
    // A short structure for the error gets as much of the text as fits.
    error.size = offsetof(tavrik_error, text) + 4;
    std::memset(error.text, '!', sizeof error.text);
    tavrik_module *missing = nullptr;
    EXPECT_EQ(tavrik_module_open("/no/such/tavrik2.hbx", &missing, &error), TAVRIK_ERROR_MODULE_MISSING);
    EXPECT_EQ(std::strlen(error.text), 3u);
    EXPECT_EQ(error.text[4], '!');
    tavrik_report_free(nullptr);
    EXPECT_EQ(tavrik_version(), TAVRIK_VERSION_NUMBER);
    EXPECT_STREQ(tavrik_status_name(TAVRIK_ERROR_COMPANION_MISSING), "companion-missing");
}

// ---- Rules, explanations, features ---------------------------------------------------------------------------------

TEST(Engine, ScansWithRulesOfText) {
    const Module module = OwnModule();
    const Rules wrong("wrong.rules",
                      "rule 7 \"Test\" for program {\n    header {\n        NoSuchField == 1\n    }\n}\n");
    ASSERT_EQ(wrong.diagnostics().size(), 1u);
    EXPECT_TRUE(wrong.diagnostics()[0].is_error);
    EXPECT_EQ(wrong.diagnostics()[0].line, 3u);
    EXPECT_NE(wrong.diagnostics()[0].rendered.find("wrong.rules"), std::string::npos);
    EXPECT_EQ(wrong.size(), 0u);
    EXPECT_THROW(Scanner(module, wrong), Error);

    const auto rules = std::make_unique<Rules>("small.rules", kMatchesMost);
    ASSERT_EQ(rules->size(), 1u) << rules->diagnostics()[0].rendered;
    const Sample sample = SampleOf(7);
    const Input input("x", sample.bytes.data(), sample.bytes.size());
    std::optional<Scanner> scanner(std::in_place, module, *rules);
    const Report report = scanner->Scan(input);
    ASSERT_EQ(report.detections.size(), 1u);
    EXPECT_EQ(report.detections[0].rule, 7u);
    EXPECT_EQ(report.detections[0].name, "Test.Small");
    EXPECT_TRUE(scanner->ExplainRule(input, 7).holds);
    EXPECT_THROW(scanner->ExplainRule(input, 173), Error);

    // Rules after the module's, with what the text says about them.
    const Rules said("said.rules", std::string(kMatchesMost).insert(34, "    meta { author \"N. N.\" }\n"));
    ASSERT_EQ(said.size(), 1u);
    EXPECT_STREQ(said.rule(0).metadata, "{\"authors\":[\"N. N.\"]}");
    Settings both;
    both.add_rules = true;
    const Scanner added(module, said, both);
    ASSERT_EQ(added.Scan(input).detections.size(), 1u);
    EXPECT_EQ(added.Scan(input).detections[0].metadata, said.rule(0).metadata);
    EXPECT_NE(added.ExplainRule(input, 7).text.find("author: N. N."), std::string::npos);
    EXPECT_FALSE(added.ExplainRule(input, 173).holds);
}

TEST(Engine, ExplainsAndTellsFeatures) {
    const Module module = OwnModule();
    const Scanner scanner(module);
    const Sample sample = SampleOf(7);
    const Input input("x", sample.bytes.data(), sample.bytes.size());
    const Explanation found = scanner.ExplainLocator(input, 7);
    EXPECT_TRUE(found.holds);
    const Explanation lost = scanner.ExplainLocator(input, 42);
    EXPECT_FALSE(lost.holds);
    EXPECT_NE(lost.text.find("FAIL"), std::string::npos);
    EXPECT_FALSE(scanner.ExplainRule(input, 173).holds);
    EXPECT_FALSE(scanner.ExplainLocator({"text", "no PE file", 10}, 7).holds);

    uint64_t sections = 0;
    uint64_t named = 0;
    for (const Feature &feature : scanner.Features(input)) {
        if (feature.name == "NumberOfSections")
            sections = std::get<uint64_t>(feature.value);
        named += feature.name.starts_with("section[") && feature.name.ends_with(".Name");
    }
    EXPECT_NE(sections, 0u);
    EXPECT_EQ(named, sections);
    EXPECT_TRUE(scanner.Features({"text", "no PE file", 10}).empty());

    const tavrik_locator locator = module.locator(7);
    EXPECT_EQ(locator.kind, 81u);
    EXPECT_NE(std::string(locator.gate).find("NumberOfSections"), std::string::npos);
    EXPECT_STREQ(module.locator(27).gate, "");
}

} // namespace
} // namespace tavrik::tests
