#include <memory>

#include <fmt/format.h>

#include "base/atomic_file.h"
#include "base/error.h"
#include "base/system.h"
#include "base/text.h"
#include "scanner/map/marks.h"
#include "scanner/map/svg_map.h"
#include "scanner/map/terminal_map.h"
#include "tools/scanning/arguments.h"
#include "tools/scanning/confine.h"
#include "tools/scanning/scanner_setup.h"
#include "tools/tavrik-scan/commands.h"

namespace tavrik::scan_tool {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kUsualColumns = 100; // where the output is no terminal

std::string Heading(const fs::path &file, const evaluation::Features &features) {
    const pe::Image &image = features.image();
    const std::string kind = image.IsPe() ? fmt::format("{}, {}", image.IsPe32Plus() ? "PE32+" : "PE32",
                                                        base::CountText(image.sections().size(), "section"))
                                          : "not a PE file";
    const std::string size = scanner::map::SizeText(image.size());
    const std::string bytes = fmt::format("{} bytes", image.size());
    return fmt::format("{}: {}, {}\n", base::PrintablePath(file),
                       size == bytes ? bytes : fmt::format("{} ({})", bytes, size), kind);
}

ExitCode RunMap(const ScanOptions &options, const fs::path &file, const fs::path &picture) {
    scanner::ScanSettings settings = options.settings;
    settings.record_reads = true;
    settings.inside = false;
    const std::unique_ptr<const scanner::Scanner> scanner = scanning::MakeScanner(options, settings);
    scanning::Confine(options, {file}, picture.empty() ? scanning::Paths() : scanning::ToWriteFile(picture));
    const scanner::FileReport report = scanner->Scan(file);
    if (!report.size) {
        ReportError(file, report.error);
        return kErrorHappened;
    }
    base::FileSource source(file);
    evaluation::Features features(source);
    scanner::map::FileMap map = scanner::map::MakeMap(source, features.image());
    map.marks = scanner::map::MarksOf(report, *scanner, features);
    map.read = report.read;
    if (picture.empty()) {
        const std::size_t columns = base::IsTerminal(stdout) ? base::TerminalWidth() : kUsualColumns;
        base::Print(Heading(file, features) + '\n' +
                    scanner::map::TerminalText(map, {columns, base::WantsColour(options.colour, stdout)}));
    } else {
        base::WriteWholeFile(picture, scanner::map::SvgDocument(map), base::Flush::None);
    }
    if (report.status != scanner::ScanStatus::Failed && source.error().empty())
        return kNothingFound;
    ReportError(file, report.status == scanner::ScanStatus::Failed ? report.error : source.error());
    return kErrorHappened;
}

struct MapArguments {
    std::string file;
    std::string picture;
};

} // namespace

Command AddMap(CLI::App &app, const ScanOptions &options) {
    CLI::App *parser =
        app.add_subcommand("map", "draw a file's parts, entropy, payloads and strings along its offsets");
    const auto arguments = std::make_shared<MapArguments>();
    parser->add_option("FILE", arguments->file, "the file; PE files show most")->required()->type_name("");
    scanning::AddValue(*parser, "-o,--output", "SVG",
                       "write the picture to the file SVG instead of drawing it in the terminal", "Options",
                       [arguments](const std::string &text) { arguments->picture = text; });
    const auto run = [arguments, &options] {
        return RunMap(options, scanning::PathOfArgument(arguments->file), base::PathOf(arguments->picture));
    };
    return {parser, run, {"--module", "--color", "--near", "--timeout", "--rules", "--only"}};
}

} // namespace tavrik::scan_tool
