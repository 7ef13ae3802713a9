// Any bytes as a rule file. The parser must end and find something to say or rules; what it takes must print, read back
// the same, format to a fixed point without losing a comment, and fit the records.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "rules/record/emitter.h"
#include "rules/text/formatter.h"
#include "rules/text/parser.h"
#include "rules/text/printer.h"

namespace {

using namespace tavrik::rules;
using namespace tavrik::rules::text;

void Require(bool holds) {
    if (!holds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const Source source{"input.rules", std::string(data, data + size)};
    const ParsedFile parsed = ParseRules(source.text, Includes::Allowed);
    for (const Diagnostic &diagnostic : parsed.diagnostics)
        Require(diagnostic.offset <= size && Render(source, diagnostic).ends_with('\n'));
    Require(parsed.origins.size() == parsed.set.rules.size());
    if (HasErrors(parsed.diagnostics))
        return 0;

    const std::string printed = PrintRuleSet(parsed.set);
    const ParsedFile again = ParseRules(printed);
    Require(!HasErrors(again.diagnostics) && again.set == parsed.set && PrintRuleSet(again.set) == printed);

    const std::string formatted = FormatRules(parsed);
    const ParsedFile of_formatted = ParseRules(formatted, Includes::Allowed);
    Require(!HasErrors(of_formatted.diagnostics) && of_formatted.set == parsed.set);
    Require(of_formatted.eithers.size() == parsed.eithers.size() &&
            of_formatted.includes.size() == parsed.includes.size());
    for (std::size_t i = 0; i < parsed.origins.size(); ++i) // values by their names stay so
        Require(of_formatted.origins[i].values == parsed.origins[i].values &&
                of_formatted.origins[i].expression == parsed.origins[i].expression);
    Require(of_formatted.comments.size() == parsed.comments.size() && FormatRules(of_formatted) == formatted);
    Require(record::EmitDatabase(parsed.set).size() == record::DatabaseFileNames().size());
    return 0;
}
