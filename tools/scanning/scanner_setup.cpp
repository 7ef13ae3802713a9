#include "tools/scanning/scanner_setup.h"

#include "base/console.h"
#include "rules/record/record_builder.h"
#include "rules/text/rule_files.h"

namespace tavrik::scanning {

namespace {

std::shared_ptr<const scanner::Module> LoadModule(const ScanOptions &options) {
    return options.module ? std::make_shared<const scanner::Module>(*options.module) : nullptr;
}

scanner::MoreRules CompileRules(const ScanOptions &options) {
    if (options.rule_files.empty())
        return {};
    rules::text::RuleFileReader reader;
    for (const std::string &name : options.rule_files)
        reader.Read(name);
    for (const auto &file : reader.files())
        for (const rules::text::Diagnostic &diagnostic : file->parsed.diagnostics)
            base::PrintError(rules::text::Render(file->source, diagnostic));
    if (reader.HasErrors())
        throw BadRules("the rules have errors, so that nothing is scanned");
    const auto texts = std::make_shared<const rules::RuleSet>(reader.Rules());
    return {std::make_shared<const rules::record::RecordSet>(*texts), texts, options.only_rule_files};
}

} // namespace

std::unique_ptr<const scanner::Scanner> MakeScanner(const ScanOptions &options, const scanner::ScanSettings &settings) {
    scanner::MoreRules more = CompileRules(options);
    return std::make_unique<const scanner::Scanner>(LoadModule(options), settings, std::move(more));
}

std::unique_ptr<const scanner::Scanner> MakeScannerWithoutRules(const ScanOptions &options) {
    return std::make_unique<const scanner::Scanner>(LoadModule(options), options.settings,
                                                    scanner::MoreRules{nullptr, nullptr, true});
}

} // namespace tavrik::scanning
