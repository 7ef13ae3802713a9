/* Rules made from files. */
#ifndef TAVRIK_DRAFT_DRAFTER_H
#define TAVRIK_DRAFT_DRAFTER_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "draft/corpus.h"
#include "draft/rows.h"
#include "draft/texts.h"

namespace tavrik::draft {

/** PE files, open as long as the object lives. */
class GivenFiles {
public:
    /** Opens the files. Throws base::Error when one cannot be read or is no PE file. */
    explicit GivenFiles(const std::vector<std::string> &names);

    FilePointers features() const { return features_; }
    const std::vector<std::string> &digests() const { return digests_; } // SHA-256
    const std::vector<uint64_t> &sizes() const { return sizes_; }

private:
    std::vector<std::unique_ptr<base::FileSource>> sources_;
    std::vector<std::unique_ptr<evaluation::Features>> features_;
    std::vector<std::string> digests_;
    std::vector<uint64_t> sizes_;
};

/** The rows that all files meet, with up to `most_texts` strings. */
std::vector<Row> SharedRows(const GivenFiles &files, std::size_t most_texts);

/** All rows in one rule, for what the files are. */
rules::Rule RuleOf(const GivenFiles &files, const std::vector<Row> &rows);

struct DraftSettings {
    uint32_t rule_id = 1;
    std::string name;
    std::vector<std::filesystem::path> corpus; // files that the rule must not match
    std::function<void(const std::vector<Row> &rows, CorpusAnswer &answer)> ask_more =
        {}; // adds those of other corpora
};

struct Draft {
    std::string text; // the rule, with what each of its conditions leaves of the corpus
    CorpusAnswer corpus;
    std::vector<std::size_t> hits; // files of the corpus that the rule matches all the same
};

/** A rule that all files match and as few files of the corpus as can be. It has no warnings of `check`. */
Draft MakeDraft(const GivenFiles &files, const DraftSettings &settings);

} // namespace tavrik::draft

#endif
