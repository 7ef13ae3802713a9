#include <fmt/format.h>

#include "base/console.h"
#include "base/error.h"
#include "base/path_list.h"
#include "base/text.h"
#include "base/walk.h"
#include "draft/drafter.h"
#include "tools/tavrik-rules/commands.h"
#include "tools/tavrik-rules/rule_files.h"
#include "tools/tavrik-rules/stored_corpus.h"

namespace tavrik::rules_tool {

namespace {

constexpr std::size_t kMostNamed = 10; // files that are named of those that the draft hits

// What a draft must not match: the files of folders and of lists of files, and stores.
struct Corpora {
    std::vector<std::filesystem::path> files;
    std::vector<std::filesystem::path> stores;
};

Corpora CorporaOf(const std::vector<std::string> &names) {
    Corpora corpora;
    std::vector<std::filesystem::path> &files = corpora.files;
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
        if (name != kStandardInput && IsStore(path)) {
            corpora.stores.push_back(path);
            continue;
        }
        base::PathList list(path, '\n');
        while (const auto entry = list.Next())
            walk(*entry);
    }
    return corpora;
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
    const Corpora corpora = CorporaOf(options.corpus);
    const draft::Draft made =
        draft::MakeDraft(given, {options.rule_id, options.name, corpora.files,
                                 [&](const std::vector<draft::Row> &rows, draft::CorpusAnswer &answer) {
                                     for (const std::filesystem::path &store : corpora.stores)
                                         AskStore(store, given, rows, answer);
                                 }});
    base::Print(made.text);
    if (!options.corpus.empty())
        PrintAnswer(made);
    return made.hits.empty() ? kFine : kWarningsFound;
}

} // namespace tavrik::rules_tool
