#include <iterator>

#include <fmt/format.h>

#include "base/console.h"
#include "base/text.h"
#include "scanner/clean_action.h"
#include "scanner/near_report.h"
#include "scanner/payload_report.h"
#include "scanner/report.h"

namespace tavrik::scanner {

std::string TextLines(const FileReport &report, bool in_colour) {
    if (report.detections.empty() && report.payloads.empty() && !report.near)
        return "";
    const std::string file = base::PrintablePath(report.file);
    std::string lines;
    const auto add = [&](base::Colour colour, const std::string &words) {
        fmt::format_to(std::back_inserter(lines), "{}: {}\n", file, base::Paint(in_colour, colour, words));
    };
    for (const Detection &detection : report.detections)
        add(base::Colour::Detection, fmt::format("rule {} \"{}\", action {}", detection.rule,
                                                 base::Printable(detection.name), ActionName(detection.action)));
    for (const Payload &payload : report.payloads)
        add(base::Colour::Finding, PayloadText(payload));
    for (const Payload &payload : report.payloads)
        if (const std::string carved = CarvedText(payload); !carved.empty())
            add(base::Colour::Finding, carved);
    for (const NearMiss &miss : report.near.value_or(std::vector<NearMiss>{}))
        add(base::Colour::NearMiss, base::Printable(NearText(miss)));
    return lines;
}

std::string NoteLines(const FileReport &report, bool names_skipped, std::string_view program) {
    std::string lines;
    const auto add = [&](std::string_view kind, const std::string &text) {
        fmt::format_to(std::back_inserter(lines), "{}: {}: {}{}\n", program, base::PrintablePath(report.file), kind,
                       base::Printable(text));
    };
    if (names_skipped && report.status == ScanStatus::Skipped)
        add("skipped: ", report.error);
    for (const Note &note : report.notes)
        add("", note.text);
    return lines;
}

std::string ErrorLine(const std::filesystem::path &file, const std::string &reason, bool in_colour,
                      std::string_view program) {
    return fmt::format("{}: {}: {}\n", program, base::PrintablePath(file),
                       base::Paint(in_colour, base::Colour::Error, base::Printable(reason)));
}

} // namespace tavrik::scanner
