#include "scanner/contents.h"

#include <algorithm>

#include "base/error.h"
#include "evaluation/features.h"
#include "scanner/host_records.h"
#include "scanner/payloads/archive_container.h"
#include "scanner/payloads/archive_signatures.h"

namespace tavrik::scanner {

namespace {

// The payload right after the last byte of the sections, where nearly all builds have it.
std::optional<payloads::Extent> PayloadOfOverlay(base::ByteSource &source, const HostRecords &records) {
    uint64_t overlay = 0;
    for (const SectionHeader &section : records.sections)
        overlay = std::max(overlay, uint64_t{section.PointerToRawData} + section.SizeOfRawData);
    return overlay == 0 ? std::nullopt : payloads::ReadExtentAt(source, overlay);
}

} // namespace

std::optional<ContentsPlace> WholeContents(base::ByteSource &source) {
    if (const payloads::ArchiveSignature *signature = payloads::SignatureOf(source);
        signature != nullptr && payloads::kReadsArchives)
        return ContentsPlace{std::string(signature->name), std::nullopt};
    if (std::optional<payloads::Extent> extent = payloads::ReadExtentAt(source, 0))
        return ContentsPlace{extent->description, extent};
    return std::nullopt;
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
        throw base::Error(pe.text);
    if (pe.status == PeStatus::NotPe) {
        if (std::optional<ContentsPlace> whole = WholeContents(source))
            places.push_back(std::move(*whole));
        return places;
    }
    if (scanner.module() != nullptr)
        places = PlacesOf(PayloadsOf(source, RunLocators(*scanner.module(), source, pe.records)));
    if (places.empty())
        if (const std::optional<payloads::Extent> extent = PayloadOfOverlay(source, pe.records))
            places.push_back({extent->description, extent});
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
