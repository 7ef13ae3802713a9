#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "base/error.h"
#include "base/output_folder.h"
#include "base/system.h"
#include "base/text.h"
#include "scanner/contents.h"
#include "scanner/unpack.h"
#include "scanner/watched_source.h"
#include "tools/scanning/arguments.h"
#include "tools/scanning/confine.h"
#include "tools/scanning/scanner_setup.h"
#include "tools/tavrik-scan/commands.h"

namespace tavrik::scan_tool {

namespace fs = std::filesystem;

namespace {

constexpr char kGroup[] = "Bounds";

struct UnpackArguments {
    std::string file;
    std::string folder;
    scanner::UnpackLimits limits;
};

int RunUnpack(const UnpackArguments &arguments, const ScanOptions &options) {
    base::NoteInterruptions();
    const std::unique_ptr<const scanner::Scanner> scanner = scanning::MakeScannerWithoutRules(options);
    const fs::path file = scanning::PathOfArgument(arguments.file);
    scanning::Confine(options, {file}, scanning::ToMakeFolder(scanning::PathOfArgument(arguments.folder)));
    int code = kNothingFound;
    const auto fail = [&](const std::string &reason) {
        ReportError(file, reason);
        code = kErrorHappened;
    };
    try {
        const scanner::Deadline deadline(options.settings.timeout);
        const std::shared_ptr<base::ByteSource> opened = scanner::OpenInput(scanning::InputOf(file), deadline);
        scanner::WatchedSource source(*opened, deadline);
        const std::vector<scanner::ContentsPlace> places = scanner::ContentsOf(*scanner, source);
        if (places.empty())
            throw base::Error(source.error().empty() ? kNothingInside : source.error());
        base::OutputFolder folder(scanning::PathOfArgument(arguments.folder));
        scanner::UnpackBudget budget(arguments.limits, source.size());
        scanner::Unpacker unpacker(folder, budget);
        const auto visit = [&](const scanner::Unpacker::Outcome &outcome) {
            if (!outcome.problem.empty())
                fail(base::Printable(outcome.member.path) + ": " + outcome.problem);
            else if (!options.quiet)
                base::Print(
                    fmt::format("{} -> {}\n", base::Printable(outcome.member.path), base::PrintablePath(outcome.path)));
        };
        for (const scanner::ContentsPlace &place : places) {
            const std::string error = unpacker.Unpack(*scanner::Open(source, place), visit);
            if (!error.empty())
                fail(fmt::format("{}: {}", place.description, error));
            if (base::Interruption() != 0)
                return kSignalled + base::Interruption();
        }
        if (!options.quiet)
            base::PrintError(fmt::format("tavrik-scan: {}, {} bytes, written to {}\n",
                                         base::CountText(unpacker.files(), "file"), unpacker.bytes(),
                                         base::PrintablePath(folder.path())));
    } catch (const base::Error &error) {
        fail(error.reason());
    }
    return code;
}

} // namespace

Command AddUnpack(CLI::App &app, const ScanOptions &options) {
    CLI::App *parser =
        app.add_subcommand("unpack", "write what is inside the payloads of a file, or inside an archive, to a folder");
    const auto arguments = std::make_shared<UnpackArguments>();
    parser
        ->add_option("FILE", arguments->file,
                     "a file with a payload, a carved payload, or an archive; - is standard input")
        ->required()
        ->type_name("");
    parser->add_option("-o,--output", arguments->folder, "the folder to write to; made when there is none")
        ->required()
        ->type_name("DIR");
    scanning::AddValue(
        *parser, "--limit", "SIZE", "write no more bytes than this (default 4G)", kGroup,
        [arguments](const std::string &text) { arguments->limits.bytes = scanning::RequireSize("--limit", text); });
    scanning::AddValue(
        *parser, "--files", "N", "write no more files than this (default 10000)", kGroup,
        [arguments](const std::string &text) { arguments->limits.files = scanning::RequireCount("--files", text); });
    scanning::AddValue(
        *parser, "--ratio", "N", "no more than N bytes for each byte of FILE, after 128M (default 250)", kGroup,
        [arguments](const std::string &text) { arguments->limits.ratio = scanning::RequireCount("--ratio", text); });
    const auto run = [arguments, &options] { return RunUnpack(*arguments, options); };
    return {parser, run, {"--module", "--timeout"}};
}

} // namespace tavrik::scan_tool
