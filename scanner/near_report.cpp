#include "scanner/near_report.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include "base/text.h"
#include "scanner/locator_info.h"
#include "scanner/payload_report.h"

namespace tavrik::scanner {

namespace {

std::string PayloadText(const NearMiss &miss) {
    if (!miss.extent)
        return fmt::format("{}, offset {:#x}, an altered marker", KindName(miss.kind), miss.offset);
    std::string text =
        fmt::format("{}, offset {:#x}, {} bytes", miss.extent->description, miss.offset, miss.extent->length);
    if (!miss.extent->complete)
        fmt::format_to(std::back_inserter(text), ", truncated by {} bytes", miss.extent->length - miss.extent->present);
    return text + (miss.extent->encrypted ? ", encrypted" : "");
}

std::string ConditionsText(const MissedEntry &entry) {
    std::string text;
    const std::size_t shown = std::min(entry.failed.size(), kMostShownConditions);
    for (std::size_t index = 0; index < shown; ++index)
        text += (index == 0 ? "" : "; ") + ConditionText(entry.failed[index]);
    if (entry.failed.size() > shown)
        fmt::format_to(std::back_inserter(text), "; and {} more", entry.failed.size() - shown);
    return text;
}

} // namespace

std::string NearTitle(const NearMiss &miss) {
    return fmt::format("{}: {}",
                       miss.status == NearMiss::Status::NearMiss
                           ? fmt::format("near miss of entry {}", miss.entries.front().entry)
                           : "unknown build",
                       miss.extent ? miss.extent->description : KindName(miss.kind));
}

std::string ConditionText(const FailedCondition &condition) {
    return fmt::format("{} is {}, wanted {}", condition.field, condition.value, condition.wanted);
}

std::string NearText(const NearMiss &miss) {
    const MissedEntry &nearest = miss.entries.front();
    if (miss.status == NearMiss::Status::NearMiss)
        return fmt::format("near miss of entry {}: {}; {}", nearest.entry, PayloadText(miss), ConditionsText(nearest));
    const std::string payload = PayloadText(miss);
    if (nearest.failed.empty())
        return fmt::format("unknown build: {}; entry {}, whose gate it passes, looks elsewhere", payload,
                           nearest.entry);
    return fmt::format("unknown build: {}; nearest is entry {}, {} not met: {}", payload, nearest.entry,
                       base::CountText(nearest.failed.size(), "condition"), ConditionsText(nearest));
}

base::Json NearObject(const NearMiss &miss) {
    using base::Json;
    Json object = {{"status", miss.status == NearMiss::Status::NearMiss ? "near-miss" : "unknown-build"},
                   {"kind", miss.kind},
                   {"kind_name", KindName(miss.kind)},
                   {"offset", miss.offset}};
    const bool is_known = miss.extent.has_value();
    object["format"] = is_known ? Json(FormatName(*miss.extent)) : Json(nullptr);
    object["description"] = is_known ? miss.extent->description : KindName(miss.kind);
    object["length"] = is_known ? Json(miss.extent->length) : Json(nullptr);
    object["complete"] = is_known ? Json(miss.extent->complete) : Json(nullptr);
    object["encrypted"] = is_known ? Json(miss.extent->encrypted) : Json(nullptr);
    Json &entries = object["entries"] = Json::array();
    for (const MissedEntry &missed : miss.entries) {
        Json &entry = entries.push_back(Json{{"entry", missed.entry}, {"failed", Json::array()}});
        for (const FailedCondition &condition : missed.failed)
            entry["failed"].push_back(
                {{"field", condition.field}, {"value", condition.value}, {"wanted", condition.wanted}});
    }
    return object;
}

} // namespace tavrik::scanner
