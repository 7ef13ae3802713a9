#include "base/walk.h"

#include <algorithm>
#include <system_error>

#include "base/glob.h"
#include "base/text.h"

namespace tavrik::base {

namespace fs = std::filesystem;

namespace {

Error Unreadable(const fs::path &folder, const std::error_code &error) {
    return {folder, "folder cannot be read: " + error.message(),
            error == std::errc::permission_denied ? ErrorCode::PermissionDenied : ErrorCode::ReadFailed};
}

class Walker {
public:
    Walker(const WalkSettings &settings, const WalkVisitor &visitor) : settings_(settings), visitor_(visitor) {}

    bool IsExcluded(const fs::path &path) const {
        // A folder's path may end with a separator.
        const fs::path name = path.has_filename() ? path.filename() : path.parent_path().filename();
        return std::any_of(settings_.exclude.begin(), settings_.exclude.end(), [&](const std::string &pattern) {
            const bool by_path = pattern.find('/') != std::string::npos;
            return MatchesGlob(pattern, by_path ? GenericText(path) : PathText(name));
        });
    }

    bool WalkFolder(const fs::path &folder) const {
        std::error_code error;
        std::vector<Entry> entries;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
            entries.push_back({entry->path().filename().native(), TypeOf(*entry)});
        if (error && !visitor_.error(folder, Unreadable(folder, error)))
            return false;
        std::sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) { return a.name < b.name; });
        return std::all_of(entries.begin(), entries.end(),
                           [&](const Entry &entry) { return Visit(folder / entry.name, entry.type); });
    }

private:
    struct Entry {
        fs::path::string_type name;
        fs::file_type type;
    };

    // With "/" as the separator on every system.
    static std::string GenericText(const fs::path &path) {
        std::string text = PathText(path);
        std::replace(text.begin(), text.end(), static_cast<char>(fs::path::preferred_separator), '/');
        return text;
    }

    // The entry mostly has the type from the folder, so the file itself is not asked.
    static fs::file_type TypeOf(const fs::directory_entry &entry) {
        std::error_code error;
        if (entry.is_symlink(error))
            return fs::file_type::symlink;
        if (entry.is_directory(error))
            return fs::file_type::directory;
        if (entry.is_regular_file(error))
            return fs::file_type::regular;
        return error ? fs::file_type::none : fs::file_type::unknown;
    }

    bool Visit(const fs::path &path, fs::file_type type) const {
        switch (type) {
        case fs::file_type::directory:
            return IsExcluded(path) || WalkFolder(path);
        case fs::file_type::regular:
            return IsExcluded(path) || visitor_.file(path);
        case fs::file_type::none:
            return IsExcluded(path) || visitor_.error(path, Error(path, "cannot be looked at; it may have gone"));
        default:
            return true;
        }
    }

    const WalkSettings &settings_;
    const WalkVisitor &visitor_;
};

} // namespace

bool Walk(const fs::path &path, const WalkSettings &settings, const WalkVisitor &visitor) {
    const Walker walker(settings, visitor);
    if (walker.IsExcluded(path))
        return true;
    std::error_code ignored;
    if (!fs::is_directory(path, ignored))
        return visitor.file(path);
    if (settings.recursive)
        return walker.WalkFolder(path);
    return visitor.error(path, Error(path, "is a folder; add -r to scan the files in it", ErrorCode::IsFolder));
}

} // namespace tavrik::base
