/* What the scans for script headers have in common. */
#ifndef TAVRIK2_LOCATORS_AUTOIT_HEADER_H
#define TAVRIK2_LOCATORS_AUTOIT_HEADER_H

#include <cstdint>

#include "tavrik2/locators/scans/block_walk.h"
#include "tavrik2/locators/target_file.h"

namespace tavrik2 {

/** The verdict on a header at `place` of the block at `position`: one that begins before `start` ends the search. */
inline BlockVerdict HeaderAt(int32_t position, int32_t place, int32_t start) {
    const int32_t header = WrappingAdd(position, place);
    return {header < start ? BlockVerdict::GiveUp : BlockVerdict::Found, header};
}

/** A scan for a header: FindAutoItScript, FindAutoItEA06Header or FindAlteredAutoItHeader. */
using HeaderScan = int (*)(uint32_t handle, int32_t file_size, int32_t start, uint32_t *out, FileStream *stream);

/** A locator's last steps: scans from the offset of `rva`, unchecked, and reports the header with a block's size. */
inline int ReportHeader(const TargetFile &file, HeaderScan scan, uint32_t rva, Finding *finding) {
    uint32_t header;
    if (scan(file.handle, file.file_size, AsSigned(file.OffsetOf(rva)), &header, file.stream) == 0)
        return kDeclined;
    return Report(finding, header, kBlockSize);
}

} // namespace tavrik2

#endif
