#include "scanner/payloads/extent.h"

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
    // Each begins by comparing a few bytes, so that asking all of them costs little.
    for (const auto reader : {ReadCabinetExtent, ReadRarExtent, ReadNsisExtent, ReadAutoItExtent})
        if (std::optional<Extent> extent = reader(source, offset))
            return extent;
    return std::nullopt;
}

} // namespace tavrik::scanner::payloads
