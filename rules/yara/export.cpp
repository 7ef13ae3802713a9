#include "rules/yara/export.h"

#include <map>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "pe/format.h"
#include "rules/yara/rule_writer.h"
#include "rules/yara/strings.h"

namespace tavrik::rules::yara {

namespace {

using fmt::format;

constexpr std::string_view kHead = R"(import "hash"
import "math"

// Written by tavrik-rules export-yara. Conditions read the headers themselves, so that damaged files get the same
// answers as from the rules that these were made of.

private rule pe_file {
    condition:
        uint16(0) == 0x5A4D and uint32(uint32(0x3C)) == 0x00004550 and uint32(0x3C) + 24 <= filesize
}
)";

std::string RuleName(uint32_t id, std::size_t rules_before) {
    return format("rule_{}_{}", id, rules_before);
}

} // namespace

std::string YaraRuleName(const RuleSet &set, std::size_t place) {
    const uint32_t id = set.rules[place].rule_id;
    std::size_t before = 0;
    for (std::size_t i = 0; i < place; ++i)
        before += set.rules[i].rule_id == id ? 1u : 0u;
    return RuleName(id, before);
}

YaraExport ExportYara(const RuleSet &set) {
    YaraExport result;
    std::string text;
    std::map<uint32_t, std::size_t> same_ids;
    for (std::size_t place = 0; place < set.rules.size(); ++place) {
        const Rule &rule = set.rules[place];
        const std::size_t before = same_ids[rule.rule_id]++;
        try {
            if (ComputeFeatureFlags(rule) == 0)
                Refuse("a rule that asks nothing");
            // What the conditions need together is known only when all are written; then each can rely on it.
            constexpr unsigned kEverything = 0x10000;
            const Need granted = RuleWriter(rule, {kEverything, kEverything, pe::kDirectoryCount}).need();
            const RuleWriter writer(rule, granted);
            text += format("\nrule {} {{\n    meta:\n        id = {}\n        name = {}\n",
                           RuleName(rule.rule_id, before), rule.rule_id, YaraText(rule.detection_name));
            if (!writer.strings().empty())
                text += "    strings:\n";
            for (const std::string &string : writer.strings())
                text += "        " + string + "\n";
            text += "    condition:\n" + writer.Condition() + "\n}\n";
            result.exported.push_back(place);
        } catch (NotExpressible &refusal) {
            result.omitted.push_back({place, std::move(refusal.reason)});
        }
    }
    const Rule nothing;
    const RuleWriter any_rule(nothing, {});
    result.text = kHead;
    if (text.find("has_headers_size") != std::string::npos)
        result.text += any_rule.RuleOfHeadersSize();
    for (const Table &table : {kImports, kExports, kResources})
        result.text += any_rule.RulesOf(table, text);
    result.text += text;
    return result;
}

} // namespace tavrik::rules::yara
