#include "scanner/payloads/extent.h"

#include <array>
#include <cstring>
#include <span>
#include <string_view>

#include "scanner/payloads/readers.h"
#include "tavrik2/payload_locator.h"

namespace tavrik::scanner::payloads {
namespace {

// Locators report the marker of a Nullsoft installer, which follows a word of flags.
constexpr uint64_t kNsisMarkerDistance = 4;

} // namespace

const char *ExtensionOf(Format format) {
    switch (format) {
    case Format::Nsis:
        return "nsis";
    case Format::AutoIt:
        return "a3x";
    case Format::Cabinet:
        return "cab";
    case Format::Rar:
        return "rar";
    }
    return "";
}

std::optional<Format> FormatOf(uint32_t kind) {
    switch (kind) {
    case PAYLOAD_NULLSOFT:
        return Format::Nsis;
    case PAYLOAD_AUTOIT:
        return Format::AutoIt;
    case PAYLOAD_RAR:
        return Format::Rar;
    case PAYLOAD_CABINET:
        return Format::Cabinet;
    default:
        return std::nullopt;
    }
}

std::optional<Extent> ReadExtent(base::ByteSource &source, Format format, uint64_t offset) {
    switch (format) {
    case Format::Nsis:
        if (offset >= kNsisMarkerDistance)
            if (std::optional<Extent> extent = ReadNsisExtent(source, offset - kNsisMarkerDistance))
                return extent;
        return ReadNsisExtent(source, offset);
    case Format::AutoIt:
        return ReadAutoItExtent(source, offset);
    case Format::Cabinet:
        return ReadCabinetExtent(source, offset);
    case Format::Rar:
        return ReadRarExtent(source, offset);
    }
    return std::nullopt;
}

std::optional<Extent> ReadExtentAt(base::ByteSource &source, uint64_t offset) {
    // Asked for many offsets, of which few begin a payload: one small read decides.
    std::array<uint8_t, kLongestHead> buffer;
    const std::span<const uint8_t> head = std::span(buffer).first(source.ReadAt(offset, buffer.data(), buffer.size()));
    const auto has = [head](std::string_view bytes, std::size_t place) {
        return head.size() >= place + bytes.size() && std::memcmp(head.data() + place, bytes.data(), bytes.size()) == 0;
    };
    std::optional<Extent> extent;
    if (has("MSCF", 0))
        extent = ReadCabinetExtent(source, offset);
    else if (has("Rar!", 0))
        extent = ReadRarExtent(source, offset);
    else if (has("NullsoftInst", 2 * kNsisMarkerDistance))
        extent = ReadNsisExtent(source, offset);
    // A script's marker may be anything, the others' included.
    if (!extent && MayBeAutoIt(head))
        extent = ReadAutoItExtent(source, offset);
    return extent;
}

} // namespace tavrik::scanner::payloads
