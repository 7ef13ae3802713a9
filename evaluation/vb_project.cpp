#include "evaluation/vb_project.h"

#include <algorithm>
#include <string_view>

#include "pe/export_table.h"
#include "rules/numbers.h"
#include "rules/vb_format.h"

namespace tavrik::evaluation {

using rules::Origin;

namespace {

namespace field = rules::header_field;
namespace object_field = rules::object_field;
namespace vb = rules::vb;

// Exported functions by which others load and register a library.
constexpr std::string_view kLibraryPrefix = "Dll";
constexpr uint32_t kMostExports = 64; // names that are looked at: a library has four

const rules::Field &HeaderField(uint16_t number) {
    return rules::HeaderFields()[number];
}

const rules::Field &ObjectField(uint16_t number) {
    return rules::ObjectFields()[number];
}

} // namespace

VbProject::VbProject(const pe::Image &image) : image_(image) {
    if (image_.IsPe32Plus())
        return;
    if (IsHeaderAt(PushedByEntryPoint()))
        return;
    const std::vector<uint32_t> functions = pe::ExportTable(image_).FunctionsNamed(kLibraryPrefix, kMostExports);
    for (const uint32_t function : functions)
        if (IsHeaderAt(PushedFirst(function)))
            return;
}

// Whether there is a project header, which is kept then.
bool VbProject::IsHeaderAt(std::optional<uint32_t> address) {
    const std::optional<uint64_t> header = WholeAt(OffsetOf(address), vb::kHeaderSize);
    if (!header || Number(header, 0, 4) != vb::kSignature)
        return false;
    header_ = header;
    if (const std::optional<std::size_t> section = image_.SectionHolding(*address - image_.ImageBase()))
        region_ = {*header, image_.RawData(*section).End() - *header};
    return true;
}

// The address that a function of a library pushes for the runtime, which implements it: at once, or after the return
// address that it takes from the stack into a register.
std::optional<uint32_t> VbProject::PushedFirst(uint32_t function) const {
    const std::optional<uint64_t> code = image_.OffsetOfRva(function);
    const std::optional<uint32_t> first = Number(code, 0, 1);
    if (first == 0x68)
        return Number(code, 1, 4);
    if (first && (*first & 0xF8) == 0x58 && Number(code, 1, 1) == 0x68)
        return Number(code, 2, 4);
    return std::nullopt;
}

// The address that the entry point pushes when it starts the runtime: at once in a program, in a library after the
// return address that it takes from the stack. Most libraries push other addresses there.
std::optional<uint32_t> VbProject::PushedByEntryPoint() const {
    if (image_.AddressOfEntryPoint() == 0)
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
    const auto follow = [this](uint16_t number, std::size_t size) {
        return WholeAt(OffsetOf(Value(HeaderField(number))), size);
    };
    switch (origin) {
    case Origin::VbHeader:
        return header_;
    case Origin::VbProject:
        return follow(field::kVbProjectData, vb::kProjectSize);
    case Origin::VbComData:
        return follow(field::kVbComRegisterData, vb::kComDataSize);
    case Origin::VbForm:
        if (Value(HeaderField(field::kVbFormCount)).value_or(0) == 0)
            return std::nullopt;
        return follow(field::kVbFormTable, vb::kFormSize);
    case Origin::VbObjectTable:
        return follow(field::kVbObjectTable, vb::kObjectTableSize);
    case Origin::VbExternals:
        return follow(field::kVbExternalTable, 0);
    case Origin::VbProject2:
        return follow(field::kVbProject2, vb::kProject2Size);
    default:
        return std::nullopt;
    }
}

std::optional<uint32_t> VbProject::Value(const rules::Field &field) {
    if (!header_)
        return std::nullopt;
    const std::optional<uint64_t> structure = PlaceOf(field.origin);
    if (field.origin == Origin::VbExternals && structure) {
        const std::size_t index = field.offset / vb::kExternalSize;
        if (index >= Value(HeaderField(field::kVbExternalCount)).value_or(0) ||
            !WholeAt(*structure + index * vb::kExternalSize, vb::kExternalSize))
            return std::nullopt;
    }
    return Number(structure, field.offset, field.width);
}

uint32_t VbProject::ObjectCount() {
    return std::min(Value(HeaderField(field::kVbTotalObjects)).value_or(0), kMostObjects);
}

std::optional<uint64_t> VbProject::ObjectAt(uint32_t object) {
    if (object >= ObjectCount())
        return std::nullopt;
    const std::optional<uint64_t> array = OffsetOf(Value(HeaderField(field::kVbObjectArray)));
    return array ? WholeAt(*array + uint64_t{object} * vb::kObjectSize, vb::kObjectSize) : std::nullopt;
}

std::optional<uint32_t> VbProject::ObjectValue(uint32_t object, const rules::Field &field) {
    const std::optional<uint64_t> descriptor = ObjectAt(object);
    if (field.origin == Origin::VbObject)
        return Number(descriptor, field.offset, field.width);
    const std::optional<uint64_t> info =
        WholeAt(OffsetOf(ObjectValue(object, ObjectField(object_field::kObjectInfo))), vb::kObjectInfoSize);
    if (field.origin == Origin::VbObjectInfo || !info)
        return Number(info, field.offset, field.width);
    if ((ObjectValue(object, ObjectField(object_field::kObjectType)).value_or(0) & vb::kHasOptionalInfo) == 0)
        return std::nullopt;
    return Number(WholeAt(*info + vb::kObjectInfoSize, vb::kOptionalInfoSize), field.offset, field.width);
}

std::optional<std::string> VbProject::ObjectName(uint32_t object) {
    const std::optional<uint64_t> name = OffsetOf(ObjectValue(object, ObjectField(object_field::kObjectName)));
    return name ? image_.bytes().Text(*name) : std::nullopt;
}

std::optional<std::vector<std::string>> VbProject::MethodNames(uint32_t object) {
    if (!ObjectAt(object))
        return std::nullopt;
    std::vector<std::string> names;
    const uint32_t methods = ObjectValue(object, ObjectField(object_field::kMethodCount)).value_or(0);
    const uint32_t count = std::min(methods, kMostMethods);
    const std::optional<uint64_t> table = OffsetOf(ObjectValue(object, ObjectField(object_field::kMethodNames)));
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
