// tavrik-names: compiles the texts of the name tables and word lists into the source of the module's data.
#include <cstdio>
#include <iterator>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "base/atomic_file.h"
#include "base/error.h"
#include "base/text.h"
#include "database/name_compiler/name_tables.h"

namespace {

using namespace tavrik::name_compiler;

constexpr int kWrongInput = 1;
constexpr int kCannotWrite = 2;

} // namespace

int main(int argc, char **argv) {
    CLI::App app("Compiles the texts of the name tables and word lists into C++ source in stored form.\n"
                 "Exit codes: 0 done, 1 wrong input, 2 the output cannot be written.",
                 "tavrik-names");
    std::vector<std::string> paths;
    std::string output;
    app.add_option("SOURCE", paths, "Text files; together they hold every section once")->required();
    app.add_option("-o,--output", output, "The C++ source to write; without it the texts are only checked");
    CLI11_PARSE(app, argc, argv);

    Sources sources;
    std::vector<Section> sections;
    for (const std::string &path : paths) {
        std::vector<Section> more = sources.Read(path);
        std::move(more.begin(), more.end(), std::back_inserter(sections));
    }
    NameTables tables;
    if (!sources.Failed())
        tables = BuildNameTables(sections, sources);
    if (sources.Failed()) {
        fmt::print(stderr, "{}", sources.Describe());
        return kWrongInput;
    }
    try {
        if (!output.empty())
            tavrik::base::WriteWholeFile(tavrik::base::PathOf(output), WriteNameTables(tables));
    } catch (const tavrik::base::Error &error) {
        fmt::print(stderr, "tavrik-names: {}\n", error.what());
        return kCannotWrite;
    }
    return 0;
}
