#include "tools/tavrik-rules/sarif.h"

#include <map>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "base/version.h"

namespace tavrik::rules_tool {

namespace {

using Json = nlohmann::ordered_json;

// As the standard names it.
constexpr char kSchema[] = "https://docs.oasis-open.org/sarif/sarif/v2.1.0/errata01/os/schemas/sarif-schema-2.1.0.json";

// A file name as a URI reference (RFC 3986): relative names stay relative, absolute ones get the scheme.
std::string UriOf(const std::string &name) {
    constexpr std::string_view kUnreserved = "-._~/";
    std::string uri = name.starts_with('/') ? "file://" : "";
    for (const char letter : name) {
        const auto byte = static_cast<unsigned char>(letter);
        const bool is_plain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                              (byte >= 'a' && byte <= 'z') || kUnreserved.find(letter) != std::string_view::npos;
        if (is_plain)
            uri += letter;
        else if (letter == '\\')
            uri += '/';
        else
            uri += fmt::format("%{:02X}", byte);
    }
    return uri;
}

Json ResultOf(const rules::text::Source &source, const rules::text::Diagnostic &diagnostic, std::size_t rule_index) {
    const rules::text::Place place = rules::text::PlaceOf(source.text, diagnostic.offset);
    std::string message = diagnostic.message;
    if (!diagnostic.help.empty())
        message += "; " + diagnostic.help;
    const Json region = {{"startLine", place.line}, {"startColumn", place.column}};
    const Json location = {
        {"physicalLocation", {{"artifactLocation", {{"uri", UriOf(source.name)}}}, {"region", region}}}};
    return {{"ruleId", rules::text::CodeText(diagnostic.code)},
            {"ruleIndex", rule_index},
            {"level", diagnostic.severity == rules::text::Severity::Error ? "error" : "warning"},
            {"message", {{"text", message}}},
            {"locations", Json::array({location})}};
}

} // namespace

std::string SarifOf(const rules::text::RuleFiles &texts) {
    std::map<std::string, std::size_t> indices; // of the codes in `kinds`
    Json kinds = Json::array();
    Json results = Json::array();
    for (const auto &text : texts)
        for (const rules::text::Diagnostic &diagnostic : text->parsed.diagnostics) {
            const std::string code(rules::text::CodeText(diagnostic.code));
            const auto [index, is_new] = indices.try_emplace(code, kinds.size());
            if (is_new)
                kinds.push_back({{"id", code}});
            results.push_back(ResultOf(text->source, diagnostic, index->second));
        }
    const Json driver = {{"name", "tavrik-rules"}, {"version", std::string(base::kVersion)}, {"rules", kinds}};
    const Json run = {{"tool", {{"driver", driver}}}, {"columnKind", "unicodeCodePoints"}, {"results", results}};
    const Json log = {{"$schema", kSchema}, {"version", "2.1.0"}, {"runs", Json::array({run})}};
    return log.dump(2, ' ', false, Json::error_handler_t::replace) + '\n';
}

} // namespace tavrik::rules_tool
