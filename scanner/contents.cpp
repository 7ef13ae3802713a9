#include "scanner/contents.h"

#include "base/error.h"
#include "evaluation/features.h"
#include "scanner/host_records.h"
#include "scanner/near_miss.h"
#include "scanner/payloads/archive_container.h"
#include "scanner/payloads/archive_signatures.h"

namespace tavrik::scanner {

std::optional<ContentsPlace> WholeContents(base::ByteSource &source) {
    if (const payloads::ArchiveSignature *signature = payloads::SignatureOf(source);
        signature != nullptr && payloads::kReadsArchives)
        return ContentsPlace{std::string(signature->name), std::nullopt};
    if (std::optional<payloads::Extent> extent = payloads::ReadExtentAt(source, 0))
        return ContentsPlace{extent->description, extent};
    return std::nullopt;
}

std::vector<base::Region> RegionsOf(std::span<const Payload> payloads) {
    std::vector<base::Region> regions;
    for (const Payload &payload : payloads)
        regions.push_back({payload.offset, payload.extent ? payload.extent->present : 1});
    return regions;
}

std::vector<ContentsPlace> PlacesOf(std::span<const Payload> payloads) {
    std::vector<ContentsPlace> places;
    for (const Payload &payload : payloads)
        if (payload.extent)
            places.push_back({payload.extent->description, payload.extent});
    return places;
}

std::vector<ContentsPlace> ContentsOf(const Scanner &scanner, base::ByteSource &source) {
    std::vector<ContentsPlace> places;
    evaluation::Features features(source);
    const PeResult pe = MakeHostRecords(features.image(), source);
    if (pe.status == PeStatus::ReadFailed)
        throw base::Error(pe.text, source.error_code());
    if (pe.status == PeStatus::NotPe) {
        if (std::optional<ContentsPlace> whole = WholeContents(source))
            places.push_back(std::move(*whole));
        return places;
    }
    std::vector<Payload> found;
    if (scanner.module() != nullptr)
        found = PayloadsOf(source, RunLocators(*scanner.module(), source, pe.records));
    places = PlacesOf(found);
    for (NearMiss &build : FindUnknownBuilds(source, features.image(), pe.records, RegionsOf(found)))
        places.push_back({build.extent->description, std::move(build.extent)});
    return places;
}

std::unique_ptr<payloads::Container> Open(base::ByteSource &source, const ContentsPlace &place) {
    std::unique_ptr<payloads::Container> container =
        place.extent ? payloads::OpenPayload(source, *place.extent) : payloads::OpenArchive(source);
    if (container == nullptr)
        container = std::make_unique<payloads::UnreadableContainer>("is no " + place.description + " any more");
    return container;
}

} // namespace tavrik::scanner
