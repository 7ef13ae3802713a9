#include <optional>
#include <utility>

#include <fmt/format.h>

#include "base/console.h"
#include "base/ordered_pool.h"
#include "base/path_list.h"
#include "base/system.h"
#include "base/text.h"
#include "base/walk.h"
#include "store/adder.h"
#include "tools/tavrik-corpus/commands.h"

namespace tavrik::corpus_tool {

namespace fs = std::filesystem;

namespace {

// Files that a thread takes at once, so that the others have work while one writes to the store.
constexpr std::size_t kFilesOfAJob = 8;

using AddJob = std::vector<fs::path>;
using AddResult = std::vector<store::Adder::Examined>;

class AddRun {
public:
    explicit AddRun(const AddOptions &options)
        : options_(options), store_(options.store, store::Store::Access::Create),
          adder_(store_, {!options.no_digests, options.digests, options.commit_every}),
          pool_(
              options.threads, [this](AddJob &job, unsigned) { return Work(job); },
              [this](AddResult &result) { Deliver(result); }) {}

    int Run() {
        base::NoteInterruptions();
        for (const std::string &path : options_.paths)
            Walk(base::PathOf(path));
        if (!options_.list.empty()) {
            base::PathList list(base::PathOf(options_.list), '\n');
            while (const std::optional<fs::path> path = list.Next())
                Walk(*path);
        }
        Submit();
        pool_.Finish();
        adder_.Finish();
        return Report();
    }

private:
    AddResult Work(const AddJob &job) const {
        AddResult result;
        for (const fs::path &path : job)
            if (base::Interruption() == 0)
                result.push_back(adder_.Examine(path));
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
            pool_.Submit(std::exchange(job_, {}));
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
    base::OrderedPool<AddJob, AddResult> pool_;
};

} // namespace

fs::path StoredPath(const fs::path &path) {
    return fs::absolute(path).lexically_normal();
}

int Add(const AddOptions &options) {
    return AddRun(options).Run();
}

} // namespace tavrik::corpus_tool
