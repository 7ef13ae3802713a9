// tavrik-rulegen: fills hand-written rules up to the published profile and writes the whole database as rule text.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "database/generator/generator.h"
#include "database/profile/profile.h"
#include "rules/text/diagnostics.h"
#include "rules/text/parser.h"
#include "rules/text/printer.h"

namespace {

namespace rules = tavrik::rules;

std::string ReadFile(const std::string &name) {
    std::ifstream file(name, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (!file)
        throw std::runtime_error(name + ": cannot be read: is it there, and is it a file that you may read?");
    return text;
}

template <typename Bytes>
void WriteFile(const std::filesystem::path &name, const Bytes &bytes) {
    std::ofstream file(name, std::ios::binary);
    file.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush())
        throw std::runtime_error(name.string() + ": cannot be written: does its folder exist, and is there room?");
}

// Appends the rules of a file; false, with the reasons on standard error, when it has errors.
bool ReadRules(const std::string &name, tavrik::rules::RuleSet &set) {
    const tavrik::rules::text::Source source = {name, ReadFile(name)};
    const tavrik::rules::text::ParsedFile parsed = tavrik::rules::text::ParseRules(source.text);
    for (const tavrik::rules::text::Diagnostic &diagnostic : parsed.diagnostics)
        fmt::print(stderr, "{}", tavrik::rules::text::Render(source, diagnostic));
    set.rules.insert(set.rules.end(), parsed.set.rules.begin(), parsed.set.rules.end());
    return !tavrik::rules::text::HasErrors(parsed.diagnostics);
}

// Prints the facts that do not hold, or all; returns the number of the former.
std::size_t PrintFacts(const std::vector<tavrik::profile::FactResult> &facts, bool all) {
    std::size_t deviations = 0;
    for (const tavrik::profile::FactResult &fact : facts) {
        deviations += fact.Holds() ? 0U : 1U;
        if (!fact.Holds())
            fmt::print(stderr, "deviates: {}: expected {}, is {}\n", fact.name, fact.expected, fact.actual);
        else if (all)
            fmt::print("{}: {}\n", fact.name, fact.actual);
    }
    return deviations;
}

void WriteSpecimens(const tavrik::generator::Generator &generator, const tavrik::rules::RuleSet &set,
                    const std::string &folder) {
    std::filesystem::create_directories(folder);
    for (std::size_t place = 0; place < generator.size(); ++place)
        if (const auto image = generator.SpecimenImage(place))
            WriteFile(std::filesystem::path(folder) / fmt::format("{:04}_{}.exe", place, set.rules[place].rule_id),
                      *image);
}

} // namespace

int main(int argc, char **argv) try {
    std::vector<std::string> inputs;
    std::string output;
    std::string specimens;
    bool print_facts = false;
    CLI::App app("Fills hand-written rules up to the published profile of the rule database.");
    app.add_option("rules", inputs, "Files of hand-written rules");
    app.add_option("-o,--output", output, "Write the whole database there, as text")->type_name("FILE");
    app.add_option("--specimens", specimens, "Write the specimens there, as PE files named by place and rule id")
        ->type_name("DIR");
    app.add_flag("--facts", print_facts, "Print every fact of the profile");
    CLI11_PARSE(app, argc, argv);

    tavrik::rules::RuleSet written;
    bool readable = true;
    for (const std::string &input : inputs)
        readable = ReadRules(input, written) && readable;
    if (!readable)
        return 1;
    const tavrik::generator::Generator generator(written);
    const tavrik::rules::RuleSet set = generator.Rules();
    const std::vector<tavrik::profile::FactResult> facts = tavrik::profile::CheckProfile(set);
    const std::size_t deviations = PrintFacts(facts, print_facts);
    if (print_facts || deviations != 0)
        fmt::print(stderr, "{} of {} facts hold\n", facts.size() - deviations, facts.size());
    if (!output.empty())
        WriteFile(output, tavrik::rules::text::PrintRuleSet(set));
    if (!specimens.empty())
        WriteSpecimens(generator, set, specimens);
    return deviations == 0 ? 0 : 1;
} catch (const std::exception &error) {
    fmt::print(stderr, "tavrik-rulegen: {}\n", error.what());
    return 1;
}
