// Parts of the scanner that its command line shows only roughly.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <regex>
#include <set>

#include <gtest/gtest.h>

#include "base/error.h"
#include "scanner/carve.h"
#include "scanner/clean_action.h"
#include "scanner/module_stream.h"
#include "scanner/payload_report.h"
#include "scanner/profile.h"
#include "scanner/report.h"
#include "scanner/report_memory.h"
#include "scanner/totals.h"
#include "scanner/watched_source.h"
#include "tavrik2/heur_clean.h"
#include "tests/support/fresh_folder.h"

namespace tavrik::tests {
namespace {

// ---- Sources and carving --------------------------------------------------------------------------------------------

/** A source that says it is longer than it is, as a file that has been cut. */
class CutSource final : public base::ByteSource {
public:
    explicit CutSource(std::string bytes) : bytes_(std::move(bytes)) {}
    uint64_t size() const override { return bytes_.size() + 1; }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override {
        return base::MemorySource(BytesOf(bytes_)).ReadAt(offset, buffer, length);
    }
    const std::string &error() const override { return error_; }

private:
    std::string bytes_;
    std::string error_;
};

TEST(WatchedSource, FailsOnceItsTimeIsOver) {
    const std::string text = "text";
    base::MemorySource memory(BytesOf(text));
    char byte = 0;
    scanner::WatchedSource patient(memory, scanner::Deadline(0));
    EXPECT_EQ(patient.ReadAt(1, &byte, 1), 1u);
    EXPECT_EQ(byte, 'e');
    EXPECT_EQ(patient.size(), 4u);
    EXPECT_EQ(patient.error(), "");
    EXPECT_FALSE(scanner::Deadline(3600).HasPassed());
    const scanner::Deadline short_one(1e-9);
    while (!short_one.HasPassed()) {
    }
    scanner::WatchedSource late(memory, short_one);
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(late.ReadAt(0, &byte, 1), 0u);
        EXPECT_EQ(late.error(), "took longer than 1e-09 seconds");
    }
    EXPECT_FALSE(late.was_interrupted());
    CutSource cut("x");
    EXPECT_EQ(scanner::WatchedSource(cut, scanner::Deadline(0)).error(), "");
}

TEST(SafeName, LeavesNoCharacterThatIsSpecialToASystem) {
    EXPECT_EQ(scanner::SafeName("a/setup.exe"), "setup.exe");
    EXPECT_EQ(scanner::SafeName("-rf"), "_-rf");
    EXPECT_EQ(scanner::SafeName(".hidden"), "_.hidden");
    EXPECT_EQ(scanner::SafeName(""), "_");
#ifndef _WIN32
    EXPECT_EQ(scanner::SafeName("a|b*c?d<e>f:g\"h\\i"), "a_b_c_d_e_f_g_h_i");
#endif
    EXPECT_EQ(scanner::SafeName(std::string(200, 'x')), std::string(200, 'x'));
    EXPECT_EQ(scanner::SafeName(std::string(201, 'x')), std::string(200, 'x'));
    std::string name = "x";
    for (int i = 0; i < 120; ++i)
        name += "\xC3\xA4";
    EXPECT_EQ(scanner::SafeName(std::u8string(name.begin(), name.end())), name.substr(0, 199))
        << "cut within a character";
}

/** A payload of `length` bytes; of an unknown structure where that is 0. */
scanner::Payload PayloadAt(uint64_t offset, uint64_t length = 0) {
    scanner::Payload payload;
    payload.kind = PAYLOAD_NULLSOFT;
    payload.offset = offset;
    payload.entries = {7};
    if (length > 0)
        payload.extent = {scanner::payloads::Format::Nsis, "NSIS", offset, length, length, true, false};
    return payload;
}

/** What has happened with the payload, in words. */
std::string Carved(scanner::Carver &carver, base::ByteSource &source, const char *file, scanner::Payload payload) {
    try {
        carver.Carve(source, file, payload);
    } catch (const base::Error &error) {
        return error.reason();
    }
    return scanner::CarvedText(payload);
}

TEST(Carver, WritesExactlyThePayloadOnceIntoNewFiles) {
    const FreshFolder folder;
    std::string bytes = std::string(300'000, 'a') + "payload" + std::string(300'000, 'b') + "payload";
    base::MemorySource source(BytesOf(bytes));
    scanner::Carver carver("new/deep", {.limit = 400'000, .with_tail = false});
    const auto carve = [&](const char *file, const scanner::Payload &payload) {
        return Carved(carver, source, file, payload);
    };
    const std::string first = (std::filesystem::path("new/deep") / "setup.exe.0x493e0.nsis").string();
    EXPECT_EQ(carve("b/setup.exe", PayloadAt(300'000, 7)), "offset 0x493e0 carved, 7 bytes, to " + first);
    EXPECT_EQ(ReadFile(first), "payload");
    EXPECT_EQ(carve("other.exe", PayloadAt(600'007, 7)), "offset 0x927c7 carved, 7 bytes, the same as " + first);
    EXPECT_EQ(carve("other.exe", PayloadAt(600'007)), "offset 0x927c7 carved, 7 bytes, the same as " + first);
    EXPECT_EQ(carve("setup.exe", PayloadAt(0, 400'001)),
              "offset 0x0 not carved: has 400001 bytes, more than the 400000 of --carve-limit");
    EXPECT_TRUE(carve("setup.exe", PayloadAt(300'000, 8)).ends_with("setup.exe.0x493e0.2.nsis"));
    EXPECT_TRUE(carve("setup.exe", PayloadAt(300'000, 9)).ends_with("setup.exe.0x493e0.3.nsis"));
    Write("new/deep/other.0x61a80.bin", "kept");
    EXPECT_TRUE(carve("other", PayloadAt(400'000)).ends_with("other.0x61a80.2.bin"));
    EXPECT_EQ(ReadFile("new/deep/other.0x61a80.2.bin"), bytes.substr(400'000));
    EXPECT_EQ(ReadFile("new/deep/other.0x61a80.bin"), "kept");
    EXPECT_TRUE(carve("end", PayloadAt(bytes.size())).ends_with("end.0x927ce.bin"));
    EXPECT_EQ(ReadFile("new/deep/end.0x927ce.bin"), "");
    scanner::Carver with_tail("tail", {.with_tail = true});
    Carved(with_tail, source, "a", PayloadAt(600'007, 3));
    EXPECT_EQ(ReadFile("tail/a.0x927c7.nsis"), "payload");

    CutSource cut("text");
    const auto shown = (std::filesystem::path("new/deep") / "cut.0x1.bin").string();
    EXPECT_EQ(Carved(carver, cut, "cut", PayloadAt(1)), shown + ": the file has become shorter");
    EXPECT_FALSE(std::filesystem::exists(shown)) << "part of a payload is left";
}

// ---- Reports -------------------------------------------------------------------------------------------------------

scanner::FileReport Report(scanner::ScanStatus status, std::string error = "") {
    scanner::FileReport report;
    report.file = "a.exe";
    report.size = 1'000'000;
    report.status = status;
    report.error = std::move(error);
    return report;
}

scanner::FileReport FullReport() {
    scanner::FileReport report = Report(scanner::ScanStatus::Scanned);
    report.detections = {{173, "Worm.A", CLEAN_ACTION_4021}, {9, "B\n", CLEAN_ACTION_NONE}};
    report.findings = {{7, PAYLOAD_NULLSOFT, 0x1A00, 256}, {3, PAYLOAD_CABINET, 0x20, 1}};
    report.payloads = {PayloadAt(0x19FC, 123), PayloadAt(0x20)};
    report.payloads[0].entries = {7, 9};
    report.payloads[0].extent->length = 200;
    report.payloads[0].extent->complete = false;
    report.payloads[0].carved = {"out/a.nsis", 123, "ff", true};
    return report;
}

TEST(Report, HasALineForEachResult) {
    EXPECT_EQ(scanner::TextLines(Report(scanner::ScanStatus::Scanned), false), "");
    EXPECT_EQ(scanner::TextLines(FullReport(), false),
              "a.exe: rule 173 \"Worm.A\", action quarantine\n"
              "a.exe: rule 9 \"B\\x0a\", action none\n"
              "a.exe: entries 7, 9: NSIS, offset 0x19fc, length 200 "
              "(truncated, 77 bytes missing)\n"
              "a.exe: entry 7: Nullsoft installer, offset 0x20, length unknown\n"
              "a.exe: offset 0x19fc carved, 123 bytes, to out/a.nsis\n");
    const std::string painted = scanner::TextLines(FullReport(), true);
    EXPECT_EQ(painted.find("a.exe: \x1b[1;31mrule 173 \"Worm.A\", action quarantine\x1b[0m\n"), 0u) << painted;
    EXPECT_NE(painted.find("a.exe: \x1b[33mentry 7: "), std::string::npos) << painted;
    EXPECT_EQ(scanner::ErrorLine("a\n", "is a \x1b", false), "tavrik-scan: a\\x0a: is a \\x1b\n");
    EXPECT_EQ(scanner::ErrorLine("a", "late", true), "tavrik-scan: a: \x1b[31mlate\x1b[0m\n");
}

TEST(Report, IsAnObjectForEachFile) {
    EXPECT_EQ(
        scanner::JsonLine(FullReport()),
        R"({"schema":1,"file":"a.exe","size":1000000,"status":"scanned","detections":[{"rule":173,"name":"Worm.A",)"
        R"("action":"quarantine"},{"rule":9,"name":"B\n","action":"none"}],"findings":[{"entry":7,"kind":81,)"
        R"("kind_name":"Nullsoft installer","offset":6656,"size":256},{"entry":3,"kind":113,)"
        R"("kind_name":"cabinet","offset":32,"size":1}],"payloads":[{"entries":[7,9],"offset":6652,"format":"nsis",)"
        R"("description":"NSIS","length":200,"present":123,"complete":false,"missing":77,"encrypted":false,)"
        R"("sha256":null,"carved":{"file":"out/a.nsis","length":123,"sha256":"ff","new":true}},{"entries":[7],)"
        R"("offset":32,"format":null,"description":"Nullsoft installer","length":null,"present":null,)"
        R"("complete":null,"missing":null,"encrypted":null,"sha256":null}]})");
    const std::string end = R"(,"detections":[],"findings":[],"payloads":[]})";
    EXPECT_EQ(scanner::JsonLine(Report(scanner::ScanStatus::NotPe)),
              R"({"schema":1,"file":"a.exe","size":1000000,"status":"not-pe")" + end);
    EXPECT_EQ(scanner::JsonLine(Report(scanner::ScanStatus::Skipped, "large")),
              R"({"schema":1,"file":"a.exe","size":1000000,"status":"skipped",)"
              R"("reason":{"code":"failed","text":"large"})" +
                  end);
    scanner::FileReport failed = Report(scanner::ScanStatus::Failed, "gone");
    failed.size.reset();
    failed.sha256 = "00ff";
    failed.error_code = base::ErrorCode::NotFound;
    failed.notes = {{"searched-in-part", "has many bytes"}};
    failed.missing_bytes = 5;
#ifndef _WIN32 // where every name is text
    failed.file = "\xFF.exe";
    const std::string name = R"("�.exe","file_b64":"/y5leGU=")";
#else
    const std::string name = R"("a.exe")";
#endif
    EXPECT_EQ(scanner::JsonLine(failed),
              R"({"schema":1,"file":)" + name +
                  R"(,"size":null,"sha256":"00ff","status":"error",)"
                  R"("error":{"code":"not-found","text":"gone"},"notes":[{"code":"searched-in-part",)"
                  R"("text":"has many bytes"}],"truncated":true,"missing":5)" +
                  end);
}

TEST(CleanAction, HasANameAndAMeaning) {
    const std::pair<uint32_t, const char *> rows[] = {{CLEAN_ACTION_NONE, "none"},
                                                      {CLEAN_ACTION_CANNOT_OPEN, "cannot-open"},
                                                      {CLEAN_ACTION_4021, "quarantine"},
                                                      {CLEAN_ACTION_4024, "quarantine-and-trace"},
                                                      {4022, "action-4022"}};
    std::set<std::string_view> meanings;
    for (const auto &[action, name] : rows) {
        EXPECT_EQ(scanner::ActionName(action), name);
        EXPECT_TRUE(meanings.insert(scanner::ActionMeaning(action)).second) << name;
    }
}

TEST(Totals, CountEachReportOnce) {
    scanner::Totals totals;
    EXPECT_EQ(
        scanner::SummaryLine(totals, 0, false),
        "tavrik-scan: 0 files of 0.0 MB, 0.0 MB read in 0.00 s (0 files/s, 0.0 MB/s): 0 detections, 0 payloads, 0 "
        "skipped, 0 errors\n");
    scanner::FileReport full = FullReport();
    full.bytes_read = 400'000;
    totals.Add(full);
    totals.Add(Report(scanner::ScanStatus::NotPe));
    totals.Add(Report(scanner::ScanStatus::Skipped));
    totals.Add(Report(scanner::ScanStatus::Failed));
    scanner::FileReport missing = Report(scanner::ScanStatus::Failed);
    missing.size.reset();
    totals.Add(missing);
    EXPECT_EQ(scanner::SummaryLine(totals, 0.5, true),
              "tavrik-scan: interrupted: 3 files of 3.0 MB, 0.4 MB read in 0.50 s (6 files/s, 0.8 MB/s): 2 detections, "
              "2 payloads in 1 file, 1 skipped, 2 errors, 1 not PE\n");
    EXPECT_EQ(totals.Done(), 5u);
}

TEST(Progress, FitsTheTerminalAndKnowsWhatIsLeft) {
    const scanner::Totals totals = {.files = 10, .bytes_read = 3'000'000, .detections = 1, .payloads = 2, .skipped = 2};
    const struct {
        scanner::Expected expected;
        double seconds;
        const char *line;
    } rows[] = {
        {{}, 2, "12 files, 3 found, 6 files/s, 1.5 MB/s  folder/file.exe"},
        {{40, false}, 2, "12 of 40 or more files, 3 found, 6 files/s, 1.5 MB/s  folder/file.exe"},
        {{40, true}, 2, "12 of 40 (30 %) files, 3 found, 6 files/s, 1.5 MB/s, 5 s left  folder/file.exe"},
        {{12000, true}, 2, "12 of 12000 (0 %) files, 3 found, 6 files/s, 1.5 MB/s, 33 min 18 s left  folder/file.exe"},
        {{120000, true}, 2, "12 of 120000 (0 %) files, 3 found, 6 files/s, 1.5 MB/s, 5 h 33 min left  folder/file.exe"},
        {{11, true}, 2, "12 files, 3 found, 6 files/s, 1.5 MB/s  folder/file.exe"},
    };
    for (const auto &[expected, seconds, line] : rows)
        EXPECT_EQ(scanner::ProgressLine(totals, expected, seconds, "folder/file.exe", 120), line);
    const std::string whole = rows[2].line;
    for (std::size_t columns = 0; columns < whole.size(); ++columns)
        EXPECT_LE(scanner::ProgressLine(totals, rows[2].expected, 2, "folder/file.exe", columns).size(), columns);
    EXPECT_EQ(scanner::ProgressLine(totals, {}, 2, "folder/file.exe", 51),
              "12 files, 3 found, 6 files/s, 1.5 MB/s  ...file.exe");
}

// ---- Measurements --------------------------------------------------------------------------------------------------

/** The milliseconds of the line that begins with `name`; -1 when there is none. */
double TimeIn(const std::string &text, const std::string &name) {
    std::smatch found;
    return std::regex_search(text, found, std::regex("\n  " + name + " +([0-9.]+) ms +[0-9.]+ %\n"))
               ? std::stod(found[1])
               : -1;
}

TEST(Profile, AddsUpStepsAndRulesOfAllThreads) {
    using std::chrono::milliseconds;
    const auto pass = [](int count) {
        for (const auto end = scanner::Profile::Clock::now() + milliseconds(count);
             scanner::Profile::Clock::now() < end;) {
        }
    };
    std::vector<HeuristicRule> records(14);
    std::vector<HeuristicRule *> rules;
    for (HeuristicRule &record : records) {
        record.rule_id = static_cast<uint32_t>(100 + rules.size());
        std::strcpy(record.detection_name, "Name");
        rules.push_back(&record);
    }
    scanner::Profile first;
    scanner::Profile second;
    EXPECT_EQ(first.Enter(scanner::Step::Open), scanner::Step::Other);
    pass(2);
    {
        const scanner::StepTimer timer(&first, scanner::Step::Rules);
        pass(8);
    }
    EXPECT_EQ(first.Enter(scanner::Step::Other), scanner::Step::Open);
    {
        const scanner::StepTimer timer(&second, scanner::Step::Carve);
        const scanner::StepTimer nothing(nullptr, scanner::Step::Output);
        base::MemorySource source({});
        const scanner::ReadTimer none(nullptr, source);
        const scanner::ReadTimer reading(&second, source);
        pass(4);
    }
    for (uint32_t rule = 0; rule < 12; ++rule)
        first.OnConditions(rule, std::chrono::microseconds(10 + rule));
    first.OnConditions(5, milliseconds(1));
    first.OnStrings(5, milliseconds(2));
    second.OnStrings(5, milliseconds(2));
    second.OnConditions(13, std::chrono::microseconds(500));
    second.AddReading(milliseconds(3), 5); // in step Other
    first.AddReading({}, 4);
    first.AddReading({}, 0);
    first.Add(second);
    EXPECT_EQ(first.ReadBy(scanner::Step::Other).bytes, 9u);
    EXPECT_EQ(first.ReadBy(scanner::Step::Other).calls, 2u) << "those that fetched something";
    EXPECT_EQ(first.ReadBy(scanner::Step::Carve).calls, 0u);
    const std::string text = first.Text(rules);

    EXPECT_TRUE(text.starts_with("Time in all threads together:\n")) << text;
    const double open = TimeIn(text, "open");
    const double all_rules = TimeIn(text, "rules");
    const double carve = TimeIn(text, "carve");
    EXPECT_GE(open, 2) << text;
    EXPECT_GE(all_rules, 8) << text;
    EXPECT_GE(carve, 4) << text;
    EXPECT_GE(TimeIn(text, "reading, within the above"), 7) << text;
    EXPECT_EQ(TimeIn(text, "sha256"), -1) << "a step without time has no line";
    EXPECT_EQ(TimeIn(text, "output"), -1) << text;
    EXPECT_NEAR(TimeIn(text, "  structure of rules asked"), 1.686, 0.002) << text;
    EXPECT_NEAR(TimeIn(text, "  strings of rules left"), 4, 0.002) << text;
    EXPECT_NEAR(TimeIn(text, "  index"), all_rules - 5.686, 0.002) << text;
    const std::regex line("\n  ( *[a-z0-9, ]*[a-z0-9]) +[0-9.]+ ms +[0-9.-]+ %(?=\n)");
    std::vector<std::string> names;
    for (std::sregex_iterator found(text.begin(), text.end(), line), end; found != end; ++found)
        names.push_back((*found)[1]);
    EXPECT_EQ(names, (std::vector<std::string>{"open", "rules", "  index", "  structure of rules asked",
                                               "  strings of rules left", "carve", "reading, within the above"}))
        << text;
    std::smatch share;
    ASSERT_TRUE(std::regex_search(text, share, std::regex("\n  carve +[0-9.]+ ms +([0-9.]+) %\n"))) << text;
    EXPECT_NEAR(std::stod(share[1]), 100 * carve / (open + all_rules + carve), 0.06) << text;

    const std::size_t list = text.find("13 of 14 rules were asked; those that cost most:\n");
    ASSERT_NE(list, std::string::npos) << text;
    const std::string listed = text.substr(list);
    EXPECT_EQ(std::count(listed.begin(), listed.end(), '\n'), 11) << "the ten that cost most";
    const std::size_t dearest = listed.find("         5.015 ms, asked      2 times: rule 105 \"Name\"\n");
    const std::size_t next = listed.find("         0.500 ms, asked      1 times: rule 113 \"Name\"\n");
    const std::size_t third = listed.find("         0.021 ms, asked      1 times: rule 111 \"Name\"\n");
    EXPECT_TRUE(dearest < next && next < third && third < listed.size()) << listed;
    EXPECT_EQ(listed.find("rule 100 "), std::string::npos) << listed;
    EXPECT_EQ(scanner::Profile().Text(rules).find("nan"), std::string::npos);
}

TEST(ReportMemory, GrowsByAllThatAReportHolds) {
    const std::string text(1000, 'x');
    const std::function<void(scanner::FileReport &)> additions[] = {
        [&](auto &report) { report.error = text; },
        [&](auto &report) { report.file = text; },
        [&](auto &report) { report.parent = text; },
        [&](auto &report) { report.notes.emplace_back().text = text; },
        [&](auto &report) { report.detections.emplace_back().name = text; },
        [&](auto &report) { report.findings.resize(1000 / sizeof(scanner::Finding) + 1); },
        [&](auto &report) { report.payloads.emplace_back().sha256 = text; },
        [&](auto &report) { report.payloads.emplace_back().entries.resize(250); },
        [&](auto &report) { report.read.resize(1000 / sizeof(base::Region) + 1); },
        [&](auto &report) { report.near.emplace(1000 / sizeof(scanner::NearMiss) + 1); },
    };
    scanner::FileReport report;
    std::size_t bytes = scanner::OwnMemory(report);
    for (std::size_t place = 0; place < std::size(additions); ++place) {
        additions[place](report);
        const std::size_t more = scanner::OwnMemory(report);
        EXPECT_GE(more - bytes, 1000u) << place;
        EXPECT_LT(more - bytes, 3000u) << place; // a path has two bytes a character on Windows
        bytes = more;
    }
    scanner::FileReport outer;
    outer.inside.push_back(report);
    EXPECT_EQ(scanner::MemoryOf(outer), scanner::OwnMemory(outer) + bytes);
}

} // namespace
} // namespace tavrik::tests
