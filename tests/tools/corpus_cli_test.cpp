// What tavrik-corpus prints, whole, and that a store survives a kill at any moment.
#include <gtest/gtest.h>

#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "tests/support/command.h"

namespace tavrik::tests {
namespace {

TEST(CorpusCommand, DoesWhatItsTranscriptSays) {
    const FreshFolder folder;
    ExpectTranscript("corpus/commands");
}

// The number of files in the store, or 0 where there is none yet. What is there must be whole.
int FilesIn(const std::string &store) {
    if (!std::filesystem::exists(store) || std::filesystem::file_size(store) == 0)
        return 0;
    const Outcome outcome = Shell("tavrik-corpus verify " + store);
    if (outcome.code == 2 && outcome.err.find("no store of features") != std::string::npos)
        return 0; // killed before its tables were made
    EXPECT_EQ(outcome.code, 0) << outcome.err;
    return std::atoi(outcome.out.c_str());
}

TEST(CorpusCommand, GoesOnAfterAKillAtAnyMoment) {
    const FreshFolder folder;
    const rules::RuleSet written = generator::WrittenRules();
    const generator::Generator generator(written);
    constexpr int kFiles = 400;
    for (int number = 0; number < kFiles; ++number)
        Write(fmt::format("files/{}.exe", number), *generator.SpecimenImage(static_cast<std::size_t>(number)));
    int before = 0;
    int partial = 0;
    for (int milliseconds = 1; before < kFiles && milliseconds < 4000; milliseconds += 2 + milliseconds / 3) {
        Shell(fmt::format("tavrik-corpus add a.store files --commit-every 10 -j 2 >/dev/null & pid=$!\n"
                          "sleep {}; kill -9 $pid; wait $pid",
                          milliseconds / 1000.0));
        const int after = FilesIn("a.store");
        EXPECT_GE(after, before) << "work was lost";
        partial += after > 0 && after < kFiles ? 1 : 0;
        before = after;
    }
    EXPECT_GT(partial, 0) << "no kill came while files were being added";
    EXPECT_EQ(Shell("tavrik-corpus add a.store files").code, 0);
    EXPECT_EQ(Shell("tavrik-corpus add b.store files").out, "400 files added, 0 replaced, 0 unchanged, 0 set aside\n");
    EXPECT_EQ(FilesIn("a.store"), kFiles);
    EXPECT_EQ(Shell("for s in a b; do tavrik-corpus export $s.store | sort > $s.csv; done; cmp a.csv b.csv").code, 0);
}

} // namespace
} // namespace tavrik::tests
