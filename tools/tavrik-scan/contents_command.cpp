#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "base/error.h"
#include "base/system.h"
#include "base/text.h"
#include "scanner/contents.h"
#include "scanner/report_json.h"
#include "scanner/watched_source.h"
#include "tools/scanning/arguments.h"
#include "tools/scanning/confine.h"
#include "tools/scanning/scanner_setup.h"
#include "tools/tavrik-scan/commands.h"

namespace tavrik::scan_tool {

namespace fs = std::filesystem;
using scanner::Json;

namespace {

// Members of one container that are listed; memory grows with them.
constexpr std::size_t kMostListed = 100'000;

// What a container holds, as far as it can be read.
struct Listing {
    scanner::ContentsPlace place;
    std::vector<scanner::payloads::Member> members;
    std::string error; // why there may be more
    base::ErrorCode error_code = base::ErrorCode::NotUnpacked;
};

Listing List(base::ByteSource &source, scanner::ContentsPlace place) {
    Listing listing = {.place = std::move(place), .members = {}, .error = {}};
    const std::unique_ptr<scanner::payloads::Container> container = scanner::Open(source, listing.place);
    while (std::optional<scanner::payloads::Member> member = container->Next()) {
        if (listing.members.size() == kMostListed) {
            listing.error = fmt::format("more than {} members; the rest is not listed", kMostListed);
            return listing;
        }
        listing.members.push_back(std::move(*member));
    }
    listing.error = container->error();
    if (container->needs_password())
        listing.error_code = base::ErrorCode::Encrypted;
    if (!source.error().empty())
        listing.error_code = source.error_code();
    return listing;
}

// In UTC; "" when there is none or no calendar has it.
std::string TimeText(const std::optional<int64_t> &time) {
    constexpr int64_t kLatest = 253402300799; // the end of the year 9999
    if (!time || *time < 0 || *time > kLatest)
        return "";
    const std::chrono::sys_seconds seconds{std::chrono::seconds(*time)};
    const auto day = std::chrono::floor<std::chrono::days>(seconds);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(seconds - day);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(date.year()),
                       static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), clock.hours().count(),
                       clock.minutes().count(), clock.seconds().count());
}

std::string NumberText(const std::optional<uint64_t> &number) {
    return number ? std::to_string(*number) : "-";
}

std::string Table(const fs::path &file, const Listing &listing) {
    std::string text = fmt::format("{}: {}", base::PrintablePath(file), base::Printable(listing.place.description));
    if (listing.place.extent)
        fmt::format_to(std::back_inserter(text), ", offset {:#x}, length {}", listing.place.extent->offset,
                       listing.place.extent->length);
    static constexpr char kLine[] = "{:>12}  {:>12}  {:<20}  {}{}\n";
    text += '\n' + fmt::format(kLine, "size", "packed", "modified (UTC)", "name", "");
    uint64_t files = 0;
    uint64_t bytes = 0;
    for (const scanner::payloads::Member &member : listing.members) {
        const std::string time = TimeText(member.time);
        text += fmt::format(kLine, member.is_folder ? "folder" : NumberText(member.size),
                            NumberText(member.packed_size), time.empty() ? "-" : time, base::Printable(member.path),
                            member.encrypted ? "  (encrypted)" : "");
        files += member.is_folder ? 0u : 1u;
        bytes += member.size.value_or(0);
    }
    fmt::format_to(std::back_inserter(text), "{}, {} bytes\n", base::CountText(files, "file"), bytes);
    return text;
}

template <typename Value>
Json OrNull(const std::optional<Value> &value) {
    return value ? Json(*value) : Json(nullptr);
}

Json ObjectOf(const Listing &listing) {
    const std::optional<scanner::payloads::Extent> &extent = listing.place.extent;
    Json object = {{"description", listing.place.description},
                   {"offset", extent ? extent->offset : 0},
                   {"length", extent ? Json(extent->length) : Json(nullptr)},
                   {"members", Json::array()}};
    for (const scanner::payloads::Member &member : listing.members) {
        const std::string time = TimeText(member.time);
        object["members"].push_back({{"path", member.path},
                                     {"folder", member.is_folder},
                                     {"size", OrNull(member.size)},
                                     {"packed_size", OrNull(member.packed_size)},
                                     {"time", time.empty() ? Json(nullptr) : Json(time)},
                                     {"encrypted", member.encrypted}});
    }
    if (!listing.error.empty())
        object["error"] = scanner::ProblemObject(base::ErrorCodeName(listing.error_code), listing.error);
    return object;
}

// Lists what is inside one file. Returns whether all could be listed.
bool ListFile(const scanner::Scanner &scanner, const fs::path &file, const ScanOptions &options) {
    std::vector<Listing> listings;
    std::string error;
    base::ErrorCode code = base::ErrorCode::NotUnpacked;
    try {
        const scanner::Deadline deadline(options.settings.timeout);
        const std::shared_ptr<base::ByteSource> opened = scanner::OpenInput(scanning::InputOf(file), deadline);
        scanner::WatchedSource source(*opened, deadline);
        for (scanner::ContentsPlace &place : scanner::ContentsOf(scanner, source))
            listings.push_back(List(source, std::move(place)));
        error = source.error();
        if (!error.empty())
            code = source.error_code();
        else if (listings.empty())
            error = kNothingInside;
    } catch (const base::Error &failure) {
        error = failure.reason();
        code = failure.code();
    }
    if (options.format == scanner::ReportFormat::JsonLines) {
        Json line = {{"schema", scanner::kJsonSchema}};
        scanner::AddPath(line, "file", file);
        line["containers"] = Json::array();
        for (const Listing &listing : listings)
            line["containers"].push_back(ObjectOf(listing));
        if (!error.empty())
            line["error"] = scanner::ProblemObject(base::ErrorCodeName(code), error);
        base::Print(scanner::LineOf(line) + '\n');
    } else {
        for (const Listing &listing : listings)
            base::Print(Table(file, listing));
    }
    bool is_complete = error.empty();
    if (!error.empty())
        ReportError(file, error);
    for (const Listing &listing : listings)
        if (!listing.error.empty()) {
            ReportError(file, listing.place.description + ": " + listing.error);
            is_complete = false;
        }
    return is_complete;
}

} // namespace

Command AddContents(CLI::App &app, const ScanOptions &options) {
    CLI::App *parser = app.add_subcommand("contents", "list what is inside the payloads of files, or inside archives");
    const auto files = std::make_shared<std::vector<std::string>>();
    parser->add_option("FILE", *files, "files with payloads, carved payloads, or archives; - is standard input")
        ->required()
        ->type_name("");
    const auto run = [files, &options] {
        base::NoteInterruptions();
        if (std::ranges::count(*files, scanning::MarkWhole(scanning::kStandardInput)) > 1)
            throw base::Error("standard input (-) can be read only once");
        const std::unique_ptr<const scanner::Scanner> scanner = scanning::MakeScannerWithoutRules(options);
        scanning::Paths paths(files->size());
        std::ranges::transform(*files, paths.begin(), scanning::PathOfArgument);
        scanning::Confine(options, paths);
        int code = kNothingFound;
        for (const std::string &file : *files) {
            if (!ListFile(*scanner, scanning::PathOfArgument(file), options))
                code = kErrorHappened;
            if (base::Interruption() != 0)
                return kSignalled + base::Interruption();
        }
        return code;
    };
    return {parser, run, {"--module", "--json", "--timeout"}};
}

} // namespace tavrik::scan_tool
