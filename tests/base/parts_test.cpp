// Hashes, patterns, the pool of threads and the writer of bytes.
#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "base/byte_writer.h"
#include "base/crc32.h"
#include "base/glob.h"
#include "base/ordered_pool.h"
#include "base/sha256.h"
#include "tests/support/fresh_folder.h"

namespace tavrik::tests {
namespace {

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

TEST(Crc32, DependsOnEveryBitAndJoinsPieces) {
    const std::string text = "The quick brown fox jumps over the lazy dog";
    const uint32_t whole = base::Crc32(BytesOf(text));
    EXPECT_EQ(whole, 0x414FA339u); // published
    for (std::size_t cut = 0; cut <= text.size(); ++cut)
        EXPECT_EQ(base::Crc32(BytesOf(text).subspan(cut), base::Crc32(BytesOf(text).first(cut))), whole);
    std::set<uint32_t> seen = {whole};
    for (std::size_t bit = 0; bit < 8 * text.size(); ++bit) {
        std::string altered = text;
        altered[bit / 8] = static_cast<char>(altered[bit / 8] ^ 1 << bit % 8);
        EXPECT_TRUE(seen.insert(base::Crc32(BytesOf(altered))).second) << bit;
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
                {"*ab", "aab", true},
                {"a**", "a", true},
                {"a*?", "a", false},
                {"?", "\xC3\xA4", true},
                {"??", "\xC3\xA4", false},
                {"?b",
                 "\xE2\x82\xAC"
                 "b",
                 true},
                {"[a-c]x", "bx", true},
                {"[a-c]", "a", true},
                {"[a-c]", "c", true},
                {"[a-c]", "d", false},
                {"[a-c]", "-", false},
                {"[!a-c]x", "bx", false},
                {"[!a-c]x", "dx", true},
                {"[a-cx-z]", "y", true},
                {"[a-c.]", ".", true},
                {"[]]", "]", true},
                {"[!]]", "]", false},
                {"[!]]", "a", true},
                {"[!a]", "!", true},
                {"[a", "[a", true},
                {"[a-]", "-", true},
                {"[a-]", "a", true},
                {"[\xE0-\xFF]", "\xF0", true},
                {"*.exe", "a.exe.b", false},
                {"*.exe", ".exe", true},
                {"a/*", "a/b/c", true},
                {"?", "", false}};
    for (const auto &row : rows)
        EXPECT_EQ(base::MatchesGlob(row.pattern, row.text), row.matches) << row.pattern << " on " << row.text;
    // Patterns with many stars end in reasonable time.
    std::string stars;
    for (int i = 0; i < 50; ++i)
        stars += "*a";
    EXPECT_FALSE(base::MatchesGlob(stars, std::string(1000, 'a') + 'b'));
}

// ---- The pool ------------------------------------------------------------------------------------------------------

using Pool = base::OrderedPool<int, int>;

TEST(OrderedPool, DeliversInOrderAndBoundsWhatIsUnderWay) {
    for (const unsigned threads : {1u, 2u, 7u}) {
        std::atomic<std::size_t> under_way = 0;
        std::atomic<std::size_t> most = 0;
        std::atomic<int> delivering = 0;
        std::vector<int> results;
        std::mutex mutex;
        std::set<std::thread::id> workers;
        std::set<unsigned> numbers;
        Pool pool(
            threads,
            [&](int &job, unsigned thread) {
                const std::lock_guard lock(mutex);
                workers.insert(std::this_thread::get_id());
                numbers.insert(thread);
                return 2 * job;
            },
            [&](int &result) {
                EXPECT_EQ(++delivering, 1) << "two deliveries at a time";
                results.push_back(result);
                --under_way;
                --delivering;
            });
        pool.Finish(); // without a job
        for (int job = 0; job < 5000; ++job) {
            most = std::max<std::size_t>(most, ++under_way);
            pool.Submit(job);
        }
        pool.Finish();
        ASSERT_EQ(results.size(), 5000u);
        for (std::size_t place = 0; place < results.size(); ++place)
            ASSERT_EQ(results[place], static_cast<int>(2 * place));
        // Those that are delivered are no longer counted, and the one that waits for room not yet.
        EXPECT_LE(most, threads * Pool::kJobsPerThread + Pool::kMostTaken + 1);
        EXPECT_LT(*numbers.rbegin(), threads);
        EXPECT_EQ(workers.contains(std::this_thread::get_id()), threads == 1);
        EXPECT_EQ(workers.size(), numbers.size());
    }
}

TEST(OrderedPool, WorksInSeveralThreadsAtOnceAndFillsItsRoom) {
    std::atomic<int> working = 0;
    std::atomic<bool> met = false;
    std::atomic<std::size_t> submitted = 0;
    std::vector<int> results;
    Pool pool(
        2,
        [&](int &job, unsigned) {
            // The first job ends once another one has been begun and the queue has been filled after both.
            if (job == 0)
                while (!met || submitted < 2 * Pool::kJobsPerThread)
                    std::this_thread::yield();
            else
                met = true;
            ++working;
            return job;
        },
        [&](int &result) { results.push_back(result); });
    for (int job = 0; job < static_cast<int>(2 * Pool::kJobsPerThread); ++job) {
        pool.Submit(job);
        ++submitted;
    }
    pool.Finish();
    EXPECT_EQ(results.size(), 2 * Pool::kJobsPerThread);
    EXPECT_TRUE(std::is_sorted(results.begin(), results.end()));
}

TEST(OrderedPool, BeginsNothingNewWhileTooMuchWaits) {
    std::atomic<int> begun = 0;
    std::atomic<int> heavy = 0;
    std::vector<int> results;
    Pool pool(
        2,
        [&](int &job, unsigned) {
            ++begun;
            // The first job outlasts another one, whose result has to wait for it.
            while (job == 0 && heavy == 0)
                std::this_thread::yield();
            if (job == 0) {
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
                EXPECT_EQ(begun, 2);
            }
            return job;
        },
        [&](int &result) { results.push_back(result); },
        [&](const int &result) {
            heavy += result;
            return result == 0 ? 1 : Pool::kMostWaiting + 1;
        });
    for (int job = 0; job < 9; ++job)
        pool.Submit(job);
    pool.Finish();
    EXPECT_EQ(results, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(OrderedPool, ThrowsWhatWorkAndDeliveryThrow) {
    for (const unsigned threads : {1u, 3u})
        for (const bool in_work : {false, true})
            for (const int jobs : {501, 100'000}) { // the failure is seen by Finish or by Submit
                const auto run = [&] {
                    Pool pool(
                        threads,
                        [&](int &job, unsigned) {
                            return in_work && job == 500 ? throw std::runtime_error("work") : job;
                        },
                        [&](int &result) {
                            if (!in_work && result == 500)
                                throw std::runtime_error("delivery");
                        });
                    for (int job = 0; job < jobs; ++job)
                        pool.Submit(job);
                    pool.Finish();
                };
                try {
                    run();
                    ADD_FAILURE() << "nothing is thrown, " << threads << in_work;
                } catch (const std::runtime_error &error) {
                    EXPECT_STREQ(error.what(), in_work ? "work" : "delivery");
                }
            }
}

TEST(OrderedPool, DropsJobsThatNobodyWaitsFor) {
    std::atomic<bool> may_end = false;
    std::atomic<int> done = 0;
    std::thread releaser;
    {
        Pool pool(
            2,
            [&](int &job, unsigned) {
                while (!may_end)
                    std::this_thread::yield();
                ++done;
                return job;
            },
            [](int &) {});
        for (int job = 0; job < 100; ++job)
            pool.Submit(job);
        releaser = std::thread([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            may_end = true;
        });
    }
    releaser.join();
    EXPECT_LE(done, 10) << "the destructor worked on jobs";
}

// ---- The writer ----------------------------------------------------------------------------------------------------

TEST(ByteWriter, WritesLittleEndianValuesAndFillsUp) {
    base::ByteWriter writer;
    writer.U16(0x1234);
    writer.U32(0x56789ABC);
    writer.U64(0x0102030405060708);
    writer.Text("ab");
    writer.Utf16(u"c\u20AC");
    writer.Append({7, 8});
    EXPECT_EQ(writer.size(), 23u);
    writer.Align(8);
    writer.Align(8);
    writer.FillTo(26);
    writer.FillTo(26);
    EXPECT_THROW(writer.FillTo(25), std::invalid_argument);
    writer.SetU16(24, 0xFFEE);
    const base::Bytes expected = {0x34, 0x12, 0xBC, 0x9A, 0x78, 0x56, 8,    7,    6, 5, 4, 3,    2,
                                  1,    'a',  'b',  0,    'c',  0,    0xAC, 0x20, 7, 8, 0, 0xEE, 0xFF};
    EXPECT_EQ(writer.Take(), expected);
    EXPECT_EQ(base::AlignUp(0x1001, 0x200), 0x1200u);
    EXPECT_EQ(base::AlignUp(0x1000, 0x200), 0x1000u);
    EXPECT_EQ(base::InFile(UINT32_MAX), UINT32_MAX);
    EXPECT_THROW(base::InFile(uint64_t{UINT32_MAX} + 1), std::invalid_argument);
    EXPECT_THROW(base::AlignUp(UINT32_MAX, 0x200), std::invalid_argument);
}

} // namespace
} // namespace tavrik::tests
