#include "tools/tavrik-rules/stored_corpus.h"

#include <algorithm>
#include <fstream>
#include <string_view>

#include "base/byte_source.h"
#include "base/error.h"
#include "base/sha256.h"
#include "base/text.h"

#ifdef TAVRIK_HAS_STORE
#include "evaluation/evaluator.h"
#include "rules/record/record_builder.h"
#include "store/hunt.h"
#include "store/store.h"
#endif

namespace tavrik::rules_tool {

bool IsStore(const std::filesystem::path &path) {
    using std::literals::operator""sv;
    constexpr std::string_view kDatabase = "SQLite format 3\0"sv;
    std::string start(kDatabase.size(), ' ');
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) &&
           std::ifstream(path, std::ios::binary).read(start.data(), static_cast<std::streamsize>(start.size())) &&
           start == kDatabase;
}

#ifdef TAVRIK_HAS_STORE

namespace {

class StoredCorpus {
public:
    StoredCorpus(const std::filesystem::path &path, const draft::GivenFiles &given, const std::vector<draft::Row> &rows,
                 draft::CorpusAnswer &answer)
        : given_(given), records_(rules::RuleSet{rows}), hunt_(records_.rules()), answer_(answer),
          store_(path, store::Store::Access::Read) {}

    void Ask() {
        for (const store::SegmentEntry &entry : store_.Segments())
            Ask(entry);
    }

private:
    struct Met {
        std::vector<bool> rows; // that stored features do not rule out
        std::vector<bool> is_certain;
    };

    void Ask(const store::SegmentEntry &entry) {
        const std::unique_ptr<store::Segment> segment = store_.Open(entry);
        const std::vector<store::Hit> hits = hunt_.Search(*segment, entry.is_gone);
        auto hit = hits.begin();
        for (std::size_t number = 0; number < entry.rows; ++number) {
            const auto row = static_cast<store::Row>(number);
            Met met = {std::vector<bool>(records_.rules().size()), std::vector<bool>(records_.rules().size(), true)};
            for (; hit != hits.end() && hit->row == row; ++hit) {
                met.rows[hit->rule] = true;
                met.is_certain[hit->rule] = hit->is_match;
            }
            if (number < entry.is_gone.size() && entry.is_gone[number])
                continue;
            if (!segment->IsPe(row))
                ++answer_.not_pe;
            else if (IsGiven(*segment, row))
                ++answer_.same;
            else
                Add(*segment, row, std::move(met));
        }
    }

    bool IsGiven(store::Segment &segment, store::Row row) const {
        constexpr base::Sha256::Digest kNotKnown = {};
        const base::Sha256::Digest digest = segment.DigestOf(row);
        if (digest != kNotKnown)
            return std::ranges::find(given_.digests(), base::HexDigits(digest)) != given_.digests().end();
        if (std::ranges::find(given_.sizes(), segment.StampOf(row).size) == given_.sizes().end())
            return false;
        try {
            base::FileSource source(base::PathOf(segment.Paths()[row]));
            return std::ranges::find(given_.digests(), base::Sha256Of(source)) != given_.digests().end();
        } catch (const base::Error &) {
            return false; // it is gone, and its features count
        }
    }

    void Add(store::Segment &segment, store::Row row, Met met) {
        const std::filesystem::path path = base::PathOf(segment.Paths()[row]);
        if (std::ranges::all_of(met.rows, [](bool is_met) { return is_met; })) {
            try {
                Open(path, segment.StampOf(row), met);
            } catch (const base::Error &error) {
                answer_.failed.emplace_back(path, error.reason());
                return;
            }
        }
        answer_.files.push_back(path);
        for (std::size_t i = 0; i < met.rows.size(); ++i) {
            answer_.met[i].push_back(met.rows[i]);
            if (!met.is_certain[i])
                answer_.is_at_most[i] = true;
        }
    }

    void Open(const std::filesystem::path &path, const store::Stamp &stamp, Met &met) const {
        if (store::StampOf(path) != stamp)
            throw base::Error(path, "has changed since it was added to the store");
        base::FileSource source(path);
        evaluation::Features features(source);
        for (std::size_t i = 0; i < met.rows.size(); ++i)
            met.rows[i] = evaluation::Matches(*records_.rules()[i], features);
        met.is_certain.assign(met.rows.size(), true);
        if (!source.error().empty())
            throw base::Error(path, source.error());
    }

    const draft::GivenFiles &given_;
    rules::record::RecordSet records_;
    store::Hunt hunt_;
    draft::CorpusAnswer &answer_;
    store::Store store_;
};

} // namespace

void AskStore(const std::filesystem::path &path, const draft::GivenFiles &given, const std::vector<draft::Row> &rows,
              draft::CorpusAnswer &answer) {
    StoredCorpus(path, given, rows, answer).Ask();
}

#else

void AskStore(const std::filesystem::path &path, const draft::GivenFiles & /*given*/,
              const std::vector<draft::Row> & /*rows*/, draft::CorpusAnswer & /*answer*/) {
    throw base::Error(path, "is a store of features, which this build cannot read");
}

#endif

} // namespace tavrik::rules_tool
