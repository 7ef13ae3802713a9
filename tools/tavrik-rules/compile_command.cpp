#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include "base/atomic_file.h"
#include "base/console.h"
#include "database/profile/profile.h"
#include "rules/record/emitter.h"
#include "tools/tavrik-rules/commands.h"
#include "tools/tavrik-rules/rule_files.h"

namespace tavrik::rules_tool {

namespace {

// The module's table has one record of each id, but for those that the profile gives two. A rule with more records
// would be several rules there; prints those, and returns whether there are any.
bool PrintRefused(const rules::text::RuleFileReader &reader) {
    bool refused = false;
    for (const auto &file : reader.files())
        for (const rules::text::EitherRule &either : file->parsed.eithers) {
            const uint32_t id = either.common.rule.rule_id;
            const bool is_shared = std::ranges::find(profile::kDoubleIds, id) != std::end(profile::kDoubleIds);
            if (is_shared && either.branches.size() <= 2)
                continue;
            refused = true;
            const rules::text::Place place = rules::text::PlaceOf(file->source.text, either.common.origin.begin);
            base::PrintError(
                fmt::format("{}:{}:{}: rule {} becomes {} records of one id, and a module has {}; give each "
                            "branch a rule of its own, as dump prints them, with its own id\n",
                            file->source.name, place.line, place.column, id, either.branches.size(),
                            is_shared ? "two of this id" : "one of each id"));
        }
    return refused;
}

} // namespace

ExitCode Compile(const std::vector<std::string> &files, const std::filesystem::path &folder) {
    rules::text::RuleFileReader reader;
    for (const std::string &name : files)
        reader.Read(name);
    bool errors = false;
    for (const auto &file : reader.files())
        errors = PrintDiagnostics(*file) || errors;
    if (errors || PrintRefused(reader))
        return kErrorsFound;
    base::MakeFolders(folder);
    for (const rules::record::GeneratedFile &file : rules::record::EmitDatabase(reader.Rules()))
        base::WriteWholeFileIfChanged(folder / file.name, file.text);
    return kFine;
}

} // namespace tavrik::rules_tool
