// tavrik-names: compiles the texts of the name tables and word lists into the source of the module's data.
#include <iterator>
#include <optional>

#include <CLI/CLI.hpp>

#include "base/atomic_file.h"
#include "base/console.h"
#include "base/program.h"
#include "base/system.h"
#include "base/text.h"
#include "base/version.h"
#include "database/name_compiler/name_tables.h"

namespace {

using namespace tavrik;

enum ExitCode : int { kFine = 0, kWrongInput = 1, kFailed = 2 };

int Run(int argc, char **argv) {
    CLI::App app("Compiles the texts of the name tables and word lists into C++ source in stored form.\n"
                 "Exit codes: 0 done, 1 wrong input, 2 the output cannot be written, or wrong usage.",
                 "tavrik-names");
    app.allow_windows_style_options(false);
    app.set_version_flag("--version", base::VersionText("tavrik-names"), "print the versions, and exit");
    std::vector<std::string> paths;
    std::string output;
    app.add_option("SOURCE", paths, "Text files; together they hold every section once")->required()->type_name("");
    app.add_option("-o,--output", output, "The C++ source to write; without it the texts are only checked")
        ->type_name("FILE");
    if (const std::optional<int> code = base::ParseCommandLine(app, base::Arguments(argc, argv), kFailed))
        return *code;

    name_compiler::Sources sources;
    std::vector<name_compiler::Section> sections;
    for (const std::string &path : paths) {
        std::vector<name_compiler::Section> more = sources.Read(path);
        std::move(more.begin(), more.end(), std::back_inserter(sections));
    }
    name_compiler::NameTables tables;
    if (!sources.Failed())
        tables = name_compiler::BuildNameTables(sections, sources);
    if (sources.Failed()) {
        base::PrintError(sources.Describe());
        return kWrongInput;
    }
    if (!output.empty())
        base::WriteWholeFile(base::PathOf(output), name_compiler::WriteNameTables(tables));
    return kFine;
}

} // namespace

int main(int argc, char **argv) {
    return tavrik::base::RunProgram("tavrik-names", kFailed, [&] { return Run(argc, argv); });
}
