// tavrik-samples: writes the sample set to a folder.

#include <filesystem>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "base/atomic_file.h"
#include "samples/samples.h"

namespace {

namespace fs = std::filesystem;

void WriteAll(const fs::path &folder) {
    tavrik::base::MakeFolders(folder);
    std::size_t total = 0;
    const std::size_t count = tavrik::samples::SampleCount();
    for (std::size_t index = 0; index < count; ++index) {
        const tavrik::samples::Sample sample = tavrik::samples::MakeSample(index);
        tavrik::base::WriteWholeFile(folder / sample.file_name, sample.bytes, tavrik::base::Flush::None);
        fmt::print("{:<52} {:>8} bytes  {}\n", sample.file_name, sample.bytes.size(), sample.about);
        total += sample.bytes.size();
    }
    fmt::print("{} files, {:.1f} MiB, in {}\n", count, static_cast<double>(total) / (1 << 20), folder.string());
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"Writes the sample set: harmless PE files, one for each locator that can find something, clean ones\n"
                 "(clean-*) and near misses (near-miss-*). Files of the same names are replaced.",
                 "tavrik-samples"};
    // A path such as /var/tmp is not an option on any system.
    app.allow_windows_style_options(false);
    std::string folder;
    app.add_option("DIR", folder, "folder to write to; created if missing")->required();
    CLI11_PARSE(app, argc, argv);
    try {
        WriteAll(folder);
    } catch (const std::exception &error) {
        fmt::print(stderr, "tavrik-samples: {}\n", error.what());
        return 1;
    }
    return 0;
}
