// What tavrik-scan prints, whole, on the sample set, on specimens of rules, and on files that are not PE.
#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "samples/samples.h"
#include "tests/support/command.h"

namespace tavrik::tests {
namespace {

class ScanOutput : public testing::TestWithParam<const char *> {
    FreshFolder folder_;
};

TEST_P(ScanOutput, IsAsInItsTranscript) {
    for (std::size_t index = 0; index < samples::SampleCount(); ++index) {
        const samples::Sample sample = samples::MakeSample(index);
        Write("samples/" + sample.file_name, sample.bytes);
    }
    // Of the rules that have clean actions and of some more.
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    for (std::size_t place = 0; place < generator.size(); ++place)
        for (const uint32_t rule : {2u, 147u, 173u, 175u, 1000u})
            if (generator.RuleId(place) == rule)
                Write(fmt::format("specimens/{}.exe", rule), *generator.SpecimenImage(place));
    Write("text", "not a program");
    Write("empty", "");
    Write("cut", "MZ");
    ExpectTranscript(GetParam());
}

INSTANTIATE_TEST_SUITE_P(Of, ScanOutput,
                         testing::Values("scan/commands", "scan/explain", "scan/files", "scan/input", "scan/rules",
                                         "scan/scan", "scan/views", "scan/wrong"));

} // namespace
} // namespace tavrik::tests
