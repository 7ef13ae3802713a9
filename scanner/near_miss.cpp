#include "scanner/near_miss.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "scanner/gate_tree.h"
#include "scanner/locator_info.h"
#include "scanner/module_stream.h"
#include "tavrik2/locators/locators.h"

namespace tavrik::scanner {

namespace {

// The searches of the entries, without the gates that the module asks first.
constexpr tavrik2::Locate kSearches[LOCATOR_COUNT] = {
#define LOCATOR_ENTRY(number, flags, kind, description) tavrik2::Locate##number,
#include "tavrik2/locators/entries.def"
#undef LOCATOR_ENTRY
};

tavrik2::TargetFile MakeTarget(ModuleStream &stream, const base::ByteSource &source, const HostRecords &records,
                               const SectionHeader &first_section) {
    return {stream.stream(),          ModuleStream::handle(), static_cast<int32_t>(source.size()),
            records.data_dirs.data(), &records.file_header,   &records.opt_header,
            &first_section,           &records.last_section,  records.entry_code.data()};
}

// A script whose first bytes are not those that the format has: a build that altered them, which no reader knows.
bool IsAlteredScript(base::ByteSource &source, uint32_t kind, uint32_t offset) {
    constexpr char kTag[] = "AU3!EA0";
    constexpr uint64_t kTagDistance = 16;
    char there[sizeof kTag - 1] = {};
    source.ReadAt(offset + kTagDistance, there, sizeof there);
    return kind == PAYLOAD_AUTOIT && std::memcmp(there, kTag, sizeof there) != 0;
}

// What is at the place that a search found; nothing when it is no payload.
std::optional<NearMiss> Confirm(base::ByteSource &source, uint32_t kind, const tavrik2::Finding &finding) {
    NearMiss miss;
    miss.kind = kind;
    miss.offset = finding.offset;
    if (const std::optional<payloads::Format> format = payloads::FormatOf(kind))
        miss.extent = payloads::ReadExtent(source, *format, finding.offset);
    if (miss.extent)
        miss.offset = miss.extent->offset;
    else if (!IsAlteredScript(source, kind, finding.offset))
        return std::nullopt;
    return miss;
}

bool IsKnown(const NearMiss &miss, std::span<const base::Region> known) {
    return std::any_of(known.begin(), known.end(), [&](const base::Region &region) {
        return miss.offset >= region.offset && miss.offset < region.End();
    });
}

// A payload with one more entry that misses it.
void Add(std::vector<NearMiss> &misses, NearMiss found, MissedEntry entry) {
    const auto same = std::find_if(misses.begin(), misses.end(), [&](const NearMiss &miss) {
        return miss.kind == found.kind && miss.offset == found.offset;
    });
    NearMiss &miss = same == misses.end() ? misses.emplace_back(std::move(found)) : *same;
    const auto is_known = [&](const MissedEntry &known) { return known.entry == entry.entry; };
    if (std::none_of(miss.entries.begin(), miss.entries.end(), is_known))
        miss.entries.push_back(std::move(entry));
}

MissedEntry Missed(uint32_t entry, const GateNode &judged) {
    MissedEntry missed = {.entry = entry, .failed = {}};
    for (const GateNode *condition : FailedConditions(judged))
        missed.failed.push_back(
            {FieldName(condition->field), ValueText(condition->field, condition->value), WantedText(*condition)});
    return missed;
}

} // namespace

MissedEntry JudgeEntry(uint32_t entry, base::ByteSource &source, const HostRecords &records) {
    base::WindowSource window(source, 0, kLargestFile);
    std::optional<GateNode> nearest;
    for (const SectionHeader &first_section : records.first_sections) {
        ModuleStream stream(window);
        GateNode judged = JudgeGate(tavrik2::GateOf(entry), MakeTarget(stream, window, records, first_section));
        if (!nearest || CountFailed(judged) < CountFailed(*nearest))
            nearest = std::move(judged);
    }
    return Missed(entry, *nearest);
}

std::vector<NearMiss> SearchBelowGates(base::ByteSource &source, const HostRecords &records, std::size_t most_failed,
                                       std::span<const base::Region> known) {
    base::WindowSource window(source, 0, kLargestFile);
    std::vector<NearMiss> misses;
    for (uint32_t entry = 0; entry < LOCATOR_COUNT; ++entry) {
        if (entry == kDecliningEntry)
            continue;
        for (const SectionHeader &first_section : records.first_sections) {
            ModuleStream stream(window);
            const tavrik2::TargetFile file = MakeTarget(stream, window, records, first_section);
            const GateNode judged = JudgeGate(tavrik2::GateOf(entry), file);
            const std::size_t failed = CountFailed(judged);
            tavrik2::Finding finding;
            if (failed == 0 || failed > most_failed || kSearches[entry](file, &finding) == tavrik2::kDeclined)
                continue;
            std::optional<NearMiss> found = Confirm(source, kLocatorInfo[entry].kind, finding);
            if (found && !IsKnown(*found, known))
                Add(misses, std::move(*found), Missed(entry, judged));
        }
    }
    for (NearMiss &miss : misses)
        std::stable_sort(
            miss.entries.begin(), miss.entries.end(),
            [](const MissedEntry &one, const MissedEntry &other) { return one.failed.size() < other.failed.size(); });
    return misses;
}

std::vector<NearMiss> FindNearMisses(base::ByteSource &source, const pe::Image &image, const HostRecords &records,
                                     std::size_t most_failed, std::span<const base::Region> known) {
    std::vector<NearMiss> misses = SearchBelowGates(source, records, most_failed, known);
    std::vector<base::Region> taken(known.begin(), known.end());
    for (const NearMiss &miss : misses)
        taken.push_back({miss.offset, miss.extent ? miss.extent->present : 1});
    std::vector<NearMiss> unknown = FindUnknownBuilds(source, image, records, taken);
    misses.insert(misses.end(), std::make_move_iterator(unknown.begin()), std::make_move_iterator(unknown.end()));
    std::stable_sort(misses.begin(), misses.end(),
                     [](const NearMiss &one, const NearMiss &other) { return one.offset < other.offset; });
    return misses;
}

} // namespace tavrik::scanner
