/* Containers that the archive library reads. */
#ifndef TAVRIK_SCANNER_PAYLOADS_ARCHIVE_CONTAINER_H
#define TAVRIK_SCANNER_PAYLOADS_ARCHIVE_CONTAINER_H

#include <memory>
#include <string>
#include <utility>

#include "scanner/payloads/container.h"

namespace tavrik::scanner::payloads {

/** The contents of a cabinet or RAR archive, for OpenPayload. Never null. */
std::unique_ptr<Container> OpenArchivePayload(base::ByteSource &source, const Extent &extent);

/** Whether this build has the archive library; without it OpenArchive gives null for all sources. */
extern const bool kReadsArchives;

/** A container without members. */
class UnreadableContainer final : public Container {
public:
    /** `error`: why, with a remedy. */
    explicit UnreadableContainer(std::string error) : error_(std::move(error)) {}

    std::optional<Member> Next() override { return std::nullopt; }
    std::size_t Read(void *, std::size_t) override { return 0; }
    const std::string &member_error() const override { return member_error_; }
    const std::string &error() const override { return error_; }

private:
    std::string member_error_;
    std::string error_;
};

} // namespace tavrik::scanner::payloads

#endif
