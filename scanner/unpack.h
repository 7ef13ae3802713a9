/* Writing what is inside a container into a folder. */
#ifndef TAVRIK_SCANNER_UNPACK_H
#define TAVRIK_SCANNER_UNPACK_H

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/output_folder.h"
#include "scanner/member_path.h"
#include "scanner/payloads/container.h"
#include "scanner/unpack_budget.h"

namespace tavrik::scanner {

/** Writes the members of containers below one folder, under safe names that are all different. */
class Unpacker {
public:
    /** What has become of a member. */
    struct Outcome {
        const payloads::Member &member;
        std::filesystem::path path; // of the file that was written; "" when none was
        std::string problem;        // why none was; "" when one was
    };
    using Visitor = std::function<void(const Outcome &outcome)>;

    /** The arguments must outlive the object. */
    Unpacker(base::OutputFolder &folder, UnpackBudget &budget) : folder_(folder), budget_(budget) {}

    /** Writes the members up to the end, to a bound of the budget or to the user's request to end, and passes each file
     * to `visit`. A member that cannot be unpacked as a whole leaves no file. Returns why it ended early; "" at the
     * end. */
    std::string Unpack(payloads::Container &container, const Visitor &visit);

    uint64_t files() const { return files_; } // that were written
    uint64_t bytes() const { return bytes_; }

private:
    std::string Write(payloads::Container &container, const payloads::Member &member, std::filesystem::path &path);
    std::string Copy(payloads::Container &container, std::FILE *file);

    base::OutputFolder &folder_;
    UnpackBudget &budget_;
    MemberPaths paths_;
    std::vector<uint8_t> block_;
    uint64_t files_ = 0;
    uint64_t bytes_ = 0;
};

} // namespace tavrik::scanner

#endif
