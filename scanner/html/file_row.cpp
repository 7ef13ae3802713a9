// One file's row in the report.

#include <algorithm>
#include <chrono>
#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "base/characters.h"
#include "base/markup.h"
#include "base/text.h"
#include "scanner/clean_action.h"
#include "scanner/html/html_report.h"
#include "scanner/locator_info.h"
#include "scanner/map/svg_map.h"
#include "scanner/near_report.h"

namespace tavrik::scanner::html {

namespace {

using base::MarkupText;

constexpr std::size_t kMostChips = 6; // of a kind in a row
constexpr std::size_t kMostVersionStrings = 32;
constexpr std::size_t kMostSegments = 100;

class Markup {
public:
    template <typename... Values>
    void Add(fmt::format_string<Values...> format, Values &&...values) {
        fmt::format_to(std::back_inserter(text_), format, std::forward<Values>(values)...);
    }

    std::string Take() { return std::move(text_); }

private:
    std::string text_;
};

bool IsClean(const FileReport &report) {
    return report.detections.empty() && report.payloads.empty() && (!report.near || report.near->empty());
}

bool HasError(const FileReport &report) {
    return report.status == ScanStatus::Failed || report.status == ScanStatus::Skipped;
}

std::string PayloadWords(const Payload &payload) {
    return payload.extent ? payload.extent->description : KindName(payload.kind);
}

// ---- The summary ---------------------------------------------------------------------------------------------------

template <typename Items, typename Words>
void AddChips(Markup &out, char kind, const Items &items, Words words) {
    for (std::size_t index = 0; index < std::min<std::size_t>(items.size(), kMostChips); ++index)
        out.Add("<span class=\"chip {}\">{}</span>", kind, MarkupText(words(items[index])));
    if (items.size() > kMostChips)
        out.Add("<span class=\"chip {}\">and {} more</span>", kind, items.size() - kMostChips);
}

std::string Chips(const FileReport &report) {
    Markup out;
    AddChips(out, 'd', report.detections, [](const Detection &detection) { return std::string(detection.name); });
    AddChips(out, 'p', report.payloads, PayloadWords);
    if (report.near)
        AddChips(out, 'm', *report.near, NearTitle);
    if (report.status == ScanStatus::Failed)
        out.Add("<span class=\"chip e\">error</span>");
    if (report.status == ScanStatus::Skipped)
        out.Add("<span class=\"chip e\">skipped</span>");
    if (IsClean(report) && !HasError(report))
        out.Add("<span class=\"chip\">{}</span>",
                report.status == ScanStatus::NotPe ? "not a PE file" : "nothing found");
    return out.Take();
}

// The kinds that the buttons filter by.
std::string Kinds(const FileReport &report) {
    std::string kinds;
    kinds += report.detections.empty() ? "" : "d ";
    kinds += report.payloads.empty() ? "" : "p ";
    kinds += report.near && !report.near->empty() ? "m " : "";
    kinds += HasError(report) ? "e " : IsClean(report) ? "c " : "";
    return kinds;
}

// The order by results.
std::size_t Weight(const FileReport &report) {
    return (report.detections.empty() ? 0u : 8u) + (report.payloads.empty() ? 0u : 4u) +
           (report.near && !report.near->empty() ? 2u : 0u) + (HasError(report) ? 1u : 0u);
}

// ---- The details ---------------------------------------------------------------------------------------------------

void AddFact(Markup &out, std::string_view name, std::string_view value) {
    if (!value.empty())
        out.Add("<dt>{}</dt><dd>{}</dd>\n", MarkupText(name), MarkupText(value));
}

std::string SignerText(const FileDetails &details) {
    if (!details.has_certificates)
        return "";
    if (!details.signer)
        return "a certificate table whose signer cannot be read";
    return fmt::format("{}, certificate issued by {} (parsed, not judged)", details.signer->name,
                       details.signer->issuer);
}

void AddFacts(Markup &out, const FileReport &report, const FileDetails &details) {
    out.Add("<dl>\n");
    AddFact(out, "Path", base::PathText(report.file));
    if (report.size)
        AddFact(out, "Size",
                *report.size < 1024 ? fmt::format("{} bytes", *report.size)
                                    : fmt::format("{} bytes ({})", *report.size, map::SizeText(*report.size)));
    AddFact(out, "Kind", details.kind);
    if (!details.sha256.empty())
        out.Add("<dt>SHA-256</dt><dd><code>{}</code></dd>\n", MarkupText(details.sha256));
    AddFact(out, "Error", report.error);
    AddFact(out, "Details", details.error);
    if (report.parent)
        AddFact(out, "Details",
                "not here for files inside others: unpack " + base::PathText(*report.parent) +
                    ", and scan what is in it");
    for (const Note &note : report.notes)
        AddFact(out, "Inside", note.text);
    AddFact(out, "Signer", SignerText(details));
    AddFact(out, "File version", details.version.file_version);
    for (std::size_t index = 0; index < std::min(details.version.strings.size(), kMostVersionStrings); ++index)
        AddFact(out, details.version.strings[index].first, details.version.strings[index].second);
    out.Add("</dl>\n");
}

void AddParts(Markup &out, const map::FileMap &map) {
    if (map.segments.empty())
        return;
    out.Add("<details class=\"box\"><summary>{}</summary><table><tr><th>Part</th><th class=\"n\">Offset</th>"
            "<th class=\"n\">End</th><th class=\"n\">Size</th><th class=\"n\">Entropy</th></tr>\n",
            base::CountText(map.segments.size(), "part"));
    for (std::size_t index = 0; index < std::min(map.segments.size(), kMostSegments); ++index) {
        const map::Segment &part = map.segments[index];
        out.Add("<tr><td>{}</td><td class=\"n\">{:#x}</td><td class=\"n\">{:#x}</td><td class=\"n\">{}</td>"
                "<td class=\"n\">{}</td></tr>\n",
                MarkupText(part.name), part.place.offset, part.place.End(), part.place.length,
                part.entropy < 0 ? "" : fmt::format("{:.2f}", part.entropy));
    }
    out.Add("</table></details>\n");
}

void AddDetections(Markup &out, const FileReport &report, const FileDetails &details) {
    if (report.detections.empty())
        return;
    out.Add("<h2>Detections</h2>\n");
    for (std::size_t index = 0; index < report.detections.size(); ++index) {
        const Detection &detection = report.detections[index];
        out.Add("<div><span class=\"chip d\">{}</span> rule {}, action {}</div>\n", MarkupText(detection.name),
                detection.rule, MarkupText(ActionName(detection.action)));
        if (index < details.conditions.size() && !details.conditions[index].empty()) {
            // Lines stay lines; everything else is made printable line by line.
            out.Add("<details class=\"box\"><summary>conditions</summary><pre>");
            std::string_view rest = details.conditions[index];
            while (!rest.empty()) {
                const std::size_t end = std::min(rest.find('\n'), rest.size());
                out.Add("{}\n", MarkupText(rest.substr(0, end)));
                rest.remove_prefix(std::min(end + 1, rest.size()));
            }
            out.Add("</pre></details>\n");
        }
    }
}

std::string TimeText(std::optional<int64_t> time) {
    // Years beyond these are no times of files.
    constexpr int64_t kFirst = -2208988800; // 1900
    constexpr int64_t kLast = 4102444800;   // 2100
    if (!time || *time < kFirst || *time > kLast)
        return "";
    const int64_t days = (*time >= 0 ? *time : *time - 86399) / 86400;
    const std::chrono::sys_days day{std::chrono::days{days}};
    const std::chrono::year_month_day date{day};
    const int64_t seconds = *time - days * 86400;
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", int{date.year()}, unsigned{date.month()}, unsigned{date.day()},
                       seconds / 3600, seconds / 60 % 60);
}

void AddContents(Markup &out, const Contents &contents) {
    if (contents.count == 0) {
        if (!contents.error.empty())
            out.Add("<div class=\"box\">Contents: {}</div>\n", MarkupText(contents.error));
        return;
    }
    out.Add("<details class=\"box\"><summary>contents: {}</summary><table><tr><th>Name</th><th class=\"n\">Size</th>"
            "<th class=\"n\">Packed</th><th>Time (UTC)</th></tr>\n",
            base::CountText(contents.count, "member"));
    for (const payloads::Member &member : contents.members)
        out.Add("<tr><td class=\"mono\">{}{}</td><td class=\"n\">{}</td><td class=\"n\">{}</td><td>{}{}</td></tr>\n",
                MarkupText(member.path), member.is_folder ? "/" : "", member.size ? fmt::to_string(*member.size) : "",
                member.packed_size ? fmt::to_string(*member.packed_size) : "", TimeText(member.time),
                member.encrypted ? " encrypted" : "");
    out.Add("</table>");
    if (contents.count > contents.members.size())
        out.Add("<div>and {} more</div>", contents.count - contents.members.size());
    if (!contents.error.empty())
        out.Add("<div>{}</div>", MarkupText(contents.error));
    out.Add("</details>\n");
}

void AddPayloads(Markup &out, const FileReport &report, const FileDetails &details) {
    if (report.payloads.empty())
        return;
    out.Add("<h2>Payloads</h2>\n");
    for (std::size_t index = 0; index < report.payloads.size(); ++index) {
        const Payload &payload = report.payloads[index];
        out.Add("<div><span class=\"chip p\">{}</span> at <code>{:#x}</code>", MarkupText(PayloadWords(payload)),
                payload.offset);
        if (payload.extent) {
            out.Add(", {} bytes", payload.extent->length);
            if (payload.missing() != 0)
                out.Add(", truncated by {} bytes", payload.missing());
            if (payload.extent->encrypted)
                out.Add(", encrypted");
        }
        out.Add(", found by {} {}</div>\n", payload.entries.size() == 1 ? "entry" : "entries",
                fmt::join(payload.entries, ", "));
        if (!payload.sha256.empty())
            out.Add("<div>SHA-256 <code>{}</code></div>\n", MarkupText(payload.sha256));
        if (index < details.contents.size())
            AddContents(out, details.contents[index]);
    }
}

void AddNear(Markup &out, const FileReport &report) {
    if (!report.near || report.near->empty())
        return;
    out.Add("<h2>Near misses (no findings)</h2>\n");
    for (const NearMiss &miss : *report.near) {
        out.Add("<div class=\"box\">{}</div>\n", MarkupText(NearText(miss)));
        out.Add("<details class=\"box\"><summary>conditions not met</summary><table><tr><th>Entry</th><th>Field</th>"
                "<th>The file has</th><th>The gate wants</th></tr>\n");
        for (const MissedEntry &missed : miss.entries)
            for (const FailedCondition &condition : missed.failed)
                out.Add("<tr><td>{}</td><td>{}</td><td class=\"mono\">{}</td><td class=\"mono\">{}</td></tr>\n",
                        missed.entry, MarkupText(condition.field), MarkupText(condition.value),
                        MarkupText(condition.wanted));
        out.Add("</table></details>\n");
    }
}

// What the filter looks at besides the row itself.
std::string FilterText(const FileDetails &details) {
    std::string text = details.sha256 + ' ' + (details.signer ? details.signer->name : "");
    for (std::size_t index = 0; index < std::min(details.version.strings.size(), kMostVersionStrings); ++index)
        text += ' ' + details.version.strings[index].second;
    return base::LowerAscii(text);
}

} // namespace

std::string FileRow(const FileReport &report, const FileDetails &details) {
    Markup out;
    out.Add(
        "<details class=\"f\" data-k=\"{}\" data-w=\"{}\" data-s=\"{}\" data-x=\"{}\"><summary><span class=\"name\">"
        "{}</span><span class=\"size\">{}</span><span class=\"hits\">{}</span></summary>\n"
        "<script type=\"text/plain\">",
        Kinds(report), Weight(report), report.size.value_or(0), MarkupText(FilterText(details)),
        MarkupText(base::PathText(report.file)), report.size ? map::SizeText(*report.size) : "", Chips(report));
    out.Add("{}", map::SvgElement(details.map));
    AddFacts(out, report, details);
    AddParts(out, details.map);
    AddDetections(out, report, details);
    AddPayloads(out, report, details);
    AddNear(out, report);
    out.Add("</script></details>\n");
    return out.Take();
}

} // namespace tavrik::scanner::html
