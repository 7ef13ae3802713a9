// Payloads of builds that no entry knows: at the places where payloads of the known formats usually begin.

#include <algorithm>
#include <array>

#include "pe/resource_tree.h"
#include "scanner/locator_info.h"
#include "scanner/near_miss.h"

namespace tavrik::scanner {

namespace {

constexpr uint64_t kStep = 512;                // bytes; stubs look for their payload at multiples of it
constexpr std::size_t kMostSteps = 16 * 1024;  // in the overlay, 8 MiB
constexpr std::size_t kMostResources = 4096;   // in the order of the tree
constexpr std::size_t kMostUnknownBuilds = 16; // in a file

// Where payloads usually begin, in the order of the file, each once.
std::vector<uint64_t> UsualPlaces(const pe::Image &image) {
    std::vector<uint64_t> places;
    uint64_t overlay = 0;
    for (std::size_t section = 0; section < image.sections().size(); ++section) {
        const base::Region data = image.RawData(section);
        if (data.IsAbsent())
            continue;
        places.push_back(data.offset);
        overlay = std::max(overlay, data.End());
    }
    const pe::ResourceTree tree = pe::ReadResources(image);
    for (std::size_t index = 0; index < std::min(tree.resources.size(), kMostResources); ++index)
        if (!tree.resources[index].data.IsAbsent())
            places.push_back(tree.resources[index].data.offset);
    if (overlay != 0 && overlay < image.size()) {
        places.push_back(overlay);
        const uint64_t end = std::min(image.size(), overlay + kStep * kMostSteps);
        for (uint64_t place = overlay / kStep * kStep + kStep; place < end; place += kStep)
            places.push_back(place);
    }
    std::sort(places.begin(), places.end());
    places.erase(std::unique(places.begin(), places.end()), places.end());
    return places;
}

// Whether the bytes at a place are those that one of the formats begins with. Nearly every place is done with here.
bool MayBegin(base::FileBytes &bytes, uint64_t place) {
    constexpr uint32_t kCabinet = 0x4643534D; // "MSCF"
    constexpr uint32_t kRar = 0x21726152;     // "Rar!"
    constexpr uint32_t kAutoIt = 0xBE4B48A3;
    constexpr uint32_t kNsis = 0xDEADBEEF; // after a word of flags
    const std::optional<uint32_t> first = bytes.Get<uint32_t>(place);
    return first == kCabinet || first == kRar || first == kAutoIt || bytes.Get<uint32_t>(place + 4) == kNsis;
}

uint32_t KindOf(payloads::Format format) {
    for (const uint32_t kind : {PAYLOAD_NULLSOFT, PAYLOAD_AUTOIT, PAYLOAD_RAR, PAYLOAD_CABINET})
        if (payloads::FormatOf(kind) == format)
            return kind;
    return 0;
}

// The entry of that kind whose gate the file comes nearest to, the first of several.
MissedEntry NearestEntry(uint32_t kind, base::ByteSource &source, const HostRecords &records) {
    std::optional<MissedEntry> nearest;
    for (uint32_t entry = 0; entry < LOCATOR_COUNT; ++entry) {
        if (entry == kDecliningEntry || kLocatorInfo[entry].kind != kind)
            continue;
        MissedEntry missed = JudgeEntry(entry, source, records);
        if (!nearest || missed.failed.size() < nearest->failed.size())
            nearest = std::move(missed);
    }
    return nearest.value_or(MissedEntry{});
}

} // namespace

std::vector<NearMiss> FindUnknownBuilds(base::ByteSource &source, const pe::Image &image, const HostRecords &records,
                                        std::span<const base::Region> known) {
    std::vector<NearMiss> builds;
    uint64_t end = 0; // of the payload that was found last: what is in it belongs to it
    for (const uint64_t place : UsualPlaces(image)) {
        const auto is_within = [&](const base::Region &region) {
            return place >= region.offset && place < region.End();
        };
        if (place < end || std::any_of(known.begin(), known.end(), is_within))
            continue;
        if (!MayBegin(image.bytes(), place))
            continue;
        std::optional<payloads::Extent> extent = payloads::ReadExtentAt(source, place);
        if (!extent)
            continue;
        const uint32_t kind = KindOf(extent->format);
        end = place + extent->present;
        builds.push_back({.status = NearMiss::Status::UnknownBuild,
                          .kind = kind,
                          .offset = place,
                          .extent = std::move(extent),
                          .entries = {NearestEntry(kind, source, records)}});
        if (builds.size() == kMostUnknownBuilds)
            break;
    }
    return builds;
}

} // namespace tavrik::scanner
