#include "scanner/payload_report.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "base/text.h"
#include "scanner/locator_info.h"
#include "scanner/report_json.h"

namespace tavrik::scanner {

const char *FormatName(const payloads::Extent &extent) {
    switch (extent.format) {
    case payloads::Format::Nsis:
        return "nsis";
    case payloads::Format::AutoIt:
        return "autoit";
    case payloads::Format::Cabinet:
        return "cabinet";
    case payloads::Format::Rar:
        return "rar";
    }
    return "unknown";
}

std::string PayloadText(const Payload &payload) {
    const std::string found_by =
        fmt::format("{} {}", payload.entries.size() == 1 ? "entry" : "entries", fmt::join(payload.entries, ", "));
    if (!payload.extent)
        return fmt::format("{}: {}, offset {:#x}, length unknown", found_by, KindName(payload.kind), payload.offset);
    const payloads::Extent &extent = *payload.extent;
    return fmt::format("{}: {}, offset {:#x}, length {} ({}{})", found_by, base::Printable(extent.description),
                       extent.offset, extent.length,
                       extent.complete ? "complete" : fmt::format("truncated, {} bytes missing", payload.missing()),
                       extent.encrypted ? ", encrypted" : "");
}

std::string CarvedText(const Payload &payload) {
    if (!payload.not_carved.empty())
        return fmt::format("offset {:#x} not carved: {}", payload.offset, base::Printable(payload.not_carved));
    if (!payload.carved)
        return "";
    return fmt::format("offset {:#x} carved, {} bytes, {} {}", payload.offset, payload.carved->length,
                       payload.carved->is_new ? "to" : "the same as", base::PrintablePath(payload.carved->file));
}

Json PayloadObject(const Payload &payload) {
    const bool is_known = payload.extent.has_value();
    Json object = {{"entries", payload.entries},
                   {"offset", payload.offset},
                   {"format", is_known ? Json(FormatName(*payload.extent)) : Json(nullptr)},
                   {"description", is_known ? payload.extent->description : KindName(payload.kind)},
                   {"length", is_known ? Json(payload.extent->length) : Json(nullptr)},
                   {"present", is_known ? Json(payload.extent->present) : Json(nullptr)},
                   {"complete", is_known ? Json(payload.extent->complete) : Json(nullptr)},
                   {"missing", is_known ? Json(payload.missing()) : Json(nullptr)},
                   {"encrypted", is_known ? Json(payload.extent->encrypted) : Json(nullptr)},
                   {"sha256", payload.sha256.empty() ? Json(nullptr) : Json(payload.sha256)}};
    if (payload.carved) {
        Json &carved = object["carved"];
        AddPath(carved, "file", payload.carved->file);
        carved["length"] = payload.carved->length;
        carved["sha256"] = payload.carved->sha256;
        carved["new"] = payload.carved->is_new;
    }
    if (!payload.not_carved.empty())
        object["not_carved"] = payload.not_carved;
    return object;
}

} // namespace tavrik::scanner
