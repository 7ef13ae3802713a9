#include "tavrik2/pe/rva.h"

#include "tavrik2/pe/section_table.h"
#include "tavrik2/pe/stream_io.h"
#include "tavrik2/section_header.h"

namespace tavrik2 {
namespace {

constexpr uint32_t kLargestAlignment = 512; // what the system's loader rounds raw data to at most
constexpr uint16_t kNativeSubsystem = 1;    // native images are mapped without rounding

template <typename Value>
constexpr Value Smaller(Value left, Value right) {
    return left < right ? left : right;
}

template <typename Value>
constexpr Value Larger(Value left, Value right) {
    return left < right ? right : left;
}

// The mask that rounds down to an alignment; 0 for an alignment of 0.
constexpr uint32_t AlignmentMask(uint32_t alignment) {
    return 0u - Smaller(alignment, kLargestAlignment);
}

// The address just past a section, 0xFFFFFFFF when that wraps.
uint32_t SpanEnd(const SectionHeader &section) {
    const uint32_t start = section.VirtualAddress;
    const uint32_t end = start + Larger<uint32_t>(section.VirtualSize, section.SizeOfRawData);
    return end < start ? 0xFFFFFFFF : end;
}

// A section without raw data holds no address.
bool Holds(const SectionHeader &section, uint32_t rva) {
    return section.SizeOfRawData != 0 && section.VirtualAddress <= rva && rva < SpanEnd(section);
}

bool HoldsOrEndsAt(const SectionHeader &section, uint32_t rva) {
    return section.SizeOfRawData != 0 && section.VirtualAddress <= rva && rva <= SpanEnd(section);
}

class SectionMap {
public:
    SectionMap(FileStream *stream, uint32_t handle)
        : stream_(stream), handle_(handle), optional_header_(ReadRawOptionalHeader(stream, handle)),
          table_offset_(GetSectionTableOffset(stream, handle)), count_(GetSectionCount(stream, handle)) {}

    uint32_t count() const { return count_; }

    uint32_t section_mask() const { return AlignmentMask(optional_header_.SectionAlignment); }

    // False when the header falls short.
    bool Get(uint32_t index, SectionHeader *out) const {
        Seek(stream_, handle_, SectionHeaderOffset(table_offset_, index));
        return Read(stream_, handle_, out, sizeof *out) >= sizeof *out;
    }

    uint32_t OffsetIn(const SectionHeader &section, uint32_t rva) const {
        const uint32_t raw_base = optional_header_.Subsystem == kNativeSubsystem
                                      ? section.PointerToRawData
                                      : section.PointerToRawData & AlignmentMask(optional_header_.FileAlignment);
        return raw_base - section.VirtualAddress + rva;
    }

private:
    FileStream *stream_;
    uint32_t handle_;
    // Read from the file in this order.
    RawOptionalHeader optional_header_;
    uint32_t table_offset_;
    uint32_t count_;
};

} // namespace

uint32_t RvaToFileOffset(FileStream *stream, uint32_t handle, uint32_t rva) {
    const SectionMap sections(stream, handle);
    SectionHeader section = {};

    uint32_t lowest_address = 0xFFFFFFFF;
    for (uint32_t index = sections.count(); index-- > 0;) {
        if (!sections.Get(index, &section))
            break;
        lowest_address = Smaller<uint32_t>(lowest_address, section.VirtualAddress);
        if (Holds(section, rva))
            return sections.OffsetIn(section, rva);
    }

    if (sections.count() >= 1) {
        if (!sections.Get(sections.count() - 1, &section))
            return rva;
        if (HoldsOrEndsAt(section, rva))
            return sections.OffsetIn(section, rva);
    }

    if (rva < lowest_address)
        return rva;

    const uint32_t aligned = rva & sections.section_mask();
    for (uint32_t index = sections.count(); index-- > 0;) {
        if (!sections.Get(index, &section))
            return kUnmappedRva;
        if (Holds(section, aligned))
            return sections.OffsetIn(section, rva);
    }
    return kUnmappedRva;
}

} // namespace tavrik2
