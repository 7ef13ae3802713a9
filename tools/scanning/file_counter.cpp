#include "tools/scanning/file_counter.h"

#include <algorithm>

#include "base/path_list.h"
#include "base/walk.h"

namespace tavrik::scanning {

namespace {

bool CanBeReadTwice(const std::filesystem::path &list) {
    std::error_code ignored;
    return list != kStandardInput && std::filesystem::is_regular_file(list, ignored);
}

} // namespace

FileCounter::FileCounter(const ScanOptions &options, ExpectedFiles &expected)
    : thread_([&options, &expected](const std::stop_token &stop) { Count(options, expected, stop); }) {}

void FileCounter::Count(const ScanOptions &options, ExpectedFiles &expected, const std::stop_token &stop) {
    const auto count = [&](const std::filesystem::path &) {
        ++expected.files_;
        return !stop.stop_requested();
    };
    const base::WalkVisitor visitor = {
        count, [&](const std::filesystem::path &path, const base::Error &) { return count(path); }};
    const auto walk = [&](const std::filesystem::path &path) { return base::Walk(path, options.walk, visitor); };
    const auto walk_labelled = [&](const LabelledPath &labelled) { return walk(labelled.path); };
    if (!std::ranges::all_of(options.paths, walk) || !std::ranges::all_of(options.labelled, walk_labelled))
        return;
    if (options.path_list) {
        if (!CanBeReadTwice(*options.path_list))
            return;
        try {
            base::PathList list(*options.path_list, options.list_separator);
            while (const std::optional<std::filesystem::path> path = list.Next())
                if (!walk(*path))
                    return;
        } catch (const base::Error &) {
            return; // the scan reports it
        }
    }
    expected.is_complete_ = true;
}

} // namespace tavrik::scanning
