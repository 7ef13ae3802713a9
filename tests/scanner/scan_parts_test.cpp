// Parts of the scanner that its command line shows only roughly.
#include <atomic>
#include <stdexcept>

#include <gtest/gtest.h>

#include "base/glob.h"
#include "base/ordered_pool.h"
#include "base/sha256.h"
#include "scanner/carve.h"
#include "scanner/totals.h"
#include "scanner/watched_source.h"

namespace tavrik::tests {
namespace {

std::span<const uint8_t> BytesOf(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

// The vectors that were published with the function.
TEST(Sha256, GivesThePublishedDigestsHoweverTheBytesCome) {
    const std::pair<std::string, const char *> rows[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {std::string(1'000'000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"}};
    for (const auto &[text, digest] : rows) {
        base::MemorySource source(BytesOf(text));
        EXPECT_EQ(base::Sha256Of(source), digest);
    }
    // Every length around the ends of blocks, in two pieces.
    for (std::size_t length = 0; length < 200; ++length) {
        const std::string text(length, 'x');
        base::Sha256 whole;
        whole.Update(BytesOf(text));
        const base::Sha256::Digest digest = whole.Finish();
        for (std::size_t cut = 0; cut <= length; cut += 7) {
            base::Sha256 pieces;
            pieces.Update(BytesOf(text).first(cut));
            pieces.Update(BytesOf(text).subspan(cut));
            EXPECT_EQ(pieces.Finish(), digest) << length << " cut at " << cut;
        }
    }
}

TEST(Glob, MatchesWholeTexts) {
    const struct {
        const char *pattern;
        const char *text;
        bool matches;
    } rows[] = {{"*", "", true},
                {"", "", true},
                {"", "a", false},
                {"a*b*c", "aXbYbZc", true},
                {"a*b*c", "aXbYbZ", false},
                {"?", "\xC3\xA4", true},
                {"??", "\xC3\xA4", false},
                {"[a-c]x", "bx", true},
                {"[!a-c]x", "bx", false},
                {"[]]", "]", true},
                {"[!]]", "]", false},
                {"[a", "[a", true},
                {"[a-]", "-", true},
                {"*.exe", "a.exe.b", false},
                {"a/*", "a/b/c", true},
                {"?", "", false}};
    for (const auto &row : rows)
        EXPECT_EQ(base::MatchesGlob(row.pattern, row.text), row.matches) << row.pattern << " on " << row.text;
    // Hopeless patterns come to an end.
    std::string stars;
    for (int i = 0; i < 50; ++i)
        stars += "*a";
    EXPECT_FALSE(base::MatchesGlob(stars, std::string(1000, 'a') + 'b'));
}

using Pool = base::OrderedPool<int, int>;

TEST(OrderedPool, HandsResultsOnInOrderAndBoundsWhatIsUnderWay) {
    for (const unsigned threads : {1u, 2u, 7u}) {
        std::atomic<std::size_t> under_way = 0;
        std::atomic<std::size_t> most = 0;
        std::vector<int> results;
        Pool pool(
            threads,
            [&](int &job, unsigned) {
                if (job % 100 == 0)
                    std::this_thread::yield();
                return job;
            },
            [&](int &result) {
                results.push_back(result);
                --under_way;
            });
        for (int job = 0; job < 5000; ++job) {
            most = std::max<std::size_t>(most, ++under_way);
            pool.Submit(job);
        }
        pool.Finish();
        ASSERT_EQ(results.size(), 5000u);
        EXPECT_TRUE(std::is_sorted(results.begin(), results.end()));
        // The one that is handed on is no longer counted, and the one that waits for room not yet.
        EXPECT_LE(most, threads * Pool::kJobsPerThread + 2);
    }
}

TEST(OrderedPool, ThrowsWhatWorkAndDeliveryThrow) {
    for (const unsigned threads : {1u, 3u})
        for (const bool in_work : {false, true}) {
            const auto run = [&] {
                Pool pool(
                    threads,
                    [&](int &job, unsigned) { return in_work && job == 500 ? throw std::runtime_error("work") : job; },
                    [&](int &result) {
                        if (!in_work && result == 500)
                            throw std::runtime_error("delivery");
                    });
                for (int job = 0; job < 100'000; ++job)
                    pool.Submit(job);
                pool.Finish();
            };
            EXPECT_THROW(run(), std::runtime_error) << threads << in_work;
        }
}

TEST(WatchedSource, FailsOnceItsTimeIsOver) {
    const std::string text = "text";
    base::MemorySource memory(BytesOf(text));
    char byte = 0;
    scanner::WatchedSource patient(memory, scanner::Deadline(0));
    EXPECT_EQ(patient.ReadAt(0, &byte, 1), 1u);
    EXPECT_EQ(patient.error(), "");
    const scanner::Deadline short_one(1e-9);
    while (!short_one.HasPassed()) {
    }
    scanner::WatchedSource late(memory, short_one);
    EXPECT_EQ(late.ReadAt(0, &byte, 1), 0u);
    EXPECT_NE(late.error(), "");
    EXPECT_FALSE(late.was_interrupted());
}

TEST(SafeName, LeavesNothingThatASystemCouldTakeAmiss) {
    EXPECT_EQ(scanner::SafeName("a/setup.exe"), "setup.exe");
    EXPECT_EQ(scanner::SafeName("-rf"), "_-rf");
    EXPECT_EQ(scanner::SafeName(".hidden"), "_.hidden");
    EXPECT_EQ(scanner::SafeName("a|b*c?"), "a_b_c_");
    std::string name = "x";
    for (int i = 0; i < 120; ++i)
        name += "\xC3\xA4";
    EXPECT_EQ(scanner::SafeName(std::u8string(name.begin(), name.end())), name.substr(0, 199))
        << "cut within a character";
}

TEST(Progress, FitsTheTerminal) {
    const scanner::Totals totals = {.files = 12, .bytes = 0, .detections = 1, .findings = 2, .skipped = 0, .errors = 0};
    const std::string whole = scanner::ProgressLine(totals, 2, "folder/file.exe", 80);
    EXPECT_EQ(whole, "12 files, 3 found, 6 files/s  folder/file.exe");
    for (std::size_t columns = 0; columns < whole.size(); ++columns)
        EXPECT_LE(scanner::ProgressLine(totals, 2, "folder/file.exe", columns).size(), columns);
    EXPECT_TRUE(scanner::ProgressLine(totals, 2, "folder/file.exe", 41).ends_with("  ...file.exe"));
}

} // namespace
} // namespace tavrik::tests
