// tavrik-rulegen: fills hand-written rules up to the published profile and writes the whole database as rule text.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "base/atomic_file.h"
#include "base/console.h"
#include "base/error.h"
#include "base/program.h"
#include "base/system.h"
#include "base/text.h"
#include "base/version.h"
#include "database/generator/generator.h"
#include "database/generator/written_rules.h"
#include "database/profile/profile.h"
#include "rules/text/diagnostics.h"
#include "rules/text/parser.h"
#include "rules/text/printer.h"

namespace {

using namespace tavrik;

enum ExitCode : int {
    kFine = 0,
    kFailed = 1 // errors in the rules, facts that do not hold, files that cannot be read or written
};

struct Options {
    std::vector<std::string> inputs;
    std::string output;
    std::string specimens;
    bool print_facts = false;
};

std::string ReadFile(const std::string &name) {
    const std::filesystem::path path = base::PathOf(name);
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file)
        throw base::Error(path, "cannot be read: is it there, and is it a file that you may read?");
    return text;
}

// Appends the rules of a file; false, with the reasons on standard error, when it has errors.
bool ReadRules(const std::string &name, rules::RuleSet &set) {
    const rules::text::Source source = {name, ReadFile(name)};
    const rules::text::ParsedFile parsed = rules::text::ParseRules(source.text);
    for (const rules::text::Diagnostic &diagnostic : parsed.diagnostics)
        base::PrintError(rules::text::Render(source, diagnostic));
    set.rules.insert(set.rules.end(), parsed.set.rules.begin(), parsed.set.rules.end());
    return !rules::text::HasErrors(parsed.diagnostics);
}

// Prints the facts that do not hold, or all; returns the number of the former.
std::size_t PrintFacts(const std::vector<profile::FactResult> &facts, bool all) {
    std::size_t deviations = 0;
    for (const profile::FactResult &fact : facts) {
        deviations += fact.Holds() ? 0U : 1U;
        if (!fact.Holds())
            base::PrintError(fmt::format("deviates: {}: expected {}, is {}\n", fact.name, fact.expected, fact.actual));
        else if (all)
            base::Print(fmt::format("{}: {}\n", fact.name, fact.actual));
    }
    if (all || deviations != 0)
        base::PrintError(fmt::format("{} of {} facts hold\n", facts.size() - deviations, facts.size()));
    return deviations;
}

void WriteSpecimens(const generator::Generator &generator, const rules::RuleSet &set,
                    const std::filesystem::path &folder) {
    base::MakeFolders(folder);
    for (std::size_t place = 0; place < generator.size(); ++place)
        if (const auto image = generator.SpecimenImage(place))
            base::WriteWholeFile(folder / fmt::format("{:04}_{}.exe", place, set.rules[place].rule_id), *image,
                                 base::Flush::None);
}

ExitCode Generate(const Options &options) {
    rules::RuleSet written;
    bool readable = true;
    for (const std::string &input : options.inputs)
        readable = ReadRules(input, written) && readable;
    if (!readable)
        return kFailed;
    if (options.inputs.empty())
        written = generator::WrittenRules();
    const generator::Generator generator(written);
    const rules::RuleSet set = generator.Rules();
    const std::size_t deviations = PrintFacts(profile::CheckProfile(set), options.print_facts);
    if (!options.output.empty())
        base::WriteWholeFile(base::PathOf(options.output), rules::text::PrintRuleSet(set));
    if (!options.specimens.empty())
        WriteSpecimens(generator, set, base::PathOf(options.specimens));
    return deviations == 0 ? kFine : kFailed;
}

int Run(int argc, char **argv) {
    Options options;
    CLI::App app("Fills hand-written rules up to the published profile of the rule database.", "tavrik-rulegen");
    app.allow_windows_style_options(false);
    app.set_version_flag("--version", tavrik::base::VersionText("tavrik-rulegen"), "print the versions, and exit");
    app.add_option("RULES", options.inputs,
                   "Files of hand-written rules (default: those in database/rules when this program was built)")
        ->type_name("");
    app.add_option("-o,--output", options.output, "Write the whole database there, as text")->type_name("FILE");
    app.add_option("--specimens", options.specimens,
                   "Write the specimens there, as PE files named by place and rule id")
        ->type_name("DIR");
    app.add_flag("--facts", options.print_facts, "Print every fact of the profile");
    if (const std::optional<int> code = base::ParseCommandLine(app, base::Arguments(argc, argv), kFailed))
        return *code;
    return Generate(options);
}

} // namespace

int main(int argc, char **argv) {
    return base::RunProgram("tavrik-rulegen", kFailed, [&] { return Run(argc, argv); });
}
