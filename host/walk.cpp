#include "host/walk.h"

#include <algorithm>
#include <system_error>
#include <vector>

namespace tavrik::host {

namespace fs = std::filesystem;

namespace {

// Only the entries of the folders on the way down are held at a time, however many files there are below.
void WalkFolder(const fs::path &folder, const WalkVisitor &visitor) {
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
        entries.push_back(*entry);
    if (error)
        visitor.error(folder, "folder cannot be read: " + error.message());
    std::sort(entries.begin(), entries.end());
    for (const fs::directory_entry &entry : entries) {
        std::error_code status_error;
        const fs::file_type type = entry.symlink_status(status_error).type();
        if (type == fs::file_type::directory)
            WalkFolder(entry.path(), visitor);
        else if (type == fs::file_type::regular)
            visitor.file(entry.path());
        else if (type == fs::file_type::none)
            visitor.error(entry.path(), status_error.message());
    }
}

} // namespace

void Walk(const fs::path &path, bool recursive, const WalkVisitor &visitor) {
    std::error_code ignored;
    if (!fs::is_directory(path, ignored))
        visitor.file(path);
    else if (recursive)
        WalkFolder(path, visitor);
    else
        visitor.error(path, "is a folder; add -r to scan the files in it");
}

} // namespace tavrik::host
