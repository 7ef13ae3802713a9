#include "tools/scanning/confine.h"

#include <system_error>

#include <fmt/format.h>

#include "base/console.h"
#include "base/output_folder.h"
#include "base/sandbox.h"

namespace tavrik::scanning {

namespace fs = std::filesystem;

namespace {

void Enter(const ScanOptions &options, base::SandboxPaths paths) {
    if (!options.sandbox)
        return;
    if (options.module)
        paths.read.push_back(*options.module);
    const std::string missing = base::EnterSandbox(paths);
    if (!missing.empty() && !options.quiet)
        base::PrintError(fmt::format("{}: {}\n", options.program, missing));
}

} // namespace

void Confine(const ScanOptions &options, const Paths &read, const Paths &write) {
    Enter(options, {false, read, write});
}

void ConfineScan(const ScanOptions &options) {
    // The names in a list are not known before the scan.
    base::SandboxPaths paths = {options.path_list.has_value(), options.paths, {}};
    for (const LabelledPath &labelled : options.labelled)
        paths.read.push_back(labelled.path);
    if (options.path_list)
        paths.read.push_back(*options.path_list);
    if (!options.report.empty())
        paths.write = ToWriteFile(options.report);
    if (options.carve_folder)
        paths.write.push_back(base::OutputFolder(*options.carve_folder).path());
    Enter(options, std::move(paths));
}

Paths ToWriteFile(const fs::path &file) {
    // Files are replaced by another one in their folder, after links have been followed; devices are written to.
    std::error_code ignored;
    return {file, fs::weakly_canonical(fs::absolute(file, ignored), ignored).parent_path()};
}

Paths ToMakeFolder(const fs::path &folder) {
    std::error_code ignored;
    fs::path existing = fs::absolute(folder, ignored);
    while (!fs::exists(existing, ignored) && existing.has_relative_path())
        existing = existing.parent_path();
    return {existing};
}

} // namespace tavrik::scanning
