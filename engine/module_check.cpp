#include <optional>
#include <span>

#include <fmt/format.h>

#include "base/error.h"
#include "base/system.h"
#include "base/text.h"
#include "engine/failure.h"
#include "engine/module.h"

namespace tavrik::engine {

namespace fs = std::filesystem;

namespace {

constexpr const char *kExports[] = {"YNLibInit", "YNLibDeinit", "HeurGetDetectionInfo", "HeurGetLocatorTable",
                                    "HeurClean"};
constexpr const char *kDecoderExports[] = {"GetOffsetsFromBufferEx", "GetOffsetsFromBufferExUdi",
                                           "GetUdiInstructionsEx", "GetMSILDecodedInstructions",
                                           "GetPCODEDecodedInstructions"};
constexpr char kPlatform[] = "platform.hbx";
constexpr char kDecoder[] = "disasm.hbx";

void RequireFile(const fs::path &path, tavrik_status status, std::string_view remedy) {
    std::error_code error;
    if (!fs::exists(path, error))
        throw Failure(status, fmt::format("{}: {}; {}", base::PrintablePath(path),
                                          error ? error.message() : "no such file", remedy));
}

// Loads a library for a moment and looks its exports up.
void RequireExports(const fs::path &path, std::span<const char *const> exports, tavrik_status unloadable,
                    tavrik_status foreign) {
    std::optional<base::DynamicLibrary> library;
    try {
        library.emplace(path);
    } catch (const base::Error &reason) {
        throw Failure(unloadable,
                      fmt::format("{}: cannot be loaded: {}; install a file for this system that this user may "
                                  "run",
                                  base::PrintablePath(path), base::Printable(reason.what())));
    }
    for (const char *name : exports)
        if (library->Symbol(name) == nullptr)
            throw Failure(foreign, fmt::format("{}: does not export {}; install the modules of one version together",
                                               base::PrintablePath(path), name));
}

} // namespace

void RequireUsable(const fs::path &path) {
    RequireFile(path, TAVRIK_ERROR_MODULE_MISSING, "install the module, or say where it is");
    const fs::path folder = path.parent_path();
    RequireFile(folder / kPlatform, TAVRIK_ERROR_COMPANION_MISSING, "install it beside tavrik2.hbx, which needs it");
    RequireExports(path, kExports, TAVRIK_ERROR_MODULE_UNLOADABLE, TAVRIK_ERROR_MODULE_FOREIGN);
    const std::string directory = base::SystemPath(folder);
    if (directory.empty() || directory.size() + sizeof kDecoder >= sizeof HostConfig::decoder_directory)
        throw Failure(
            TAVRIK_ERROR_MODULE_PATH,
            fmt::format("{}: the path of its folder is too long or has characters that the module cannot take; "
                        "move the modules to another folder",
                        base::PrintablePath(path)));
    RequireFile(folder / kDecoder, TAVRIK_ERROR_COMPANION_MISSING, "install it beside tavrik2.hbx, which needs it");
    RequireExports(folder / kDecoder, kDecoderExports, TAVRIK_ERROR_COMPANION_UNUSABLE,
                   TAVRIK_ERROR_COMPANION_UNUSABLE);
}

} // namespace tavrik::engine
