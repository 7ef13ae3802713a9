#include "scanner/payloads/nsis_container.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "scanner/payloads/nsis.h"
#include "scanner/payloads/nsis_script.h"

namespace tavrik::scanner::payloads {
namespace {

// Blocks that several files of a solid archive share are kept in memory up to this size, in bytes; larger ones are
// unpacked again. An uninstaller is made from a program of at most kLargestProgram bytes by changes of at most
// kLargestChanges.
constexpr uint64_t kLargestShared = 4u << 20;
constexpr uint64_t kLargestProgram = 4u << 20;
constexpr uint32_t kLargestChanges = 1u << 20;

// Puts the bytes that `changes` has into `program`: a length, an offset and the bytes, until a length of 0.
void Apply(std::span<const uint8_t> changes, std::vector<uint8_t> &program) {
    constexpr std::size_t kHead = 8;
    while (changes.size() >= kHead) {
        uint32_t length;
        uint32_t offset;
        std::memcpy(&length, changes.data(), sizeof(length));
        std::memcpy(&offset, changes.data() + sizeof(length), sizeof(offset));
        changes = changes.subspan(kHead);
        if (length == 0 || length > changes.size() || offset > program.size() || length > program.size() - offset)
            return;
        std::memcpy(program.data() + offset, changes.data(), length);
        changes = changes.subspan(length);
    }
}

class NsisContainer final : public Container {
public:
    NsisContainer(base::ByteSource &source, const Extent &extent) : source_(source), begin_(extent.offset) {
        std::optional<NsisArchive> archive = ReadNsisArchive(source, extent.offset);
        if (!archive) {
            error_ = "is no Nullsoft installer";
            return;
        }
        OpenedNsisScript opened = OpenNsisScript(source, *archive);
        is_solid_ = archive->is_solid;
        blocks_ = std::move(opened.blocks);
        if (opened.bytes.empty()) {
            error_ = "its script cannot be read: " + blocks_->error();
            return;
        }
        if (std::optional<NsisScript> script = ParseNsisScript(opened.bytes))
            script_ = std::move(*script);
        else
            error_ = "its script is of an unknown version; try 7z x";
    }

    std::optional<Member> Next() override {
        member_error_.clear();
        head_.clear();
        head_place_ = 0;
        is_from_head_ = false;
        if (next_ == script_.files.size()) {
            if (script_.is_cut)
                error_ = "its list of files is too long; only the first " + std::to_string(next_) + " are here";
            return std::nullopt;
        }
        const NsisFile &file = script_.files[next_++];
        Member member;
        member.path = file.path;
        member.time = file.time;
        if (IsSharedWithLast(file)) {
            head_ = shared_;
            is_from_head_ = true;
        } else if (!Open(file)) {
            member_error_ = blocks_->error();
            return member;
        }
        Describe(file, member);
        return member;
    }

    std::size_t Read(void *buffer, std::size_t length) override {
        if (!member_error_.empty())
            return 0;
        if (const std::size_t left = head_.size() - head_place_; left != 0) {
            const std::size_t count = std::min(left, length);
            std::memcpy(buffer, head_.data() + head_place_, count);
            head_place_ += count;
            return count;
        }
        if (is_from_head_)
            return 0;
        const std::size_t count = blocks_->Read(buffer, length);
        if (count == 0)
            member_error_ = blocks_->error();
        return count;
    }

    const std::string &member_error() const override { return member_error_; }
    const std::string &error() const override { return error_; }

private:
    bool IsSharedWithLast(const NsisFile &file) const {
        return has_shared_ && !file.is_uninstaller && shared_offset_ == file.offset;
    }

    // Opens the block of a file, or puts the first part of an uninstaller together.
    bool Open(const NsisFile &file) {
        if (!blocks_->Open(file.offset))
            return false;
        if (file.is_uninstaller)
            return MakeProgram(file);
        KeepIfShared(file);
        return blocks_->error().empty();
    }

    void Describe(const NsisFile &file, Member &member) const {
        if (is_from_head_) {
            member.size = head_.size();
            return;
        }
        member.size = blocks_->size();
        if (member.size)
            *member.size += head_.size();
        if (!file.is_uninstaller)
            member.packed_size = blocks_->packed_size();
    }

    // The uninstaller is the installer's program with changes, and an archive of its own. Without the program (the
    // archive was carved) it is that archive.
    bool MakeProgram(const NsisFile &file) {
        std::vector<uint8_t> changes(std::min(file.changes_size, kLargestChanges));
        std::size_t done = 0;
        while (done < changes.size()) {
            const std::size_t count = blocks_->Read(changes.data() + done, changes.size() - done);
            if (count == 0)
                break;
            done += count;
        }
        changes.resize(done);
        if (!blocks_->OpenNext())
            return false;
        if (begin_ == 0 || begin_ > kLargestProgram)
            return true;
        head_.resize(static_cast<std::size_t>(begin_));
        if (source_.ReadAt(0, head_.data(), head_.size()) != head_.size())
            head_.clear();
        Apply(changes, head_);
        return true;
    }

    // Of a solid archive, unpacks a block at once that the next file has as well.
    void KeepIfShared(const NsisFile &file) {
        has_shared_ = false;
        const bool is_shared = next_ < script_.files.size() && script_.files[next_].offset == file.offset;
        if (!is_solid_ || !is_shared || blocks_->size().value_or(UINT64_MAX) > kLargestShared)
            return;
        std::vector<uint8_t> bytes;
        std::vector<uint8_t> piece(64 * 1024);
        while (const std::size_t count = blocks_->Read(piece.data(), piece.size()))
            bytes.insert(bytes.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(count));
        if (!blocks_->error().empty())
            return;
        shared_ = std::move(bytes);
        shared_offset_ = file.offset;
        has_shared_ = true;
        head_ = shared_;
        is_from_head_ = true;
    }

    base::ByteSource &source_;
    uint64_t begin_; // of the archive, in the source
    bool is_solid_ = false;
    std::unique_ptr<NsisBlocks> blocks_;
    NsisScript script_;
    std::size_t next_ = 0;      // in the script's files
    std::vector<uint8_t> head_; // of the member, in front of what the open block has
    std::size_t head_place_ = 0;
    bool is_from_head_ = false; // and the open block is no part of the member
    std::vector<uint8_t> shared_;
    uint32_t shared_offset_ = 0;
    bool has_shared_ = false;
    std::string member_error_;
    std::string error_;
};

} // namespace

std::unique_ptr<Container> OpenNsis(base::ByteSource &source, const Extent &extent) {
    return std::make_unique<NsisContainer>(source, extent);
}

} // namespace tavrik::scanner::payloads
