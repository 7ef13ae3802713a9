#include <fmt/format.h>

#include "base/console.h"
#include "base/text.h"
#include "store/adder.h"
#include "store/store.h"
#include "tools/tavrik-corpus/commands.h"

namespace tavrik::corpus_tool {

int Verify(const std::filesystem::path &path) {
    store::Store store(path, store::Store::Access::Read);
    store.CheckDatabase();
    uint64_t files = 0;
    const std::vector<store::SegmentEntry> entries = store.Segments();
    for (const store::SegmentEntry &entry : entries) {
        store.Open(entry)->AllFiles();
        files += entry.live();
    }
    base::Print(fmt::format("{} in {}, all whole\n", base::CountText(files, "file"),
                            base::CountText(entries.size(), "segment")));
    return kFine;
}

int ForgetPaths(const std::filesystem::path &path, const std::vector<std::string> &paths) {
    std::vector<std::string> stored;
    for (const std::string &each : paths)
        stored.push_back(base::PathText(StoredPath(base::PathOf(each))));
    store::Store store(path, store::Store::Access::Write);
    const uint64_t count = store::Forget(store, stored);
    base::Print(fmt::format("{} forgotten\n", base::CountText(count, "file")));
    return count > 0 ? kFine : kFound;
}

int Merge(const std::filesystem::path &path, const std::vector<std::string> &others) {
    store::Store store(path, store::Store::Access::Create);
    store::Adder adder(store);
    uint64_t faults = 0;
    for (const std::string &name : others) {
        store::Store other(base::PathOf(name), store::Store::Access::Read);
        for (const store::SegmentEntry &entry : other.Segments()) {
            std::vector<store::StoredFile> files = other.Open(entry)->AllFiles();
            for (std::size_t row = 0; row < files.size(); ++row)
                if (row >= entry.is_gone.size() || !entry.is_gone[row])
                    adder.Take(adder.Examine(std::move(files[row])));
        }
        for (const store::Fault &fault : other.Faults()) {
            adder.Take({fault.path, std::nullopt, std::nullopt, fault.reason, fault.stamp});
            ++faults;
        }
    }
    adder.Finish();
    const store::AddCounts &counts = adder.counts();
    base::Print(fmt::format("{} added, {} replaced, {} unchanged, {} set aside\n",
                            base::CountText(counts.added, "file"), counts.replaced, counts.unchanged,
                            counts.set_aside));
    return faults > 0 ? kFound : kFine;
}

} // namespace tavrik::corpus_tool
