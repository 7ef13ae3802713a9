#include "base/atomic_file.h"
#include "rules/record/emitter.h"
#include "tools/tavrik-rules/commands.h"
#include "tools/tavrik-rules/rule_files.h"

namespace tavrik::rules_tool {

ExitCode Compile(const std::vector<std::string> &files, const std::filesystem::path &folder) {
    const auto set = LoadRules(files);
    if (!set)
        return kErrorsFound;
    base::MakeFolders(folder);
    for (const rules::record::GeneratedFile &file : rules::record::EmitDatabase(*set))
        base::WriteWholeFileIfChanged(folder / file.name, file.text);
    return kFine;
}

} // namespace tavrik::rules_tool
