#include <fmt/format.h>

#include "base/console.h"
#include "base/error.h"
#include "base/path_list.h"
#include "base/text.h"
#include "base/walk.h"
#include "draft/drafter.h"
#include "tools/tavrik-rules/commands.h"
#include "tools/tavrik-rules/rule_files.h"

namespace tavrik::rules_tool {

namespace {

constexpr std::size_t kMostNamed = 10; // files that are named of those that the draft hits

// The files of folders and of lists of files.
std::vector<std::filesystem::path> CorpusFiles(const std::vector<std::string> &names) {
    std::vector<std::filesystem::path> files;
    const auto walk = [&files](const std::filesystem::path &path) {
        base::Walk(path, {true, {}},
                   {[&](const std::filesystem::path &file) {
                        files.push_back(file);
                        return true;
                    },
                    [&](const std::filesystem::path &failed, const base::Error &error) {
                        base::PrintError(
                            fmt::format("tavrik-rules: {}: {}\n", base::PrintablePath(failed), error.reason()));
                        return true;
                    }});
    };
    for (const std::string &name : names) {
        const std::filesystem::path path = base::PathOf(name);
        if (name != kStandardInput && std::filesystem::is_directory(path)) {
            walk(path);
            continue;
        }
        base::PathList list(path, '\n');
        while (const auto entry = list.Next())
            walk(*entry);
    }
    return files;
}

void PrintAnswer(const draft::Draft &made) {
    const draft::CorpusAnswer &corpus = made.corpus;
    for (const auto &[path, reason] : corpus.failed)
        base::PrintError(fmt::format("tavrik-rules: {}: {}\n", base::PrintablePath(path), reason));
    base::PrintError(fmt::format("corpus: {}, {} no PE files, {} given, {} unread; the draft matches {}\n",
                                 base::CountText(corpus.files.size(), "PE file"), corpus.not_pe, corpus.same,
                                 corpus.failed.size(), made.hits.size()));
    for (std::size_t i = 0; i < std::min(made.hits.size(), kMostNamed); ++i)
        base::PrintError(fmt::format("  {}\n", base::PrintablePath(corpus.files[made.hits[i]])));
    if (made.hits.size() > kMostNamed)
        base::PrintError(fmt::format("  and {} more\n", made.hits.size() - kMostNamed));
}

} // namespace

ExitCode MakeDraft(const DraftOptions &options) {
    if (options.name.size() > rules::kMaxDetectionName)
        throw base::Error(fmt::format("--name: a detection name has at most {} characters", rules::kMaxDetectionName));
    const draft::GivenFiles given(options.files);
    const draft::Draft made = draft::MakeDraft(given, {options.rule_id, options.name, CorpusFiles(options.corpus)});
    base::Print(made.text);
    if (!options.corpus.empty())
        PrintAnswer(made);
    return made.hits.empty() ? kFine : kWarningsFound;
}

} // namespace tavrik::rules_tool
