// tavrik-samples: writes the sample set to a folder.

#include <filesystem>
#include <optional>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "base/atomic_file.h"
#include "base/console.h"
#include "base/program.h"
#include "base/system.h"
#include "base/text.h"
#include "base/version.h"
#include "samples/samples.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFailed = 1;

void WriteAll(const fs::path &folder) {
    tavrik::base::MakeFolders(folder);
    std::size_t total = 0;
    const std::size_t count = tavrik::samples::SampleCount();
    for (std::size_t index = 0; index < count; ++index) {
        const tavrik::samples::Sample sample = tavrik::samples::MakeSample(index);
        tavrik::base::WriteWholeFile(folder / sample.file_name, sample.bytes, tavrik::base::Flush::None);
        tavrik::base::Print(
            fmt::format("{:<52} {:>8} bytes  {}\n", sample.file_name, sample.bytes.size(), sample.about));
        total += sample.bytes.size();
    }
    tavrik::base::Print(fmt::format("{} files, {:.1f} MiB, in {}\n", count, static_cast<double>(total) / (1 << 20),
                                    tavrik::base::PrintablePath(folder)));
}

int Run(int argc, char **argv) {
    CLI::App app{"Writes the sample set: harmless PE files, one for each locator that can find something, clean ones\n"
                 "(clean-*) and near misses (near-miss-*). Files of the same names are replaced.",
                 "tavrik-samples"};
    // A path such as /var/tmp is not an option on any system.
    app.allow_windows_style_options(false);
    app.set_version_flag("--version", tavrik::base::VersionText("tavrik-samples"), "print the versions, and exit");
    std::string folder;
    app.add_option("DIR", folder, "folder to write to; created if missing")->required()->type_name("");
    if (const std::optional<int> code =
            tavrik::base::ParseCommandLine(app, tavrik::base::Arguments(argc, argv), kFailed))
        return *code;
    WriteAll(tavrik::base::PathOf(folder));
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    return tavrik::base::RunProgram("tavrik-samples", kFailed, [&] { return Run(argc, argv); });
}
