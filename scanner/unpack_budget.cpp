#include "scanner/unpack_budget.h"

#include <fmt/format.h>

namespace tavrik::scanner {

bool UnpackBudget::TakeFile() {
    if (!exceeded_.empty())
        return false;
    if (files_ == limits_.files)
        exceeded_ = fmt::format("more than {} files inside", limits_.files);
    else
        ++files_;
    return exceeded_.empty();
}

bool UnpackBudget::TakeBytes(uint64_t count) {
    if (!exceeded_.empty())
        return false;
    const bool fits = count <= limits_.bytes - bytes_;
    bytes_ = fits ? bytes_ + count : limits_.bytes;
    if (!fits)
        exceeded_ = fmt::format("more than {} bytes inside", limits_.bytes);
    else if (bytes_ > kRatioCountsFrom && bytes_ / limits_.ratio >= packed_)
        exceeded_ = fmt::format("more than {} bytes inside for each of the file's own", limits_.ratio);
    return exceeded_.empty();
}

bool UnpackBudget::TakeReport(uint64_t count) {
    reported_ += count;
    if (exceeded_.empty() && reported_ > kMostReported)
        exceeded_ = fmt::format("more than {} MiB of results inside", kMostReported >> 20);
    return exceeded_.empty();
}

} // namespace tavrik::scanner
