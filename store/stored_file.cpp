#include "store/stored_file.h"

#include <algorithm>
#include <system_error>

#include "base/error.h"
#include "base/text.h"
#include "evaluation/features.h"

namespace tavrik::store {

namespace {

constexpr std::size_t kDigestBlock = 256 * 1024; // bytes read at once

base::Sha256::Digest DigestOf(base::ByteSource &source) {
    base::Sha256 sha256;
    if (const std::span<const uint8_t> memory = source.InMemory(); !memory.empty()) {
        sha256.Update(memory);
        return sha256.Finish();
    }
    std::vector<uint8_t> block(static_cast<std::size_t>(std::min<uint64_t>(kDigestBlock, source.size() + 1)));
    for (uint64_t offset = 0;;) {
        const std::size_t count = source.ReadAt(offset, block.data(), block.size());
        if (count == 0)
            return sha256.Finish();
        sha256.Update(std::span(block).first(count));
        offset += count;
    }
}

// The bytes after the end of a name mean nothing to rules, and would only make names differ.
SectionHeader WithPlainName(SectionHeader section) {
    const std::size_t length = evaluation::SectionName(section).size();
    std::fill(section.Name + length, section.Name + sizeof(section.Name), uint8_t{0});
    return section;
}

} // namespace

Stamp StampOf(const std::filesystem::path &path) {
    std::error_code error;
    const uint64_t size = std::filesystem::file_size(path, error);
    if (error)
        throw base::Error(path, "cannot be looked at: " + error.message());
    const auto time = std::filesystem::last_write_time(path, error);
    if (error)
        throw base::Error(path, "cannot be looked at: " + error.message());
    return {size, static_cast<int64_t>(time.time_since_epoch().count())};
}

StoredFile ReadFeatures(base::ByteSource &source, bool with_digest) {
    StoredFile file;
    evaluation::Features features(source);
    file.is_pe = features.IsPe();
    if (file.is_pe) {
        for (uint16_t field = 0; field < rules::kHeaderFieldCount; ++field)
            if (const std::optional<uint32_t> value = features.Header(field)) {
                file.has.set(field);
                file.header[field] = *value;
            }
        std::ranges::transform(features.sections(), std::back_inserter(file.sections), WithPlainName);
        file.tokens = TokensOf(features);
    }
    file.stamp.size = source.size();
    if (with_digest)
        file.digest = DigestOf(source);
    if (!source.error().empty())
        throw base::Error(source.error());
    return file;
}

StoredFile ReadFeatures(const std::filesystem::path &path, bool with_digest) {
    // The stamp first: a file that changes meanwhile is read again by the next run.
    const Stamp stamp = StampOf(path);
    base::FileSource source(path);
    StoredFile file = ReadFeatures(source, with_digest);
    file.path = base::PathText(path);
    file.stamp = stamp;
    return file;
}

} // namespace tavrik::store
