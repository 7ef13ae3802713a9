#include "draft/corpus.h"

#include <algorithm>

#include "base/byte_source.h"
#include "base/error.h"
#include "base/sha256.h"
#include "evaluation/evaluator.h"
#include "rules/record/record_builder.h"

namespace tavrik::draft {

CorpusAnswer AskCorpus(std::span<const std::filesystem::path> corpus, const std::vector<Row> &rows,
                       const std::vector<std::string> &digests, const std::vector<uint64_t> &sizes) {
    const rules::record::RecordSet records(rules::RuleSet{rows});
    CorpusAnswer answer;
    answer.met.resize(rows.size());
    answer.is_at_most.resize(rows.size());
    for (const std::filesystem::path &path : corpus) {
        try {
            base::FileSource source(path);
            evaluation::Features features(source);
            const bool may_be_given = std::ranges::find(sizes, source.size()) != sizes.end();
            if (may_be_given && std::ranges::find(digests, base::Sha256Of(source)) != digests.end()) {
                ++answer.same;
                continue;
            }
            std::vector<bool> met(rows.size());
            for (std::size_t i = 0; features.IsPe() && i < rows.size(); ++i)
                met[i] = evaluation::Matches(*records.rules()[i], features);
            if (!source.error().empty()) {
                answer.failed.emplace_back(path, source.error());
                continue;
            }
            if (!features.IsPe()) {
                ++answer.not_pe;
                continue;
            }
            answer.files.push_back(path);
            for (std::size_t i = 0; i < rows.size(); ++i)
                answer.met[i].push_back(met[i]);
        } catch (const base::Error &error) {
            answer.failed.emplace_back(path, error.reason());
        }
    }
    return answer;
}

} // namespace tavrik::draft
