// What tavrik-rules and tavrik-rulegen print, whole, and the files that they write.
#include "tests/support/command.h"

namespace tavrik::tests {
namespace {

class RulesCommand : public testing::TestWithParam<const char *> {
    FreshFolder folder_;
};

TEST_P(RulesCommand, DoesWhatItsTranscriptSays) {
    ExpectTranscript(GetParam());
}

INSTANTIATE_TEST_SUITE_P(For, RulesCommand,
                         testing::Values("rules/check", "rules/draft", "rules/files", "rules/try", "rules/yara"));

} // namespace
} // namespace tavrik::tests
