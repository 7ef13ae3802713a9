#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "base/apart.h"
#include "base/console.h"
#include "base/ordered_pool.h"
#include "base/path_list.h"
#include "base/system.h"
#include "base/text.h"
#include "base/walk.h"
#include "store/adder.h"
#include "store/journal.h"
#include "tools/tavrik-corpus/commands.h"

namespace tavrik::corpus_tool {

namespace fs = std::filesystem;

namespace {

// Files that a thread takes at once, so that the others have work while one writes to the store.
constexpr std::size_t kFilesOfAJob = 8;

// How long a file that may have ended a program may take: so many seconds, and one more for so many bytes.
constexpr unsigned kSecondsApart = 60;
constexpr uint64_t kBytesOfASecond = 10'000'000;
constexpr uint64_t kMostSecondsApart = 3600;

using AddJob = std::vector<fs::path>;
using AddResult = std::vector<store::Adder::Examined>;

class AddRun {
public:
    explicit AddRun(const AddOptions &options)
        : options_(options), store_(options.store, store::Store::Access::Create),
          adder_(store_, {!options.no_digests, options.digests, options.commit_every}) {}

    int Run() {
        TrySuspects();
        base::NoteInterruptions();
        journal_.emplace(options_.store, options_.threads);
        pool_.emplace(
            options_.threads, [this](AddJob &job, unsigned thread) { return Work(job, thread); },
            [this](AddResult &result) { Deliver(result); });
        for (const std::string &path : options_.paths)
            Walk(base::PathOf(path));
        if (!options_.list.empty()) {
            base::PathList list(base::PathOf(options_.list), '\n');
            while (const std::optional<fs::path> path = list.Next())
                Walk(*path);
        }
        Submit();
        pool_->Finish();
        adder_.Finish();
        return Report();
    }

private:
    // Reads each file that a run before had in hand when it ended, and with --retry those set aside for ending one, in
    // a process of its own. Which of them did it is known then, and this run does not end at it.
    void TrySuspects() {
        std::vector<std::string> suspects = store::Journal::FilesInHand(options_.store);
        if (options_.retry)
            std::ranges::copy(adder_.Barred(), std::back_inserter(suspects));
        for (const std::string &path : suspects) {
            std::error_code missing;
            const uint64_t size = fs::file_size(base::PathOf(path), missing);
            if (missing)
                continue;
            const std::optional<std::string> end = base::TryApart(
                [&] { store::ReadFeatures(base::PathOf(path), !options_.no_digests); },
                kSecondsApart + static_cast<unsigned>(std::min(size / kBytesOfASecond, kMostSecondsApart)));
            if (!end)
                adder_.Bar(path, "a program ended while it read this file");
            else if (!end->empty())
                adder_.Bar(path, "a program that reads it ends: " + *end);
            else
                adder_.Release(path);
        }
    }

    AddResult Work(const AddJob &job, unsigned thread) {
        AddResult result;
        for (const fs::path &path : job)
            if (base::Interruption() == 0) {
                journal_->Take(thread, base::PathText(path));
                result.push_back(adder_.Examine(path));
            }
        journal_->Leave(thread);
        return result;
    }

    void Deliver(AddResult &result) {
        for (store::Adder::Examined &examined : result) {
            if (!examined.fault.empty() && !options_.quiet)
                base::PrintError(fmt::format("tavrik-corpus: set aside: {}: {}\n", base::Printable(examined.path),
                                             base::Printable(examined.fault)));
            adder_.Take(std::move(examined));
        }
    }

    void Walk(const fs::path &path) {
        base::Walk(StoredPath(path), {true, options_.exclude},
                   {[this](const fs::path &file) {
                        job_.push_back(file);
                        if (job_.size() == kFilesOfAJob)
                            Submit();
                        return base::Interruption() == 0;
                    },
                    [this](const fs::path &failed, const base::Error &error) {
                        ++errors_;
                        base::PrintError(
                            fmt::format("tavrik-corpus: {}: {}\n", base::PrintablePath(failed), error.reason()));
                        return true;
                    }});
    }

    void Submit() {
        if (!job_.empty())
            pool_->Submit(std::exchange(job_, {}));
    }

    int Report() const {
        const store::AddCounts &counts = adder_.counts();
        base::Print(fmt::format("{} added, {} replaced, {} unchanged, {} set aside\n",
                                base::CountText(counts.added, "file"), counts.replaced, counts.unchanged,
                                counts.set_aside));
        if (base::Interruption() != 0)
            return kSignalled + base::Interruption();
        return errors_ > 0 ? kFailed : counts.set_aside > 0 ? kFound : kFine;
    }

    const AddOptions &options_;
    store::Store store_;
    store::Adder adder_;
    AddJob job_;
    uint64_t errors_ = 0; // of the walk
    std::optional<store::Journal> journal_;
    std::optional<base::OrderedPool<AddJob, AddResult>> pool_;
};

} // namespace

fs::path StoredPath(const fs::path &path) {
    return fs::absolute(path).lexically_normal();
}

int Add(const AddOptions &options) {
    return AddRun(options).Run();
}

} // namespace tavrik::corpus_tool
