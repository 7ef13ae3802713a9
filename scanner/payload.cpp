#include "scanner/payload.h"

#include <algorithm>

#include "base/sha256.h"

namespace tavrik::scanner {

std::vector<Payload> PayloadsOf(base::ByteSource &source, std::span<const Finding> findings) {
    struct Place {
        uint32_t kind;
        uint32_t offset;
        std::size_t payload; // its index
    };
    std::vector<Place> places; // as the locators report them
    std::vector<Payload> payloads;
    for (const Finding &finding : findings) {
        auto place = std::find_if(places.begin(), places.end(), [&](const Place &known) {
            return known.kind == finding.kind && known.offset == finding.offset;
        });
        if (place == places.end()) {
            Payload payload;
            payload.kind = finding.kind;
            payload.offset = finding.offset;
            if (const std::optional<payloads::Format> format = payloads::FormatOf(finding.kind))
                payload.extent = payloads::ReadExtent(source, *format, finding.offset);
            if (payload.extent)
                payload.offset = payload.extent->offset;
            const auto same = std::find_if(payloads.begin(), payloads.end(), [&](const Payload &known) {
                return known.kind == payload.kind && known.offset == payload.offset && known.extent == payload.extent;
            });
            place = places.insert(places.end(),
                                  {finding.kind, finding.offset, static_cast<std::size_t>(same - payloads.begin())});
            if (same == payloads.end())
                payloads.push_back(std::move(payload));
        }
        std::vector<uint32_t> &entries = payloads[place->payload].entries;
        if (std::find(entries.begin(), entries.end(), finding.entry) == entries.end())
            entries.push_back(finding.entry);
    }
    return payloads;
}

void HashPayloads(base::ByteSource &source, std::vector<Payload> &payloads) {
    uint64_t hashed = 0;
    for (Payload &payload : payloads) {
        if (!payload.extent || payload.extent->present > kMostHashed - hashed)
            continue;
        hashed += payload.extent->present;
        base::WindowSource window(source, payload.extent->offset, payload.extent->present);
        payload.sha256 = base::Sha256Of(window);
    }
}

} // namespace tavrik::scanner
