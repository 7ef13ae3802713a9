#include "evaluation/vb_project.h"

#include <algorithm>

namespace tavrik::evaluation {

using rules::Origin;

namespace {

constexpr uint32_t kSignature = 0x21354256; // "VB5!"

// Sizes of the structures, in bytes; of the external references, of one.
constexpr std::size_t kHeaderSize = 0x68;
constexpr std::size_t kProjectSize = 0x23C;
constexpr std::size_t kObjectTableSize = 0x54;
constexpr std::size_t kComDataSize = 0x2A;
constexpr std::size_t kProject2Size = 0x28;
constexpr std::size_t kFormSize = 0x50;
constexpr std::size_t kExternalSize = 8;
constexpr std::size_t kObjectSize = 48;
constexpr std::size_t kObjectInfoSize = 56;
constexpr std::size_t kOptionalInfoSize = 0x34;

// Offsets of the fields that lead on, and of the counts.
enum HeaderOffset : uint16_t { kProjectData = 0x30, kFormCount = 0x44, kFormTable = 0x4C, kComRegisterData = 0x54 };
enum ProjectOffset : uint16_t { kObjectTable = 0x4, kExternalTable = 0x234, kExternalCount = 0x238 };
enum ObjectTableOffset : uint16_t { kProject2 = 0x8, kTotalObjects = 0x2A, kObjectArray = 0x30 };
enum ObjectOffset : uint16_t {
    kObjectInfo = 0x0,
    kObjectName = 0x18,
    kMethodCount = 0x1C,
    kMethodNames = 0x20,
    kObjectType = 0x28
};

constexpr uint32_t kHasOptionalInfo = 2; // bit of ObjectType

} // namespace

VbProject::VbProject(const pe::Image &image) : image_(image) {
    const std::optional<uint32_t> address = PushedAddress();
    const std::optional<uint64_t> header = WholeAt(OffsetOf(address), kHeaderSize);
    if (!header || Number(header, 0, 4) != kSignature)
        return;
    header_ = header;
    if (const std::optional<std::size_t> section = image_.SectionHolding(*address - image_.ImageBase()))
        region_ = {*header, image_.RawData(*section).End() - *header};
}

// The address that the entry point pushes when it starts the runtime: at once in a program, in a library after the
// return address that it takes from the stack.
std::optional<uint32_t> VbProject::PushedAddress() const {
    if (image_.IsPe32Plus() || image_.AddressOfEntryPoint() == 0)
        return std::nullopt;
    const std::optional<uint64_t> entry = image_.OffsetOfRva(image_.AddressOfEntryPoint());
    if (Number(entry, 0, 1) == 0x68 && Number(entry, 5, 1) == 0xE8)
        return Number(entry, 1, 4);
    if (Number(entry, 0, 2) == 0x685A && Number(entry, 6, 1) == 0x68)
        return Number(entry, 2, 4);
    return std::nullopt;
}

std::optional<uint64_t> VbProject::OffsetOf(std::optional<uint32_t> address) const {
    return address ? image_.OffsetOfAddress(*address) : std::nullopt;
}

std::optional<uint64_t> VbProject::WholeAt(std::optional<uint64_t> offset, std::size_t size) const {
    return offset && *offset <= image_.size() && size <= image_.size() - *offset ? offset : std::nullopt;
}

std::optional<uint32_t> VbProject::Number(std::optional<uint64_t> structure, uint16_t offset, uint8_t width) const {
    if (!structure)
        return std::nullopt;
    switch (width) {
    case 1:
        return image_.bytes().Get<uint8_t>(*structure + offset);
    case 2:
        return image_.bytes().Get<uint16_t>(*structure + offset);
    default:
        return image_.bytes().Get<uint32_t>(*structure + offset);
    }
}

std::optional<uint64_t> VbProject::PlaceOf(Origin origin) {
    Place &place = places_[static_cast<std::size_t>(origin) - static_cast<std::size_t>(Origin::VbHeader)];
    if (!place.is_known) {
        place.offset = FindStructure(origin);
        place.is_known = true;
    }
    return place.offset;
}

std::optional<uint64_t> VbProject::FindStructure(Origin origin) {
    const auto follow = [this](Origin from, uint16_t offset, std::size_t size) {
        return WholeAt(OffsetOf(Number(PlaceOf(from), offset, 4)), size);
    };
    switch (origin) {
    case Origin::VbHeader:
        return header_;
    case Origin::VbProject:
        return follow(Origin::VbHeader, kProjectData, kProjectSize);
    case Origin::VbComData:
        return follow(Origin::VbHeader, kComRegisterData, kComDataSize);
    case Origin::VbForm:
        if (Number(header_, kFormCount, 2).value_or(0) == 0)
            return std::nullopt;
        return follow(Origin::VbHeader, kFormTable, kFormSize);
    case Origin::VbObjectTable:
        return follow(Origin::VbProject, kObjectTable, kObjectTableSize);
    case Origin::VbExternals:
        return follow(Origin::VbProject, kExternalTable, 0);
    case Origin::VbProject2:
        return follow(Origin::VbObjectTable, kProject2, kProject2Size);
    default:
        return std::nullopt;
    }
}

std::optional<uint32_t> VbProject::Value(const rules::Field &field) {
    if (!header_)
        return std::nullopt;
    const std::optional<uint64_t> structure = PlaceOf(field.origin);
    if (field.origin == Origin::VbExternals && structure) {
        const std::size_t index = field.offset / kExternalSize;
        if (index >= Number(PlaceOf(Origin::VbProject), kExternalCount, 4).value_or(0) ||
            !WholeAt(*structure + index * kExternalSize, kExternalSize))
            return std::nullopt;
    }
    return Number(structure, field.offset, field.width);
}

uint32_t VbProject::ObjectCount() {
    return std::min(Number(PlaceOf(Origin::VbObjectTable), kTotalObjects, 2).value_or(0), kMostObjects);
}

std::optional<uint64_t> VbProject::ObjectAt(uint32_t object) {
    if (object >= ObjectCount())
        return std::nullopt;
    const std::optional<uint64_t> array = OffsetOf(Number(PlaceOf(Origin::VbObjectTable), kObjectArray, 4));
    return array ? WholeAt(*array + uint64_t{object} * kObjectSize, kObjectSize) : std::nullopt;
}

std::optional<uint32_t> VbProject::ObjectValue(uint32_t object, const rules::Field &field) {
    const std::optional<uint64_t> descriptor = ObjectAt(object);
    if (field.origin == Origin::VbObject)
        return Number(descriptor, field.offset, field.width);
    const std::optional<uint64_t> info = WholeAt(OffsetOf(Number(descriptor, kObjectInfo, 4)), kObjectInfoSize);
    if (field.origin == Origin::VbObjectInfo || !info)
        return Number(info, field.offset, field.width);
    if ((Number(descriptor, kObjectType, 4).value_or(0) & kHasOptionalInfo) == 0)
        return std::nullopt;
    return Number(WholeAt(*info + kObjectInfoSize, kOptionalInfoSize), field.offset, field.width);
}

std::optional<std::string> VbProject::ObjectName(uint32_t object) {
    const std::optional<uint64_t> name = OffsetOf(Number(ObjectAt(object), kObjectName, 4));
    return name ? image_.bytes().Text(*name) : std::nullopt;
}

std::optional<std::vector<std::string>> VbProject::MethodNames(uint32_t object) {
    const std::optional<uint64_t> descriptor = ObjectAt(object);
    if (!descriptor)
        return std::nullopt;
    std::vector<std::string> names;
    const uint32_t count = std::min(Number(descriptor, kMethodCount, 4).value_or(0), kMostMethods);
    const std::optional<uint64_t> table = OffsetOf(Number(descriptor, kMethodNames, 4));
    for (uint32_t i = 0; table && i < count; ++i) {
        const std::optional<uint32_t> address = image_.bytes().Get<uint32_t>(*table + uint64_t{i} * sizeof(uint32_t));
        if (!address)
            break;
        const std::optional<uint64_t> offset = *address == 0 ? std::nullopt : OffsetOf(address);
        if (std::optional<std::string> name = offset ? image_.bytes().Text(*offset) : std::nullopt)
            names.push_back(std::move(*name));
    }
    return names;
}

} // namespace tavrik::evaluation
