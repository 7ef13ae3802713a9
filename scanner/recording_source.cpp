#include "scanner/recording_source.h"

#include <algorithm>

namespace tavrik::scanner {

std::size_t RecordingSource::ReadAt(uint64_t offset, void *buffer, std::size_t length) {
    const std::size_t count = source_.ReadAt(offset, buffer, length);
    if (length == 0)
        return count;
    if (!accesses_.empty()) {
        Access &last = accesses_.back();
        const bool follows = offset >= last.offset && offset <= last.offset + last.delivered && last.delivered != 0;
        if (follows) {
            const uint64_t before = offset - last.offset;
            last.asked = std::max<uint64_t>(last.asked, before + length);
            last.delivered = std::max<uint64_t>(last.delivered, before + count);
            return count;
        }
    }
    if (accesses_.size() < kMostAccesses)
        accesses_.push_back({offset, length, count});
    return count;
}

std::vector<base::Region> RecordingSource::ReadRegions() const {
    std::vector<base::Region> regions;
    for (const Access &access : accesses_)
        if (access.delivered != 0)
            regions.push_back({access.offset, access.delivered});
    std::sort(regions.begin(), regions.end(),
              [](const base::Region &one, const base::Region &other) { return one.offset < other.offset; });
    std::size_t kept = 0;
    for (const base::Region &region : regions) {
        if (kept != 0 && region.offset <= regions[kept - 1].End())
            regions[kept - 1].length = std::max(regions[kept - 1].End(), region.End()) - regions[kept - 1].offset;
        else
            regions[kept++] = region;
    }
    regions.resize(kept);
    return regions;
}

} // namespace tavrik::scanner
