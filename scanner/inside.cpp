#include "scanner/inside.h"

#include <algorithm>
#include <array>
#include <utility>

#include <fmt/format.h>

#include "base/error.h"
#include "base/system.h"
#include "base/text.h"
#include "scanner/report_memory.h"

namespace tavrik::scanner {

namespace {

constexpr std::size_t kMemberBlockSize = 64 * 1024;

/** The bytes of a member, as far as they have been unpacked: in memory or, when they are many, in a temporary file. */
class MemberBytes {
public:
    void Append(std::span<const uint8_t> bytes) {
        if (!file_ && memory_.size() + bytes.size() > kMostInMemory) {
            file_.reset(new base::FileSource(base::FileSource::Temporary()));
            file_->Append(memory_);
            memory_ = {};
        }
        if (file_)
            file_->Append(bytes);
        else
            memory_.insert(memory_.end(), bytes.begin(), bytes.end());
    }

    /** All of them; nothing may be added from then on. */
    base::ByteSource &Source() {
        if (file_)
            return *file_;
        return in_memory_.emplace(memory_);
    }

private:
    std::vector<uint8_t> memory_;
    std::optional<base::MemorySource> in_memory_;
    std::unique_ptr<base::FileSource> file_;
};

/** Whether a file that begins like this can have findings or contents. */
bool IsWorthUnpacking(std::span<const uint8_t> beginning) {
    if (beginning.size() >= 2 && beginning[0] == 'M' && beginning[1] == 'Z')
        return true;
    base::MemorySource source(beginning);
    return WholeContents(source).has_value();
}

// Fills the block, except at the end: a file is judged by its first one.
std::size_t ReadBlock(payloads::Container &container, std::span<uint8_t> block) {
    std::size_t done = 0;
    while (done < block.size()) {
        const std::size_t count = container.Read(block.data() + done, block.size() - done);
        if (count == 0)
            break;
        done += count;
    }
    return done;
}

void Skip(FileReport &report, base::ErrorCode code, std::string reason) {
    report.status = ScanStatus::Skipped;
    report.error = std::move(reason);
    report.error_code = code;
}

} // namespace

bool InsideScan::MustEnd() const {
    return !budget_.exceeded().empty() || deadline_.HasPassed() || base::Interruption() != 0;
}

void InsideScan::ScanBelow(base::ByteSource &source, FileReport &report, FileReport &outermost, unsigned depth) {
    std::vector<ContentsPlace> places;
    if (report.status == ScanStatus::NotPe) {
        if (std::optional<ContentsPlace> whole = WholeContents(source))
            places.push_back(std::move(*whole));
    } else {
        places = PlacesOf(report.payloads);
    }
    if (places.empty())
        return;
    if (depth == settings_.inside_depth) {
        if (!std::exchange(said_depth_, true))
            outermost.notes.push_back(
                {"inside-depth", fmt::format("what is inside of more than {} files is not scanned", depth)});
        return;
    }
    for (const ContentsPlace &place : places) {
        if (MustEnd())
            return;
        const std::unique_ptr<payloads::Container> container = Open(source, place);
        ScanMembers(*container, report, outermost, depth);
        if (!container->error().empty() && !MustEnd())
            report.notes.push_back({"inside-unread", fmt::format("{}: not all contents can be read: {}",
                                                                 place.description, container->error())});
    }
}

void InsideScan::ScanMembers(payloads::Container &container, FileReport &report, FileReport &outermost,
                             unsigned depth) {
    while (!MustEnd()) {
        const std::optional<payloads::Member> member = container.Next();
        if (!member)
            return;
        if (member->is_folder)
            continue;
        if (budget_.TakeFile()) {
            FileReport &inner = report.inside.emplace_back();
            inner.parent = report.file;
            inner.file = base::PathOf(base::PathText(report.file) + '!' + base::Printable(member->path));
            inner.size = member->size;
            ScanMember(container, *member, inner, outermost, depth);
            budget_.TakeReport(OwnMemory(inner));
            // The file itself is reported as one that took too long or was not scanned to its end.
            if (deadline_.HasPassed() || base::Interruption() != 0)
                report.inside.pop_back();
        }
        if (!budget_.exceeded().empty() && !std::exchange(said_budget_, true))
            outermost.notes.push_back({"inside-bound", budget_.exceeded() + "; the rest is not scanned"});
    }
}

void InsideScan::ScanMember(payloads::Container &container, const payloads::Member &member, FileReport &inner,
                            FileReport &outermost, unsigned depth) {
    if (member.encrypted)
        return Skip(inner, base::ErrorCode::Encrypted, "is encrypted");
    const uint64_t longest = std::min(settings_.max_size.value_or(kLongestMember), kLongestMember);
    if (member.size.value_or(0) > longest) {
        budget_.TakeBytes(*member.size); // most containers unpack what they pass over
        return Skip(inner, base::ErrorCode::TooLarge, fmt::format("larger than {} bytes", longest));
    }
    try {
        MemberBytes bytes;
        std::vector<uint8_t> block(kMemberBlockSize);
        uint64_t size = 0;
        bool is_kept = true;
        while (const std::size_t count = ReadBlock(container, block)) {
            if (size == 0)
                is_kept = settings_.sha256 || IsWorthUnpacking(std::span(block).first(count));
            size += count;
            if (size > longest)
                return Skip(inner, base::ErrorCode::TooLarge, fmt::format("larger than {} bytes", longest));
            if (!budget_.TakeBytes(count))
                return Skip(inner, base::ErrorCode::NotUnpacked, "not unpacked: " + budget_.exceeded());
            if (MustEnd())
                return;
            if (is_kept)
                bytes.Append(std::span(block).first(count));
        }
        if (!container.member_error().empty())
            return Skip(inner, base::ErrorCode::NotUnpacked, "cannot be unpacked: " + container.member_error());
        inner.size = size;
        inner.status = ScanStatus::NotPe;
        if (!is_kept)
            return;
        base::ByteSource &source = bytes.Source();
        WatchedSource watched(source, deadline_);
        examine_(watched, inner);
        if (inner.status == ScanStatus::NotPe || inner.status == ScanStatus::Scanned)
            ScanBelow(watched, inner, outermost, depth + 1);
    } catch (const base::Error &error) {
        inner.status = ScanStatus::Failed;
        inner.error = error.reason();
        inner.error_code = error.code();
    }
}

} // namespace tavrik::scanner
