/* Bounds on what is unpacked out of one file, against files that are small and grow without end. */
#ifndef TAVRIK_SCANNER_UNPACK_BUDGET_H
#define TAVRIK_SCANNER_UNPACK_BUDGET_H

#include <cstdint>
#include <string>

namespace tavrik::scanner {

/** How much may be unpacked out of one file, with all that is inside what is inside it. */
struct UnpackLimits {
    uint64_t files = 10'000;
    uint64_t bytes = uint64_t{4} << 30;
    uint64_t ratio = 250; // unpacked bytes for each byte of the file
};

/** So many bytes may be unpacked whatever their ratio: small files of zeros are no bombs. */
inline constexpr uint64_t kRatioCountsFrom = uint64_t{128} << 20;

/** The reports of what is inside one file may take as many bytes of memory. */
inline constexpr uint64_t kMostReported = uint64_t{32} << 20;

/** Counts what is unpacked out of one file. */
class UnpackBudget {
public:
    /** `packed` is the size of the file in bytes. */
    UnpackBudget(const UnpackLimits &limits, uint64_t packed) : limits_(limits), packed_(packed) {}

    /** Counts one more file. False when it is one too many; then and from then on nothing is to be unpacked. */
    bool TakeFile();

    /** Counts bytes that are unpacked, or that the container unpacks in order to pass over them. As TakeFile. */
    bool TakeBytes(uint64_t count);

    /** Counts the memory of a report. As TakeFile. */
    bool TakeReport(uint64_t count);

    /** Which bound has been passed, such as "more than 10000 files inside"; "" while none has. */
    const std::string &exceeded() const { return exceeded_; }

private:
    UnpackLimits limits_;
    uint64_t packed_;
    uint64_t files_ = 0;
    uint64_t bytes_ = 0;
    uint64_t reported_ = 0;
    std::string exceeded_;
};

} // namespace tavrik::scanner

#endif
