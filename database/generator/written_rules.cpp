#include "database/generator/written_rules.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>

#include "rules/text/parser.h"

namespace tavrik::generator {

rules::RuleSet WrittenRules() {
    rules::RuleSet set;
    for (const WrittenText &written : WrittenTexts()) {
        rules::text::ParsedFile parsed = rules::text::ParseRules(written.text);
        if (rules::text::HasErrors(parsed.diagnostics))
            throw std::logic_error(std::string(written.file) + " was built in with errors");
        std::ranges::move(parsed.set.rules, std::back_inserter(set.rules));
    }
    return set;
}

} // namespace tavrik::generator
