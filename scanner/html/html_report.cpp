#include "scanner/html/html_report.h"

#include <span>

#include <fmt/format.h>

#include "base/markup.h"
#include "base/sha256.h"
#include "base/text.h"
#include "scanner/html/page_assets.h"
#include "scanner/map/svg_map.h"

namespace tavrik::scanner::html {

namespace {

using base::MarkupText;

// The policy that lets the browser run this script only, whatever else may be in the page.
std::string Policy() {
    base::Sha256 hash;
    const std::string_view script = kPageScript;
    hash.Update({reinterpret_cast<const uint8_t *>(script.data()), script.size()});
    const base::Sha256::Digest digest = hash.Finish();
    return fmt::format("default-src 'none'; style-src 'unsafe-inline'; script-src 'sha256-{}'",
                       base::Base64({reinterpret_cast<const char *>(digest.data()), digest.size()}));
}

void AddFact(std::string &out, std::string_view name, std::string_view value) {
    if (!value.empty())
        out += fmt::format("<dt>{}</dt><dd>{}</dd>\n", name, MarkupText(value));
}

std::string Head(const RunFacts &facts) {
    std::string out = fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"{}\">\n"
        "<meta name=\"viewport\" content=\"width=device-width,initial-scale=1\">\n<title>Scan report</title>\n"
        "<style>\n{}{}</style>\n</head>\n<body>\n<header>\n<h1>Scan report</h1>\n<dl>\n",
        Policy(), kPageStyle, map::kMapStyle);
    AddFact(out, "Time", facts.time);
    AddFact(out, "Command", facts.command);
    AddFact(out, "Program", facts.program);
    AddFact(out, "Database", facts.database);
    out +=
        "</dl>\n</header>\n<noscript><p class=\"note\">Details and the filter need JavaScript; the page loads nothing "
        "from elsewhere.</p></noscript>\n<div id=\"bar\">\n<div class=\"tools\">\n"
        "<input id=\"q\" type=\"search\" placeholder=\"Filter: name, detection, payload, digest, signer\" "
        "aria-label=\"Filter\">\n";
    constexpr std::pair<const char *, const char *> kKinds[] = {{"", "All"},       {"d", "Detections"},
                                                                {"p", "Payloads"}, {"m", "Near misses"},
                                                                {"e", "Errors"},   {"c", "Nothing found"}};
    for (const auto &[kind, name] : kKinds)
        out += fmt::format("<button data-kind=\"{}\" aria-pressed=\"{}\">{}</button>\n", kind, *kind == '\0', name);
    return out + "<span id=\"shown\" role=\"status\"></span>\n</div>\n<div class=\"cols\"><span></span>"
                 "<button data-sort=\"n\">File</button><button class=\"r\" data-sort=\"s\">Size</button>"
                 "<button class=\"hits\" data-sort=\"w\">Results</button></div>\n</div>\n<main>\n";
}

} // namespace

HtmlReport::HtmlReport(const std::filesystem::path &path, const RunFacts &facts) : file_(path) {
    file_.Write(Head(facts));
}

void HtmlReport::Add(std::string_view row) {
    file_.Write(row);
}

void HtmlReport::Finish(std::string_view summary) {
    constexpr std::string_view kAfterProgram = ": ";
    summary = summary.substr(0, summary.find('\n'));
    if (const std::size_t end = summary.find(kAfterProgram); end != std::string_view::npos)
        summary.remove_prefix(end + kAfterProgram.size());
    file_.Write(fmt::format("</main>\n<div id=\"totals\">{}</div>\n<script>{}</script>\n</body>\n</html>\n",
                            MarkupText(summary), kPageScript));
    file_.Commit();
}

} // namespace tavrik::scanner::html
