#include "store/adder.h"

#include <algorithm>
#include <exception>
#include <span>
#include <utility>

#include "base/error.h"
#include "base/text.h"
#include "store/layout.h"

namespace tavrik::store {

namespace {

// How much work a killed program may lose, beside the number of files.
constexpr std::chrono::seconds kTimeOfACheckpoint(5);

// A segment with fewer files than this is small; so many small ones are left as they are.
constexpr std::size_t kSmallSegment = kMostRows / 2;
constexpr std::size_t kMostSmallSegments = 4;

} // namespace

Adder::Adder(Store &store, const AddSettings &settings)
    : store_(store), settings_(settings), entries_(store.Segments()), last_commit_(Clock::now()) {
    for (uint32_t number = 0; number < entries_.size(); ++number) {
        const SegmentEntry &entry = entries_[number];
        const std::unique_ptr<Segment> segment = store_.Open(entry);
        for (std::size_t row = 0; row < entry.rows; ++row)
            if (row >= entry.is_gone.size() || !entry.is_gone[row])
                known_.push_back({KeyOf(segment->Paths()[row]), number, static_cast<Row>(row),
                                  segment->StampOf(static_cast<Row>(row))});
    }
    std::ranges::sort(known_, {}, &Known::key);
    for (const Fault &fault : store_.Faults())
        faults_.emplace(fault.path, fault);
}

Adder::Key Adder::KeyOf(std::string_view path) {
    base::Sha256 sha256;
    sha256.Update({reinterpret_cast<const uint8_t *>(path.data()), path.size()});
    const base::Sha256::Digest digest = sha256.Finish();
    Key key;
    std::copy_n(digest.begin(), key.size(), key.begin());
    return key;
}

std::optional<std::size_t> Adder::Find(std::string_view path) const {
    const Key key = KeyOf(path);
    const auto found = std::ranges::lower_bound(known_, key, {}, &Known::key);
    return found != known_.end() && found->key == key ? std::optional(static_cast<std::size_t>(found - known_.begin()))
                                                      : std::nullopt;
}

Adder::Examined Adder::Examine(const std::filesystem::path &path) const {
    Examined examined;
    try {
        examined.path = base::PathText(path);
        if (examined.path.size() > kLongestPath)
            throw base::Error("its path is too long for a store");
        examined.replaces = Find(examined.path);
        if (const auto fault = faults_.find(examined.path);
            fault != faults_.end() && fault->second.stamp && StampOf(path) == *fault->second.stamp) {
            examined.fault = fault->second.reason;
            examined.barred = fault->second.stamp;
            return examined;
        }
        if (!examined.replaces || settings_.compare_digests || StampOf(path) != known_[*examined.replaces].stamp)
            examined.file = ReadFeatures(path, settings_.with_digests);
    } catch (const base::Error &error) {
        examined.fault = error.reason();
    } catch (const std::exception &error) {
        examined.fault = error.what();
    }
    return examined;
}

Adder::Examined Adder::Examine(StoredFile file) const {
    Examined examined;
    examined.path = file.path;
    examined.replaces = Find(file.path);
    if (!examined.replaces || known_[*examined.replaces].stamp.time < file.stamp.time)
        examined.file = std::move(file);
    return examined;
}

std::vector<std::string> Adder::Barred() const {
    std::vector<std::string> paths;
    for (const auto &[path, fault] : faults_)
        if (fault.stamp)
            paths.push_back(path);
    return paths;
}

void Adder::Bar(const std::string &path, const std::string &reason) {
    try {
        const Fault fault = {path, reason, StampOf(base::PathOf(path))};
        faults_[path] = fault;
        new_faults_.push_back(fault);
    } catch (const base::Error &) {
        return; // it is gone
    }
    Checkpoint();
}

void Adder::Release(const std::string &path) {
    if (const auto fault = faults_.find(path); fault != faults_.end())
        fault->second.stamp.reset();
}

bool Adder::HasDigest(const Known &known, const base::Sha256::Digest &digest) {
    if (!digests_ || digests_of_ != known.segment) {
        digests_ = store_.Open(entries_[known.segment]);
        digests_of_ = known.segment;
    }
    return digests_->DigestOf(known.row) == digest;
}

void Adder::MarkGone(const Known &known) {
    SegmentEntry &entry = entries_[known.segment];
    entry.is_gone.resize(entry.rows);
    entry.is_gone[known.row] = true;
    marked_.insert(known.segment);
}

void Adder::Take(Examined examined) {
    if (!taken_.insert(KeyOf(examined.path)).second)
        return;
    const Known *known = examined.replaces ? &known_[*examined.replaces] : nullptr;
    if (!examined.fault.empty()) {
        ++counts_.set_aside;
        new_faults_.push_back({examined.path, examined.fault, examined.barred});
        if (known != nullptr)
            MarkGone(*known); // what is stored is no longer what is there
    } else if (!examined.file || (known != nullptr && settings_.compare_digests &&
                                  known->stamp == examined.file->stamp && HasDigest(*known, examined.file->digest))) {
        ++counts_.unchanged;
    } else {
        ++(known != nullptr ? counts_.replaced : counts_.added);
        if (known != nullptr)
            MarkGone(*known);
        if (faults_.contains(examined.path))
            mended_.push_back(examined.path);
        if (!room_.Add(*examined.file)) {
            WriteSegment();
            room_.Add(*examined.file);
        }
        pending_.push_back(std::move(*examined.file));
    }
    if (pending_.size() - committed_ >= settings_.files_of_a_commit ||
        Clock::now() - last_commit_ >= kTimeOfACheckpoint)
        Checkpoint();
}

// Within a transaction.
void Adder::ApplyMarks() {
    for (const uint32_t number : marked_)
        store_.SetGone(entries_[number]);
    for (const Fault &fault : new_faults_)
        store_.AddFault(fault);
    for (const std::string &path : mended_)
        store_.RemoveFault(path);
    marked_.clear();
    new_faults_.clear();
    mended_.clear();
}

// Puts what is new into a segment of its own, until the whole segment is written.
void Adder::Checkpoint() {
    store_.Begin();
    ApplyMarks();
    if (committed_ < pending_.size())
        checkpoints_.push_back(store_.Append(std::span(pending_).subspan(committed_)));
    store_.Commit();
    committed_ = pending_.size();
    last_commit_ = Clock::now();
}

void Adder::WriteSegment() {
    store_.Begin();
    ApplyMarks();
    for (const int64_t segment : checkpoints_)
        store_.Remove(segment);
    if (!pending_.empty())
        store_.Append(pending_);
    store_.Commit();
    checkpoints_.clear();
    pending_.clear();
    committed_ = 0;
    room_ = {};
    last_commit_ = Clock::now();
}

void Adder::Finish() {
    WriteSegment();
    JoinSmallSegments();
    store_.Shrink();
}

void Adder::JoinSmallSegments() {
    std::vector<SegmentEntry> small = store_.Segments();
    std::erase_if(small, [](const SegmentEntry &entry) { return entry.live() >= kSmallSegment; });
    if (small.size() <= kMostSmallSegments)
        return;
    store_.Begin();
    for (const SegmentEntry &entry : small) {
        std::vector<StoredFile> files = store_.Open(entry)->AllFiles();
        store_.Remove(entry.id);
        for (std::size_t row = 0; row < files.size(); ++row) {
            if (row < entry.is_gone.size() && entry.is_gone[row])
                continue;
            if (!room_.Add(files[row])) {
                store_.Append(pending_);
                pending_.clear();
                room_ = {};
                room_.Add(files[row]);
            }
            pending_.push_back(std::move(files[row]));
        }
    }
    if (!pending_.empty())
        store_.Append(pending_);
    pending_.clear();
    room_ = {};
    store_.Commit();
}

uint64_t Forget(Store &store, const std::vector<std::string> &paths) {
    const auto is_meant = [&](const std::string &file) {
        return std::ranges::any_of(paths, [&](const std::string &path) {
            return file.starts_with(path) &&
                   (file.size() == path.size() || path.ends_with('/') || file[path.size()] == '/');
        });
    };
    uint64_t count = 0;
    store.Begin();
    for (SegmentEntry &entry : store.Segments()) {
        const std::unique_ptr<Segment> segment = store.Open(entry);
        const uint64_t before = count;
        entry.is_gone.resize(entry.rows);
        for (std::size_t row = 0; row < entry.rows; ++row)
            if (!entry.is_gone[row] && is_meant(segment->Paths()[row])) {
                entry.is_gone[row] = true;
                ++count;
            }
        if (entry.live() == 0)
            store.Remove(entry.id);
        else if (count > before)
            store.SetGone(entry);
    }
    for (const Fault &fault : store.Faults())
        if (is_meant(fault.path))
            store.RemoveFault(fault.path);
    store.Commit();
    store.Shrink();
    return count;
}

} // namespace tavrik::store
