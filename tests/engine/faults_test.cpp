// Faults one after the other: the first, second, third ... allocation or read of a piece of work fails, until the work
// succeeds. This program replaces the operators new and delete, which count what is alive.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>

#include <gtest/gtest.h>

#include "base/system.h"
#include "rules/record/reader.h"
#include "samples/samples.h"
#include "scanner/contents.h"
#include "scanner/module.h"
#include "scanner/scan.h"
#include "tavrik/tavrik.h"

namespace {

long g_alive = 0;       // blocks of operator new
long g_until_fault = 0; // the number of allocations up to the one that fails; 0: none fails
bool g_has_failed = false;

// Not inlined, so that the compiler does not pair malloc with delete.
[[gnu::noinline]] void *Allocate(std::size_t size) {
    if (g_until_fault > 0 && --g_until_fault == 0) {
        g_has_failed = true;
        return nullptr;
    }
    void *const block = std::malloc(size);
    g_alive += block != nullptr ? 1 : 0;
    return block;
}

[[gnu::noinline]] void Free(void *block) {
    g_alive -= block != nullptr ? 1 : 0;
    std::free(block);
}

} // namespace

// The other forms call these.
void *operator new(std::size_t size) {
    void *const block = Allocate(size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}
void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    return Allocate(size);
}
void operator delete(void *block) noexcept {
    Free(block);
}
void operator delete(void *block, std::size_t) noexcept {
    Free(block);
}

namespace tavrik::tests {
namespace {

constexpr char kRules[] = R"(
rule 7 "Test.Small" for program {
    header { SizeOfHeaders != 0 }
    strings { A = "PE" in headers at 0..0x300 }
}
)";

/** The sample of a finding with contents that are scanned too. */
base::Bytes SampleBytes(uint32_t entry) {
    for (std::size_t index = 0;; ++index)
        if (samples::Sample sample = samples::MakeSample(index); sample.entry == entry && sample.finding)
            return sample.bytes;
}

/** A scanner with the first rules of the module, for files themselves. */
std::unique_ptr<const scanner::Scanner> ScannerOf(std::size_t count) {
    const auto module = std::make_shared<const scanner::Module>();
    const rules::RuleSet first =
        rules::record::ReadRules(module->rules().first(count), rules::record::RecordForm::Working);
    scanner::ScanSettings settings;
    settings.inside = false;
    return std::make_unique<const scanner::Scanner>(
        module, settings, scanner::MoreRules{std::make_shared<const rules::record::RecordSet>(first), nullptr, true});
}

// ---- Allocations ---------------------------------------------------------------------------------------------------

/** Does the work with each allocation failing in turn, up to a success. `work` returns its status and, where that is
 * TAVRIK_OK, a result that is always the same; it releases all that it made. */
void ExhaustAllocations(const std::function<tavrik_status(std::string &result)> &work) {
    std::string expected;
    ASSERT_EQ(work(expected), TAVRIK_OK); // what is made once in a process is made here
    constexpr long kMost = 20'000;
    long nth = 1;
    for (bool failed = true; failed && nth < kMost; ++nth) {
        std::string result;
        result.reserve(expected.size());
        const long alive = g_alive;
        g_has_failed = false;
        g_until_fault = nth;
        const tavrik_status status = work(result);
        g_until_fault = 0;
        failed = g_has_failed;
        ASSERT_EQ(g_alive, alive) << "allocation " << nth;
        if (status == TAVRIK_OK)
            ASSERT_EQ(result, expected) << "allocation " << nth;
        else
            ASSERT_EQ(status, TAVRIK_ERROR_MEMORY) << "allocation " << nth;
        ASSERT_TRUE(failed || status == TAVRIK_OK);
    }
    EXPECT_GT(nth, 2);
    EXPECT_LT(nth, kMost);
    std::string after;
    EXPECT_EQ(work(after), TAVRIK_OK);
    EXPECT_EQ(after, expected);
}

template <typename Structure>
Structure Sized() {
    Structure structure = {};
    structure.size = sizeof structure;
    return structure;
}

class Faults : public testing::Test {
protected:
    Faults() {
        const std::string path = (base::ProgramFolder() / "tavrik2.hbx").string();
        EXPECT_EQ(tavrik_module_open(path.c_str(), &module_, nullptr), TAVRIK_OK);
        EXPECT_EQ(tavrik_rules_parse("small", kRules, sizeof kRules - 1, &rules_, nullptr), TAVRIK_OK);
        tavrik_settings settings = {};
        settings.size = sizeof settings;
        settings.sha256 = 1;
        settings.rules = rules_;
        EXPECT_EQ(tavrik_scanner_open(module_, &settings, &scanner_, nullptr), TAVRIK_OK);
    }
    ~Faults() override {
        tavrik_scanner_close(scanner_);
        tavrik_rules_free(rules_);
        tavrik_module_close(module_);
    }

    tavrik_module *module_ = nullptr;
    tavrik_rules *rules_ = nullptr;
    tavrik_scanner *scanner_ = nullptr;
};

TEST_F(Faults, OfAllocationsInTheLibraryAreReportedAndLeaveNothing) {
    const std::string path = (base::ProgramFolder() / "tavrik2.hbx").string();
    const base::Bytes bytes = SampleBytes(7);
    const tavrik_input input = tavrik_input_bytes("x", bytes.data(), bytes.size());
    {
        SCOPED_TRACE("module");
        ExhaustAllocations([&](std::string &result) {
            tavrik_module *module = nullptr;
            const tavrik_status status = tavrik_module_open(path.c_str(), &module, nullptr);
            EXPECT_EQ(module != nullptr, status == TAVRIK_OK);
            if (module != nullptr)
                result = tavrik_module_rule_count(module) == 6528 ? "all" : "";
            tavrik_module_close(module);
            return status;
        });
    }
    {
        SCOPED_TRACE("rules and scanner");
        ExhaustAllocations([&](std::string &result) {
            tavrik_rules *rules = nullptr;
            tavrik_status status = tavrik_rules_parse("small", kRules, sizeof kRules - 1, &rules, nullptr);
            EXPECT_EQ(rules != nullptr, status == TAVRIK_OK);
            tavrik_settings settings = {};
            settings.size = sizeof settings;
            settings.rules = rules;
            tavrik_scanner *scanner = nullptr;
            if (status == TAVRIK_OK)
                status = tavrik_scanner_open(module_, &settings, &scanner, nullptr);
            EXPECT_EQ(scanner != nullptr, status == TAVRIK_OK);
            if (status == TAVRIK_OK)
                result = tavrik_rules_count(rules) == 1 ? "one" : "";
            tavrik_scanner_close(scanner);
            tavrik_rules_free(rules);
            return status;
        });
    }
    {
        SCOPED_TRACE("scan");
        auto settings = Sized<tavrik_settings>();
        settings.sha256 = 1;
        settings.rules = rules_;
        settings.near_conditions = 4;
        settings.inside = 1;
        tavrik_scanner *wide = nullptr;
        ASSERT_EQ(tavrik_scanner_open(module_, &settings, &wide, nullptr), TAVRIK_OK);
        ExhaustAllocations([&](std::string &result) {
            tavrik_report *reports[2] = {};
            tavrik_status status = tavrik_scan(wide, &input, nullptr, &reports[0], nullptr);
            if (status == TAVRIK_OK)
                status = tavrik_scan_many(wide, &input, 1, nullptr, &reports[1], nullptr);
            for (tavrik_report *report : reports) {
                if (status == TAVRIK_OK && *tavrik_report_json(report) == '\0')
                    status = TAVRIK_ERROR_MEMORY;
                if (status == TAVRIK_OK)
                    result.append(tavrik_report_json(report));
                tavrik_report_free(report);
            }
            return status;
        });
        tavrik_scanner_close(wide);
    }
    {
        SCOPED_TRACE("explanations");
        ExhaustAllocations([&](std::string &result) {
            tavrik_explanation *rule = nullptr;
            tavrik_explanation *locator = nullptr;
            tavrik_status status = tavrik_explain_rule(scanner_, &input, 7, nullptr, &rule, nullptr);
            if (status == TAVRIK_OK)
                status = tavrik_explain_locator(scanner_, &input, 7, nullptr, &locator, nullptr);
            if (status == TAVRIK_OK)
                result.append(tavrik_explanation_text(rule)).append(tavrik_explanation_text(locator));
            tavrik_explanation_free(rule);
            tavrik_explanation_free(locator);
            return status;
        });
    }
    {
        SCOPED_TRACE("features");
        ExhaustAllocations([&](std::string &result) {
            tavrik_features *features = nullptr;
            const tavrik_status status = tavrik_features_read(scanner_, &input, nullptr, &features, nullptr);
            if (status == TAVRIK_OK)
                result = tavrik_features_count(features) > 100 ? "many" : "";
            tavrik_features_free(features);
            return status;
        });
    }
}

// ---- Misuse --------------------------------------------------------------------------------------------------------

// Every function with null for what must be there, and with numbers, sizes and combinations that cannot be.
TEST_F(Faults, OfTheCallerAreRefused) {
    const base::Bytes bytes = SampleBytes(7);
    const tavrik_input good = tavrik_input_bytes("x", bytes.data(), bytes.size());
    tavrik_input sizeless = good;
    sizeless.size = 0;
    const tavrik_input empty = tavrik_input_path(nullptr);
    tavrik_stream without_function = Sized<tavrik_stream>();
    without_function.length = 1;
    const tavrik_input silent = tavrik_input_stream("x", &without_function);
    tavrik_settings backwards = Sized<tavrik_settings>();
    backwards.timeout = -1;
    tavrik_settings sizeless_settings = Sized<tavrik_settings>();
    sizeless_settings.size = 0;
    auto rule = Sized<tavrik_rule>();
    auto locator = Sized<tavrik_locator>();
    auto diagnostic = Sized<tavrik_diagnostic>();
    auto summary = Sized<tavrik_summary>();
    auto detection = Sized<tavrik_detection>();
    auto finding = Sized<tavrik_finding>();
    auto payload = Sized<tavrik_payload>();
    auto feature = Sized<tavrik_feature>();
    tavrik_module *module = nullptr;
    tavrik_rules *rules = nullptr;
    tavrik_scanner *scanner = nullptr;
    tavrik_report *none = nullptr;
    tavrik_explanation *explanation = nullptr;
    tavrik_features *features = nullptr;
    tavrik_report *report = nullptr;
    ASSERT_EQ(tavrik_scan(scanner_, &good, nullptr, &report, nullptr), TAVRIK_OK);
    const struct {
        const char *call;
        tavrik_status status;
    } refused[] = {
        {"open without place", tavrik_module_open(nullptr, nullptr, nullptr)},
        {"rule of null", tavrik_module_rule(nullptr, 0, &rule)},
        {"rule into null", tavrik_module_rule(module_, 0, nullptr)},
        {"rule after the last", tavrik_module_rule(module_, SIZE_MAX, &rule)},
        {"locator of null", tavrik_module_locator(nullptr, 0, &locator)},
        {"locator into null", tavrik_module_locator(module_, 0, nullptr)},
        {"locator after the last", tavrik_module_locator(module_, 50, &locator)},
        {"parse without place", tavrik_rules_parse("x", "", 0, nullptr, nullptr)},
        {"parse null", tavrik_rules_parse("x", nullptr, 1, &rules, nullptr)},
        {"diagnostic of null", tavrik_rules_diagnostic(nullptr, 0, &diagnostic)},
        {"diagnostic after the last", tavrik_rules_diagnostic(rules_, 0, &diagnostic)},
        {"scanner without place", tavrik_scanner_open(module_, nullptr, nullptr, nullptr)},
        {"scanner without module", tavrik_scanner_open(nullptr, nullptr, &scanner, nullptr)},
        {"negative time", tavrik_scanner_open(module_, &backwards, &scanner, nullptr)},
        {"settings without size", tavrik_scanner_open(module_, &sizeless_settings, &scanner, nullptr)},
        {"cancel without place", tavrik_cancel_create(nullptr)},
        {"scan without place", tavrik_scan(scanner_, &good, nullptr, nullptr, nullptr)},
        {"scan without scanner", tavrik_scan(nullptr, &good, nullptr, &none, nullptr)},
        {"scan of null", tavrik_scan(scanner_, nullptr, nullptr, &none, nullptr)},
        {"scan of nothing", tavrik_scan(scanner_, &empty, nullptr, &none, nullptr)},
        {"input without size", tavrik_scan(scanner_, &sizeless, nullptr, &none, nullptr)},
        {"many without scanner", tavrik_scan_many(nullptr, &good, 1, nullptr, &none, nullptr)},
        {"many without inputs", tavrik_scan_many(scanner_, nullptr, 1, nullptr, &none, nullptr)},
        {"many without places", tavrik_scan_many(scanner_, &good, 1, nullptr, nullptr, nullptr)},
        {"rule of no text", tavrik_rules_rule(nullptr, 0, &rule)},
        {"rule after the text's last", tavrik_rules_rule(rules_, 1, &rule)},
        {"stream without function", tavrik_scan(scanner_, &silent, nullptr, &none, nullptr)},
        {"summary of null", tavrik_report_summary(nullptr, &summary)},
        {"summary into null", tavrik_report_summary(report, nullptr)},
        {"detection of null", tavrik_report_detection(nullptr, 0, &detection)},
        {"detection after the last", tavrik_report_detection(report, 99, &detection)},
        {"finding of null", tavrik_report_finding(nullptr, 0, &finding)},
        {"finding after the last", tavrik_report_finding(report, 99, &finding)},
        {"payload of null", tavrik_report_payload(nullptr, 0, &payload)},
        {"payload after the last", tavrik_report_payload(report, 99, &payload)},
        {"rule without place", tavrik_explain_rule(scanner_, &good, 7, nullptr, nullptr, nullptr)},
        {"rule without scanner", tavrik_explain_rule(nullptr, &good, 7, nullptr, &explanation, nullptr)},
        {"rule of no input", tavrik_explain_rule(scanner_, nullptr, 7, nullptr, &explanation, nullptr)},
        {"no such entry", tavrik_explain_locator(scanner_, &good, 50, nullptr, &explanation, nullptr)},
        {"features without place", tavrik_features_read(scanner_, &good, nullptr, nullptr, nullptr)},
        {"features without scanner", tavrik_features_read(nullptr, &good, nullptr, &features, nullptr)},
        {"feature of null", tavrik_features_get(nullptr, 0, &feature)},
    };
    for (const auto &row : refused)
        EXPECT_EQ(row.status, TAVRIK_ERROR_ARGUMENT) << row.call;
    EXPECT_TRUE(module == nullptr && rules == nullptr && scanner == nullptr && none == nullptr &&
                explanation == nullptr && features == nullptr);
    EXPECT_EQ(tavrik_explain_rule(scanner_, &good, 8, nullptr, &explanation, nullptr), TAVRIK_ERROR_NO_SUCH_RULE);
    // What only asks answers nothing of nothing, and releasing nothing does nothing.
    EXPECT_EQ(tavrik_module_rule_count(nullptr) + tavrik_module_locator_count(nullptr) + tavrik_rules_count(nullptr) +
                  tavrik_rules_diagnostic_count(nullptr) + tavrik_features_count(nullptr) +
                  tavrik_explanation_holds(nullptr),
              0u);
    EXPECT_STREQ(tavrik_module_path(nullptr), "");
    EXPECT_STREQ(tavrik_report_json(nullptr), "");
    EXPECT_STREQ(tavrik_explanation_text(nullptr), "");
    EXPECT_STREQ(tavrik_status_name(-1), "unknown");
    tavrik_module_close(nullptr);
    tavrik_rules_free(nullptr);
    tavrik_scanner_close(nullptr);
    tavrik_cancel_request(nullptr);
    tavrik_cancel_free(nullptr);
    tavrik_report_free(nullptr);
    tavrik_explanation_free(nullptr);
    tavrik_features_free(nullptr);
    tavrik_report_free(report);
}

// ---- Reads ---------------------------------------------------------------------------------------------------------

/** What goes wrong with a read, from the nth on or once. */
enum class Fault { FailsOnce, FailsFromThenOn, Short, Nothing, FileEnds };
constexpr Fault kFaults[] = {Fault::FailsOnce, Fault::FailsFromThenOn, Fault::Short, Fault::Nothing, Fault::FileEnds};

/** A file on a bad disk, or one that others cut while it is read. */
class FaultySource final : public base::ByteSource {
public:
    FaultySource(const base::Bytes &bytes, Fault fault, int nth) : memory_(bytes), fault_(fault), nth_(nth) {}

    uint64_t size() const override { return memory_.size(); }
    const std::string &error() const override { return error_; }
    bool happened() const { return count_ >= nth_; }

    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override {
        const bool is_due = ++count_ == nth_;
        const bool goes_on = count_ > nth_ && (fault_ == Fault::FailsFromThenOn || fault_ == Fault::FileEnds);
        if (!is_due && !goes_on)
            return memory_.ReadAt(offset, buffer, length);
        if (fault_ == Fault::Short)
            return memory_.ReadAt(offset, buffer, length / 2);
        if (fault_ == Fault::FailsOnce || fault_ == Fault::FailsFromThenOn)
            error_ = "bad disk";
        return 0;
    }

private:
    base::MemorySource memory_;
    Fault fault_;
    int nth_;
    int count_ = 0;
    std::string error_;
};

/** Does the work with each read going wrong in turn, in all ways. `work` returns whether the failure was told. */
void ExhaustReads(const base::Bytes &bytes, const std::function<bool(base::ByteSource &)> &work) {
    base::MemorySource right(bytes);
    EXPECT_FALSE(work(right)); // what is made once in a process is made here
    for (const Fault fault : kFaults) {
        constexpr int kMost = 2'000;
        int nth = 1;
        for (bool happened = true; happened && nth < kMost; ++nth) {
            FaultySource source(bytes, fault, nth);
            const long alive = g_alive;
            const bool told = work(source);
            EXPECT_EQ(g_alive, alive) << "read " << nth;
            happened = source.happened();
            EXPECT_EQ(told, !source.error().empty()) << "fault " << static_cast<int>(fault) << ", read " << nth;
        }
        EXPECT_LT(nth, kMost);
    }
}

// The samples are spread over as many tests, which run at once.
constexpr std::size_t kGroups = 12;

class ReadFaults : public testing::TestWithParam<std::size_t> {};

TEST_P(ReadFaults, OfScansAndContentsAreTold) {
    const auto scanner = ScannerOf(50);
    // The first dozens of files are answered without the table of rules, which stays once it is made.
    constexpr int kFilesUntilTheTable = 100;
    const samples::Sample first_sample = samples::MakeSample(0);
    base::MemorySource first(first_sample.bytes);
    for (int file = 0; file < kFilesUntilTheTable; ++file)
        scanner->Scan(first, "x");
    for (std::size_t index = GetParam(); index < samples::SampleCount(); index += kGroups) {
        const samples::Sample sample = samples::MakeSample(index);
        SCOPED_TRACE(sample.file_name);
        const auto scan = [&](base::ByteSource &source) {
            const scanner::FileReport report = scanner->Scan(source, "x");
            EXPECT_EQ(report.status == scanner::ScanStatus::Failed, !report.error.empty());
            for (const scanner::Finding &finding : report.findings)
                EXPECT_LT(finding.offset, source.size());
            return report.status == scanner::ScanStatus::Failed;
        };
        ExhaustReads(sample.bytes, scan);
        const auto unpack = [&](base::ByteSource &source) {
            try {
                for (const scanner::ContentsPlace &place : scanner::ContentsOf(*scanner, source)) {
                    const auto container = scanner::Open(source, place);
                    while (const auto member = container->Next()) {
                        char piece[4096];
                        while (container->Read(piece, sizeof piece) != 0) {
                        }
                    }
                }
                return !source.error().empty();
            } catch (const base::Error &) {
                return !source.error().empty();
            }
        };
        ExhaustReads(sample.bytes, unpack);
    }
}

INSTANTIATE_TEST_SUITE_P(Samples, ReadFaults, testing::Range<std::size_t>(0, kGroups));

} // namespace
} // namespace tavrik::tests
