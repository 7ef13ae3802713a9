#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/carve.h"
#include "host/commands.h"
#include "host/ordered_pool.h"
#include "host/path_list.h"
#include "host/profile.h"
#include "host/report.h"
#include "host/system.h"
#include "host/totals.h"
#include "host/watched_source.h"

namespace tavrik::host {

namespace fs = std::filesystem;

namespace {

// A path that the walk met: a file to scan, or something that cannot be, and why.
struct Job {
    fs::path path;
    std::string error;
};

struct Result {
    FileReport report;
    std::string lines; // for standard output
};

ExitCode CodeOf(const FileReport &report) {
    if (report.status == ScanStatus::Failed)
        return kErrorHappened;
    return report.findings.empty() && report.detections.empty() ? kNothingFound : kFound;
}

// One run over all paths. Work happens in many threads; Deliver is called by one at a time, in the files' order.
class ScanRun {
public:
    ScanRun(const Scanner &scanner, const ScanOptions &options)
        : scanner_(scanner), options_(options), out_in_colour_(WantsColour(options.colour, stdout)),
          errors_in_colour_(WantsColour(options.colour, stderr)), profiles_(options.profile ? options.threads + 1 : 0),
          shows_progress_(ShowsProgress()), console_(shows_progress_ ? MakeProgress() : nullptr) {
        if (options.carve_folder)
            carver_.emplace(*options.carve_folder);
    }

    // Returns when everything has been printed, all of it or what there is when the user interrupts.
    void Run() {
        OrderedPool<Job, Result> pool(
            options_.threads, [this](Job &job, unsigned thread) { return Work(job, thread); },
            [this](Result &result) { Deliver(result); });
        const auto submit = [&pool](const fs::path &path, const std::string &error) {
            pool.Submit({path, error});
            return Interruption() == 0;
        };
        const WalkVisitor visitor = {[&](const fs::path &file) { return submit(file, ""); }, submit};
        const auto walk = [&](const fs::path &path) { return Walk(path, options_.walk, visitor); };
        try {
            if (std::all_of(options_.paths.begin(), options_.paths.end(), walk) && options_.path_list)
                ReadPathList(*options_.path_list, options_.list_separator, walk);
        } catch (const PathListError &error) {
            console_.PrintError(fmt::format("tavrik-scan: {}\n", error.what()));
            list_failed_ = true;
        }
        pool.Finish();
    }

    // Says how it went. Returns the exit code.
    int Conclude(std::span<HeuristicRule *const> rules) {
        console_.EndProgress();
        if (!options_.quiet)
            console_.PrintError(SummaryLine(totals_, Seconds(), Interruption() != 0));
        if (options_.profile) {
            for (std::size_t thread = 1; thread < profiles_.size(); ++thread)
                profiles_.front().Add(profiles_[thread]);
            console_.PrintError(profiles_.front().Text(rules));
        }
        if (Interruption() != 0)
            return kSignalled + Interruption();
        return list_failed_ ? kErrorHappened : code_;
    }

private:
    using Clock = std::chrono::steady_clock;

    bool ShowsProgress() const {
        if (options_.progress != When::Auto)
            return options_.progress == When::Always;
        const bool json_on_terminal = options_.json && IsTerminal(stdout);
        return !options_.quiet && !json_on_terminal && EnableEscapes(stderr);
    }

    std::function<std::string(std::size_t)> MakeProgress() {
        return [this](std::size_t columns) {
            const std::lock_guard lock(progress_mutex_);
            return ProgressLine(totals_, Seconds(), current_file_, columns);
        };
    }

    double Seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

    // The last one is the profile of deliveries.
    Profile *ProfileOf(std::size_t thread) { return profiles_.empty() ? nullptr : &profiles_[thread]; }

    Result Work(Job &job, unsigned thread) {
        Result result;
        if (Interruption() != 0) {
            result.report.status = ScanStatus::Interrupted;
            return result;
        }
        if (shows_progress_) {
            const std::lock_guard lock(progress_mutex_);
            current_file_ = job.path;
        }
        Profile *profile = ProfileOf(thread);
        if (job.error.empty()) {
            result.report = scanner_.Scan(job.path, profile);
        } else {
            result.report.file = std::move(job.path);
            result.report.error = std::move(job.error);
        }
        // What will be carved is not known yet.
        if (!carver_ || result.report.findings.empty()) {
            const StepTimer timer(profile, Step::Output);
            result.lines = Lines(result.report);
        }
        return result;
    }

    std::string Lines(const FileReport &report) const {
        return options_.json ? JsonLine(report) + '\n' : TextLines(report, out_in_colour_);
    }

    void Deliver(Result &result) {
        FileReport &report = result.report;
        Profile *profile = ProfileOf(options_.threads);
        if (carver_ && !report.findings.empty() && report.status != ScanStatus::Interrupted) {
            const StepTimer timer(profile, Step::Carve);
            CarveFindings(report);
            result.lines = Lines(report);
        }
        if (report.status == ScanStatus::Interrupted)
            return;
        const StepTimer timer(profile, Step::Output);
        {
            const std::lock_guard lock(progress_mutex_);
            totals_.Add(report);
        }
        if (!result.lines.empty())
            console_.Print(result.lines);
        if (report.status == ScanStatus::Failed)
            console_.PrintError(ErrorLine(report.file, report.error, errors_in_colour_));
        code_ = std::max(code_, CodeOf(report));
    }

    // In the files' order, so that the same names come out of the same input.
    void CarveFindings(FileReport &report) {
        try {
            FileSource opened(report.file);
            WatchedSource source(opened, Deadline(options_.settings.timeout));
            for (const Finding &finding : report.findings) {
                const auto is_same = [&](const CarvedPayload &carved) { return carved.offset == finding.offset; };
                if (std::any_of(report.carved.begin(), report.carved.end(), is_same))
                    continue;
                const fs::path file = carver_->Carve(source, report.file, finding.offset, finding.kind);
                report.carved.push_back({finding.offset, source.size() - finding.offset, file});
            }
        } catch (const std::runtime_error &error) { // OpenError, CarveError
            if (Interruption() != 0) {
                report.status = ScanStatus::Interrupted;
                return;
            }
            report.status = ScanStatus::Failed;
            report.error += std::string(report.error.empty() ? "" : "; ") + "not carved: " + error.what();
        }
    }

    const Scanner &scanner_;
    const ScanOptions &options_;
    const bool out_in_colour_;
    const bool errors_in_colour_;
    const Clock::time_point start_ = Clock::now();
    std::optional<Carver> carver_;
    std::vector<Profile> profiles_;
    ExitCode code_ = kNothingFound;
    bool list_failed_ = false;

    const bool shows_progress_;
    std::mutex progress_mutex_; // guards the two below against the progress line
    Totals totals_;
    fs::path current_file_;
    Console console_; // its thread looks at the above
};

} // namespace

int RunScan(const fs::path &module_path, const ScanOptions &options) {
    NoteInterruptions();
    const Module module(module_path);
    const Scanner scanner(module, options.settings);
    ScanRun run(scanner, options);
    run.Run();
    return run.Conclude(module.rules());
}

} // namespace tavrik::host
