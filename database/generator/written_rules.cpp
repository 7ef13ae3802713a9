#include "database/generator/written_rules.h"

#include "rulelang/parser.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>

namespace tavrik::rulegen {

rules::RuleSet WrittenRules() {
    rules::RuleSet set;
    for (const WrittenText &written : WrittenTexts()) {
        rules::ParsedFile parsed = rules::ParseRules(written.text);
        if (rules::HasErrors(parsed.diagnostics))
            throw std::logic_error(std::string(written.file) + " was built in with errors");
        std::ranges::move(parsed.set.rules, std::back_inserter(set.rules));
    }
    return set;
}

} // namespace tavrik::rulegen
