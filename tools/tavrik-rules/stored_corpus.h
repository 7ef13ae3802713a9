/* Stores of features (tavrik-corpus) as the corpora of drafts. */
#ifndef TAVRIK_TOOLS_TAVRIK_RULES_STORED_CORPUS_H
#define TAVRIK_TOOLS_TAVRIK_RULES_STORED_CORPUS_H

#include <filesystem>
#include <vector>

#include "draft/drafter.h"

namespace tavrik::rules_tool {

/** Whether the file looks like a store. */
bool IsStore(const std::filesystem::path &path);

/** Asks all rows of the files in a store, and adds the answers. Only files that stored features rule out by no row are
 * opened; where others are not ruled out by a row, the answer has it as met, and says so. Throws base::Error. */
void AskStore(const std::filesystem::path &path, const draft::GivenFiles &given, const std::vector<draft::Row> &rows,
              draft::CorpusAnswer &answer);

} // namespace tavrik::rules_tool

#endif
