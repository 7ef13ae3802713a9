#include "tools/scanning/scan_run.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "base/error.h"
#include "base/ordered_pool.h"
#include "base/path_list.h"
#include "base/system.h"
#include "base/text.h"
#include "scanner/carve.h"
#include "scanner/html/html_report.h"
#include "scanner/profile.h"
#include "scanner/report.h"
#include "scanner/report_memory.h"
#include "scanner/totals.h"
#include "scanner/watched_source.h"
#include "tools/scanning/confine.h"
#include "tools/scanning/explanations.h"
#include "tools/scanning/file_counter.h"
#include "tools/scanning/rule_summary.h"
#include "tools/scanning/run_facts.h"
#include "tools/scanning/scanner_setup.h"

namespace tavrik::scanning {

namespace fs = std::filesystem;

namespace {

// A path of the walk: a file to scan or, with an error, something that cannot be scanned.
struct Job {
    scanner::Input input;
    std::optional<base::Error> error;
    std::size_t group = 0; // of the summary
};

struct Result {
    scanner::FileReport report;
    std::string lines; // for standard output
    std::string row;   // for the report for people
    std::size_t group = 0;
};

ExitCode CodeOf(const scanner::FileReport &report, bool near_is_found) {
    ExitCode code = kNothingFound;
    report.ForEach([&](const scanner::FileReport &each) {
        if (each.status == scanner::ScanStatus::Failed)
            code = kErrorHappened;
        else if (!each.payloads.empty() || !each.detections.empty() ||
                 (near_is_found && each.near && !each.near->empty()))
            code = std::max(code, kFound);
    });
    return code;
}

// A run over all paths. Work runs in many threads; Deliver is called by one thread at a time, in the files' order.
class ScanRun {
public:
    ScanRun(const scanner::Scanner &scanner, const ScanOptions &options)
        : scanner_(scanner), options_(options), out_in_colour_(base::WantsColour(options.colour, stdout)),
          errors_in_colour_(base::WantsColour(options.colour, stderr)),
          profiles_(options.profile || options.summary ? options.threads + 1 : 0), shows_progress_(ShowsProgress()),
          console_(shows_progress_ ? MakeProgress() : nullptr) {
        if (options.carve_folder)
            carver_.emplace(*options.carve_folder, options.carve);
        if (!options.report.empty())
            people_.emplace(options.report, FactsOf(scanner, options));
        if (options.summary)
            summary_.emplace(scanner);
    }

    // Returns when the results have been printed: all, or those up to an interruption.
    void Run() {
        base::OrderedPool<Job, Result> pool(
            options_.threads, [this](Job &job, unsigned thread) { return Work(job, thread); },
            [this](Result &result) { Deliver(result); },
            [](const Result &result) {
                return scanner::MemoryOf(result.report) + result.lines.size() + result.row.size();
            });
        if (options_.format == scanner::ReportFormat::Csv)
            console_.Print(scanner::CsvHeader());
        std::optional<FileCounter> counter;
        if (shows_progress_)
            counter.emplace(options_, expected_);
        std::size_t group = 0; // of what is walked over
        const auto submit = [&pool, &group](scanner::Input input, std::optional<base::Error> error = {}) {
            pool.Submit({std::move(input), std::move(error), group});
            return base::Interruption() == 0;
        };
        const base::WalkVisitor visitor = {
            [&](const fs::path &file) { return submit({file}); },
            [&](const fs::path &path, const base::Error &error) { return submit({path}, error); }};
        // Streams are read where the user names them; pipes in folders and lists are left alone.
        const auto walk_named = [&](const fs::path &path) {
            group = GroupOf(path);
            scanner::Input input = InputOf(path);
            return input.kind == scanner::Input::Kind::File ? base::Walk(path, options_.walk, visitor)
                                                            : submit(std::move(input));
        };
        const auto walk_labelled = [&](const LabelledPath &labelled) {
            group = GroupOf(labelled);
            return base::Walk(labelled.path, options_.walk, visitor);
        };
        if (std::ranges::all_of(options_.paths, walk_named) && std::ranges::all_of(options_.labelled, walk_labelled) &&
            options_.path_list) {
            group = GroupOf(LabelledPath{"list", {}});
            std::optional<base::PathList> list;
            for (auto path = NextPath(list); path && base::Walk(*path, options_.walk, visitor); path = NextPath(list)) {
            }
        }
        pool.Finish();
    }

    // Prints the summary. Returns the exit code.
    int Conclude() {
        console_.EndProgress();
        for (std::size_t thread = 1; thread < profiles_.size(); ++thread)
            profiles_.front().Add(profiles_[thread]);
        if (summary_)
            console_.Print(options_.format == scanner::ReportFormat::JsonLines
                               ? scanner::LineOf(summary_->Object(profiles_.front())) + '\n'
                               : summary_->Text(profiles_.front()));
        if (people_)
            people_->Finish(SummaryText());
        if (totals_.Done() == 0 && !list_failed_ && base::Interruption() == 0)
            console_.PrintError(options_.program + ": nothing was scanned: no file is named, or all are excluded\n");
        if (!options_.quiet)
            console_.PrintError(SummaryText());
        if (options_.profile)
            console_.PrintError(profiles_.front().Text(scanner_.rules()));
        if (base::Interruption() != 0)
            return kSignalled + base::Interruption();
        if (list_failed_)
            return kErrorHappened;
        return code_ == kFound && options_.exit_zero ? kNothingFound : code_;
    }

private:
    using Clock = std::chrono::steady_clock;

    // The next path of the list, which the first call opens; nothing at its end and where it cannot be read, which does
    // not stop the scan of the paths before.
    std::optional<fs::path> NextPath(std::optional<base::PathList> &list) {
        try {
            if (!list)
                list.emplace(*options_.path_list, options_.list_separator);
            return list->Next();
        } catch (const base::Error &error) {
            console_.PrintError(fmt::format("{}: {}\n", options_.program, error.what()));
            list_failed_ = true;
            return std::nullopt;
        }
    }

    bool ShowsProgress() const {
        if (options_.progress != base::When::Auto)
            return options_.progress == base::When::Always;
        const bool records_on_terminal = options_.format != scanner::ReportFormat::Text && base::IsTerminal(stdout);
        return !options_.quiet && !records_on_terminal && base::EnableEscapes(stderr);
    }

    std::function<std::string(std::size_t)> MakeProgress() {
        return [this](std::size_t columns) {
            const std::lock_guard lock(progress_mutex_);
            return scanner::ProgressLine(totals_, expected_.Get(), Seconds(), current_file_, columns);
        };
    }

    std::string SummaryText() const {
        return scanner::SummaryLine(totals_, Seconds(), base::Interruption() != 0, options_.program);
    }

    // Without a summary there is one group, which nobody asks for.
    std::size_t GroupOf(const fs::path &path) { return summary_ ? summary_->GroupOf(path) : 0; }
    std::size_t GroupOf(const LabelledPath &labelled) { return summary_ ? summary_->Group(labelled.label) : 0; }

    // In the other formats a skipped file has a record of its own.
    bool NamesSkipped() const { return !options_.quiet && options_.format == scanner::ReportFormat::Text; }

    double Seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

    // The last profile is that of deliveries.
    scanner::Profile *ProfileOf(std::size_t thread) { return profiles_.empty() ? nullptr : &profiles_[thread]; }

    Result Work(Job &job, unsigned thread) {
        Result result;
        result.group = job.group;
        if (base::Interruption() != 0) {
            result.report.status = scanner::ScanStatus::Interrupted;
            return result;
        }
        if (shows_progress_) {
            const std::lock_guard lock(progress_mutex_);
            current_file_ = job.input.path;
        }
        scanner::Profile *profile = ProfileOf(thread);
        if (!job.error) {
            result.report = scanner_.Scan(job.input, profile);
        } else {
            result.report.file = std::move(job.input.path);
            result.report.error = job.error->reason();
            result.report.error_code = job.error->code();
        }
        // Lines with carved payloads are made after carving.
        if (!carver_ || result.report.payloads.empty()) {
            const scanner::StepTimer timer(profile, scanner::Step::Output);
            result.lines = Lines(result.report);
        }
        if (people_ && result.report.status != scanner::ScanStatus::Interrupted) {
            const scanner::StepTimer timer(profile, scanner::Step::Output);
            result.row = Rows(result.report);
        }
        return result;
    }

    // The file's row of the report for people, and those of the files inside it, which cannot be opened again.
    std::string Rows(const scanner::FileReport &report) const {
        std::string rows;
        report.ForEach([&](const scanner::FileReport &each) {
            const bool is_on_disk = &each == &report && each.size.has_value();
            rows += scanner::html::FileRow(each, is_on_disk ? scanner::html::Describe(scanner_, each)
                                                            : scanner::html::FileDetails{});
        });
        return rows;
    }

    std::string Lines(const scanner::FileReport &report) const {
        if (!options_.explain)
            return scanner::ReportLines(report, options_.format, out_in_colour_);
        // Files inside others cannot be opened again.
        std::string lines;
        report.ForEach([&](const scanner::FileReport &each) {
            const bool as_json = options_.format == scanner::ReportFormat::JsonLines;
            if (&each == &report && as_json)
                lines += ExplainedLine(scanner_, each);
            else
                lines += scanner::OwnLines(each, options_.format, out_in_colour_);
            if (&each == &report && options_.format == scanner::ReportFormat::Text)
                lines += ExplainRules(scanner_, each);
        });
        return lines;
    }

    void Deliver(Result &result) {
        scanner::FileReport &report = result.report;
        scanner::Profile *profile = ProfileOf(options_.threads);
        if (carver_ && !report.payloads.empty() && report.status != scanner::ScanStatus::Interrupted) {
            const scanner::StepTimer timer(profile, scanner::Step::Carve);
            CarvePayloads(report);
            result.lines = Lines(report);
        }
        if (report.status == scanner::ScanStatus::Interrupted)
            return;
        const scanner::StepTimer timer(profile, scanner::Step::Output);
        {
            const std::lock_guard lock(progress_mutex_);
            totals_.Add(report);
        }
        if (summary_)
            summary_->Add(report, result.group);
        if (!result.lines.empty())
            console_.Print(result.lines);
        if (people_)
            people_->Add(result.row);
        report.ForEach([this](const scanner::FileReport &each) {
            if (const std::string notes = scanner::NoteLines(each, NamesSkipped(), options_.program); !notes.empty())
                console_.PrintError(notes);
            if (each.status == scanner::ScanStatus::Failed)
                console_.PrintError(scanner::ErrorLine(each.file, each.error, errors_in_colour_, options_.program));
        });
        code_ = std::max(code_, CodeOf(report, options_.near_is_found));
    }

    // Called in the files' order, so that the same input gives the same names.
    void CarvePayloads(scanner::FileReport &report) {
        try {
            std::optional<base::FileSource> reopened;
            base::ByteSource &opened = report.stream ? *report.stream : reopened.emplace(report.file);
            scanner::WatchedSource source(opened, scanner::Deadline(options_.settings.timeout));
            for (scanner::Payload &payload : report.payloads)
                carver_->Carve(source, report.file, payload);
        } catch (const base::Error &error) {
            if (base::Interruption() != 0) {
                report.status = scanner::ScanStatus::Interrupted;
                return;
            }
            report.status = scanner::ScanStatus::Failed;
            if (report.error.empty())
                report.error_code = base::ErrorCode::NotCarved;
            report.error += std::string(report.error.empty() ? "" : "; ") + "not carved: " + error.reason();
        }
    }

    const scanner::Scanner &scanner_;
    const ScanOptions &options_;
    const bool out_in_colour_;
    const bool errors_in_colour_;
    const Clock::time_point start_ = Clock::now();
    std::optional<scanner::Carver> carver_;
    std::optional<scanner::html::HtmlReport> people_;
    std::optional<RuleSummary> summary_;
    std::vector<scanner::Profile> profiles_;
    ExitCode code_ = kNothingFound;
    bool list_failed_ = false;

    const bool shows_progress_;
    ExpectedFiles expected_;
    std::mutex progress_mutex_; // guards the next two, which the progress line reads
    scanner::Totals totals_;
    fs::path current_file_;
    base::Console console_; // its thread reads the members above
};

} // namespace

int RunScan(const ScanOptions &options) {
    base::NoteInterruptions();
    scanner::ScanSettings settings = options.settings;
    settings.record_reads = !options.report.empty();
    const std::unique_ptr<const scanner::Scanner> scanner = MakeScanner(options, settings);
    ConfineScan(options);
    ScanRun run(*scanner, options);
    run.Run();
    return run.Conclude();
}

} // namespace tavrik::scanning
