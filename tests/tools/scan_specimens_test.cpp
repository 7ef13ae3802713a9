// The scanner as a program, natively and under wine, on what it must find: the specimen of every rule and the sample of
// every entry, written to disk and scanned like any other files.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "base/system.h"
#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "samples/samples.h"
#include "tests/support/module_folder.h"
#include "tests/support/sampling.h"

namespace tavrik::tests {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

/** Runs the scanner of this build; what it prints goes to the file `out`. */
void ScanInto(const std::string &arguments, const std::string &out) {
#ifdef _WIN32
    constexpr char kProgram[] = "tavrik-scan.exe";
    constexpr char kOuterQuote[] = "\""; // the command processor takes a pair of quotes off the whole line
#else
    constexpr char kProgram[] = "tavrik-scan";
    constexpr char kOuterQuote[] = "";
#endif
    const std::string program = (base::ProgramFolder() / kProgram).string();
    const std::string command = fmt::format("{0}\"{1}\" {2} > {3}{0}", kOuterQuote, program, arguments, out);
    ASSERT_NE(std::system(command.c_str()), -1) << command;
}

/** The objects that the scanner printed, by the stem of the file's name. */
std::map<std::string, Json> Objects(const std::string &out) {
    std::map<std::string, Json> objects;
    std::ifstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        const Json object = Json::parse(line);
        objects.emplace(fs::path(object["file"].get<std::string>()).stem().string(), object);
    }
    return objects;
}

TEST(ScanOfSpecimens, FindsEachByItsRuleAloneAndSaysHowToClean) {
    const std::map<uint32_t, std::string> actions = {
        {147, "quarantine"}, {173, "quarantine"}, {175, "quarantine-and-trace"}};
    const FreshFolder folder;
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    const rules::RuleSet database = generator.Rules();
    for (std::size_t place = 0; place < generator.size(); place += kSampling)
        Write(fs::path("specimens") / fmt::format("{}.exe", place), *generator.SpecimenImage(place));
    ScanInto("-r -q --json specimens", "found.jsonl");

    const std::map<std::string, Json> objects = Objects("found.jsonl");
    ASSERT_EQ(objects.size(), (generator.size() + kSampling - 1) / kSampling);
    for (std::size_t place = 0; place < generator.size(); place += kSampling) {
        const rules::Rule &rule = database.rules[place];
        const Json &object = objects.at(std::to_string(place));
        const auto action = actions.find(rule.rule_id);
        const Json expected = {{{"rule", rule.rule_id},
                                {"name", rule.detection_name},
                                {"action", action == actions.end() ? "none" : action->second}}};
        EXPECT_EQ(object["detections"], expected) << object;
    }
}

TEST(ScanOfSamples, FindsThePayloadOfEachEntry) {
    const FreshFolder folder;
    for (std::size_t index = 0; index < samples::SampleCount(); ++index)
        Write(fs::path("samples") / fmt::format("{}.exe", index), samples::MakeSample(index).bytes);
    ScanInto("-r -q --json samples", "found.jsonl");

    const std::map<std::string, Json> objects = Objects("found.jsonl");
    ASSERT_EQ(objects.size(), samples::SampleCount());
    for (std::size_t index = 0; index < samples::SampleCount(); ++index) {
        const samples::Sample sample = samples::MakeSample(index);
        const Json &object = objects.at(std::to_string(index));
        bool is_found = false;
        if (sample.finding) {
            const LocatorResult planned = *sample.finding;
            for (const Json &finding : object["findings"])
                is_found = is_found ||
                           (finding["entry"] == *sample.entry && finding["kind"] == uint32_t{planned.kind} &&
                            finding["offset"] == uint32_t{planned.offset} && finding["size"] == uint32_t{planned.size});
        }
        EXPECT_EQ(is_found, sample.finding.has_value()) << sample.file_name << object;
        EXPECT_EQ(object["detections"], Json::array()) << sample.file_name;
    }
}

} // namespace
} // namespace tavrik::tests
