/* A source that notes which bytes were read. */
#ifndef TAVRIK_SCANNER_RECORDING_SOURCE_H
#define TAVRIK_SCANNER_RECORDING_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/byte_source.h"
#include "base/file_bytes.h"

namespace tavrik::scanner {

/** Reads another source and notes each read. One thread at a time. */
class RecordingSource final : public base::ByteSource {
public:
    /** Reads that follow or overlap each other in the file count as one. */
    struct Access {
        uint64_t offset = 0;
        uint64_t asked = 0;     // bytes
        uint64_t delivered = 0; // bytes; fewer at the end of the file and after a failure

        bool operator==(const Access &) const = default;
    };

    /** More accesses than these are not noted; the reads are done all the same. */
    static constexpr std::size_t kMostAccesses = 1 << 16;

    /** `source` must outlive the object. */
    explicit RecordingSource(base::ByteSource &source) : source_(source) {}

    uint64_t size() const override { return source_.size(); }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override;
    const std::string &error() const override { return source_.error(); }
    base::ErrorCode error_code() const override { return source_.error_code(); }

    /** In the order of the reads. */
    std::span<const Access> accesses() const { return accesses_; }

    /** The bytes that were delivered, as regions in the order of the file that do not touch each other. */
    std::vector<base::Region> ReadRegions() const;

private:
    base::ByteSource &source_;
    std::vector<Access> accesses_;
};

} // namespace tavrik::scanner

#endif
