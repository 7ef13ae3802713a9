// Cabinets and RAR archives, and sources that are whole archives.

#include "scanner/payloads/archive_container.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <array>
#include <cerrno>
#include <span>
#include <utility>
#include <vector>

#include "base/text.h"
#include "base/utf8_locale.h"
#include "scanner/payloads/archive_signatures.h"
#include "scanner/payloads/readers.h"

namespace tavrik::scanner::payloads {

namespace {

constexpr std::size_t kBlockSize = 64 * 1024;

// The library asks to be called again after some failures; it must not go on like this for ever.
constexpr int kMostRetries = 16;

// Of cpio and ar, whose headers state the length of names with up to 32 bits: the library keeps a name in memory while
// it reads it.
constexpr std::size_t kMostHeaderBytes = 16 * 1024 * 1024;

constexpr char kEncrypted[] = "is encrypted; unpack it with its password by another program, such as 7z";
constexpr char kNamesEncrypted[] =
    "the names of its files are encrypted; unpack it with its password by another program, such as 7z";

struct ReaderDeleter {
    void operator()(archive *reader) const { archive_read_free(reader); }
};

void SupportFilters(archive *reader) {
    for (const auto add :
         {archive_read_support_filter_gzip, archive_read_support_filter_xz, archive_read_support_filter_bzip2,
          archive_read_support_filter_zstd, archive_read_support_filter_lz4, archive_read_support_filter_lzip,
          archive_read_support_filter_lzma})
        add(reader);
}

// Only what a kind needs. Never all: one of the formats reads files of this machine that the archive names, and some
// filters run programs.
void Support(archive *reader, ArchiveKind kind) {
    switch (kind) {
    case ArchiveKind::Zip:
        archive_read_support_format_zip(reader);
        return;
    case ArchiveKind::SevenZip:
        archive_read_support_format_7zip(reader);
        return;
    case ArchiveKind::Rar:
        archive_read_support_format_rar(reader);
        archive_read_support_format_rar5(reader);
        return;
    case ArchiveKind::Cabinet:
        archive_read_support_format_cab(reader);
        return;
    case ArchiveKind::Filtered:
        archive_read_support_filter_rpm(reader);
        SupportFilters(reader);
        archive_read_support_format_raw(reader);
        return;
    case ArchiveKind::FilteredTar:
        SupportFilters(reader);
        archive_read_support_format_tar(reader);
        return;
    case ArchiveKind::Tar:
        archive_read_support_format_tar(reader);
        return;
    case ArchiveKind::Rpm:
    case ArchiveKind::FilteredCpio: // from stream_
    case ArchiveKind::Cpio:
        archive_read_support_format_cpio(reader);
        return;
    case ArchiveKind::Ar:
        archive_read_support_format_ar(reader);
        return;
    case ArchiveKind::Xar:
        archive_read_support_format_xar(reader);
        return;
    case ArchiveKind::Lha:
        archive_read_support_format_lha(reader);
        return;
    case ArchiveKind::Iso:
        archive_read_support_format_iso9660(reader);
        return;
    }
}

class ArchiveContainer final : public Container {
public:
    // An archive that ends before its end is complete to the library where the cut is between two files.
    ArchiveContainer(base::ByteSource &source, uint64_t offset, uint64_t length, ArchiveKind kind,
                     bool is_truncated = false)
        : window_(source, offset, length), is_truncated_(is_truncated), reader_(archive_read_new()) {
        const base::Utf8Locale locale;
        if (kind == ArchiveKind::Rar)
            encryption_ = EncryptionOfRar(source, offset);
        if (kind == ArchiveKind::Rpm || kind == ArchiveKind::FilteredCpio)
            stream_ = StreamOf(source, offset, length);
        bounds_headers_ = stream_ != nullptr || kind == ArchiveKind::Cpio || kind == ArchiveKind::Ar;
        archive *reader = reader_.get();
        Support(reader, kind);
        archive_read_set_callback_data(reader, this);
        archive_read_set_read_callback(reader, ReadBlock);
        if (stream_ == nullptr) {
            archive_read_set_seek_callback(reader, Seek);
            archive_read_set_skip_callback(reader, Skip);
        }
        if (archive_read_open1(reader) != ARCHIVE_OK)
            error_ = Failure();
    }

    std::optional<Member> Next() override {
        const base::Utf8Locale locale;
        member_error_.clear();
        member_at_end_ = false;
        if (at_end_ || !error_.empty())
            return std::nullopt;
        for (int tries = 0; tries < kMostRetries; ++tries) {
            archive_entry *entry = nullptr;
            const int result = NextHeader(&entry);
            if (result == ARCHIVE_EOF) {
                at_end_ = true;
                if (is_truncated_)
                    error_ = "it is truncated, and files may be missing; get the whole file";
                return std::nullopt;
            }
            if (result == ARCHIVE_FATAL) {
                needs_password_ =
                    encryption_.headers || (entry != nullptr && archive_entry_is_metadata_encrypted(entry) != 0);
                error_ = needs_password_ ? kNamesEncrypted : Failure();
                return std::nullopt;
            }
            if (result == ARCHIVE_RETRY || result == ARCHIVE_FAILED)
                continue;
            const std::size_t place = entries_++;
            if (std::optional<Member> member = MemberOf(entry)) {
                member->encrypted |= place < encryption_.files.size() && encryption_.files[place];
                is_encrypted_ = member->encrypted;
                return member;
            }
            tries = 0; // a link; there are as many as the archive has bytes for
        }
        error_ = Failure();
        return std::nullopt;
    }

    std::size_t Read(void *buffer, std::size_t length) override {
        const base::Utf8Locale locale;
        if (at_end_ || member_at_end_ || !error_.empty() || !member_error_.empty())
            return 0;
        if (is_encrypted_) {
            member_error_ = kEncrypted;
            return 0;
        }
        const la_ssize_t count = archive_read_data(reader_.get(), buffer, length);
        // Fewer than asked for only at the end, beyond which the library gives zeros for some formats.
        member_at_end_ = count < static_cast<la_ssize_t>(length);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        member_error_ = Failure();
        return 0;
    }

    const std::string &member_error() const override { return member_error_; }
    const std::string &error() const override { return error_; }
    bool needs_password() const override { return needs_password_; }

private:
    // The bytes after all filters. A reader of its own, since only what a reader asks for can be counted.
    static std::unique_ptr<ArchiveContainer> StreamOf(base::ByteSource &source, uint64_t offset, uint64_t length) {
        auto stream = std::make_unique<ArchiveContainer>(source, offset, length, ArchiveKind::Filtered);
        stream->Next();
        return stream;
    }

    // The rest of the last member is passed first: it may be long, a header may not.
    int NextHeader(archive_entry **entry) {
        if (!bounds_headers_)
            return archive_read_next_header(reader_.get(), entry);
        if (has_entry_ && archive_read_data_skip(reader_.get()) == ARCHIVE_FATAL)
            return ARCHIVE_FATAL;
        header_bytes_ = 0;
        is_in_header_ = true;
        const int result = archive_read_next_header(reader_.get(), entry);
        is_in_header_ = false;
        has_entry_ = result == ARCHIVE_OK || result == ARCHIVE_WARN;
        return result;
    }

    // A file or a folder; nothing for links and devices, which have no bytes of their own.
    std::optional<Member> MemberOf(archive_entry *entry) {
        const auto type = archive_entry_filetype(entry);
        if ((type != AE_IFREG && type != AE_IFDIR && type != 0) || archive_entry_hardlink_utf8(entry) != nullptr)
            return std::nullopt;
        Member member;
        const char *path = archive_entry_pathname_utf8(entry);
        if (path == nullptr)
            path = archive_entry_pathname(entry); // in an unknown encoding
        member.path = path == nullptr ? "" : path;
        member.is_folder = type == AE_IFDIR;
        if (archive_entry_size_is_set(entry) != 0 && archive_entry_size(entry) >= 0)
            member.size = static_cast<uint64_t>(archive_entry_size(entry));
        if (archive_entry_mtime_is_set(entry) != 0)
            member.time = archive_entry_mtime(entry);
        member.encrypted = archive_entry_is_data_encrypted(entry) != 0;
        return member;
    }

    std::string Failure() const {
        if (!InputError().empty())
            return InputError();
        const char *text = archive_error_string(reader_.get());
        return base::Printable(text == nullptr ? "no more of it can be read" : text) +
               "; the archive is damaged, or other programs such as 7z know more of its format";
    }

    static ArchiveContainer &Self(void *self) { return *static_cast<ArchiveContainer *>(self); }

    static la_ssize_t ReadBlock(archive *reader, void *data, const void **buffer) {
        ArchiveContainer &self = Self(data);
        if (self.is_in_header_ && (self.header_bytes_ += self.block_.size()) > kMostHeaderBytes) {
            archive_set_error(reader, EINVAL, "A header has more than %zu bytes", kMostHeaderBytes);
            return ARCHIVE_FATAL;
        }
        const std::size_t count = self.NextBlock();
        *buffer = self.block_.data();
        if (self.InputError().empty())
            return static_cast<la_ssize_t>(count);
        archive_set_error(reader, EIO, "%s", self.InputError().c_str());
        return ARCHIVE_FATAL;
    }

    const std::string &InputError() const {
        if (stream_ == nullptr)
            return window_.error();
        return stream_->error_.empty() ? stream_->member_error_ : stream_->error_;
    }

    std::size_t NextBlock() {
        if (stream_ != nullptr)
            return stream_->Read(block_.data(), block_.size());
        const std::size_t count = window_.ReadAt(position_, block_.data(), block_.size());
        position_ += count;
        return count;
    }

    static la_int64_t Seek(archive *, void *data, la_int64_t offset, int whence) {
        ArchiveContainer &self = Self(data);
        const auto size = static_cast<la_int64_t>(self.window_.size());
        const la_int64_t start = whence == SEEK_SET   ? 0
                                 : whence == SEEK_END ? size
                                                      : static_cast<la_int64_t>(self.position_);
        la_int64_t position = 0;
        if (__builtin_add_overflow(start, offset, &position) || position < 0)
            return ARCHIVE_FATAL;
        self.position_ = static_cast<uint64_t>(position);
        return position;
    }

    static la_int64_t Skip(archive *, void *data, la_int64_t request) {
        ArchiveContainer &self = Self(data);
        const uint64_t size = self.window_.size();
        const uint64_t rest = self.position_ < size ? size - self.position_ : 0;
        const uint64_t count = request < 0 ? 0 : std::min(rest, static_cast<uint64_t>(request));
        self.position_ += count;
        return static_cast<la_int64_t>(count);
    }

    base::WindowSource window_;
    uint64_t position_ = 0;
    std::vector<uint8_t> block_ = std::vector<uint8_t>(kBlockSize);
    std::unique_ptr<ArchiveContainer> stream_; // what is read instead of window_; null for most kinds
    bool bounds_headers_ = false;
    bool is_in_header_ = false;
    bool has_entry_ = false;
    std::size_t header_bytes_ = 0; // that were asked for since the header's beginning
    bool is_truncated_;
    RarEncryption encryption_; // of a RAR archive; the library does not tell all of RAR 5
    std::size_t entries_ = 0;  // that were read
    bool at_end_ = false;
    bool member_at_end_ = false;
    bool needs_password_ = false; // by the container as a whole
    bool is_encrypted_ = false;   // the member that was given last
    std::string member_error_;
    std::string error_;
    std::unique_ptr<archive, ReaderDeleter> reader_; // last: its end may still call back
};

// What is in a compressed stream. The library would take one of zeros for a tar archive without members.
ArchiveKind KindOfStream(base::ByteSource &source) {
    ArchiveContainer stream(source, 0, source.size(), ArchiveKind::Filtered);
    std::array<uint8_t, 512> head = {}; // a header of tar
    if (!stream.Next())
        return ArchiveKind::Filtered;
    const std::size_t count = stream.Read(head.data(), head.size());
    base::MemorySource inner{std::span(head).first(count)};
    const ArchiveSignature *signature = SignatureOf(inner);
    if (signature != nullptr && signature->kind == ArchiveKind::Tar)
        return ArchiveKind::FilteredTar;
    return signature != nullptr && signature->kind == ArchiveKind::Cpio ? ArchiveKind::FilteredCpio
                                                                        : ArchiveKind::Filtered;
}

} // namespace

const bool kReadsArchives = true;

std::unique_ptr<Container> OpenArchive(base::ByteSource &source) {
    const ArchiveSignature *signature = SignatureOf(source);
    if (signature == nullptr)
        return nullptr;
    const ArchiveKind kind = signature->kind == ArchiveKind::Filtered ? KindOfStream(source) : signature->kind;
    return std::make_unique<ArchiveContainer>(source, 0, source.size(), kind);
}

std::unique_ptr<Container> OpenArchivePayload(base::ByteSource &source, const Extent &extent) {
    const ArchiveKind kind = extent.format == Format::Cabinet ? ArchiveKind::Cabinet : ArchiveKind::Rar;
    return std::make_unique<ArchiveContainer>(source, extent.offset, extent.present, kind, !extent.complete);
}

} // namespace tavrik::scanner::payloads
