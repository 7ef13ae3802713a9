#include "scanner/module_check.h"

#include <bit>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "base/text.h"
#include "tavrik2/tavrik2.h"

namespace tavrik::scanner {

namespace fs = std::filesystem;
using base::ErrorCode;

namespace {

constexpr const char *kExports[] = {"YNLibInit", "YNLibDeinit", "HeurGetDetectionInfo", "HeurGetLocatorTable",
                                    "HeurClean"};
constexpr const char *kDecoderExports[] = {"GetOffsetsFromBufferEx", "GetOffsetsFromBufferExUdi",
                                           "GetUdiInstructionsEx", "GetMSILDecodedInstructions",
                                           "GetPCODEDecodedInstructions"};
constexpr char kPlatform[] = "platform.hbx";
constexpr char kDecoder[] = "disasm.hbx";

void RequireFile(const fs::path &path, ErrorCode code, std::string_view remedy) {
    std::error_code error;
    if (!fs::exists(path, error))
        throw base::Error(path, fmt::format("{}; {}", error ? error.message() : "no such file", remedy), code);
}

base::DynamicLibrary Load(const fs::path &path, ErrorCode unloadable) {
    try {
        return base::DynamicLibrary(path);
    } catch (const base::Error &reason) {
        throw base::Error(path,
                          fmt::format("cannot be loaded: {}; install a file for this system that this user may run",
                                      base::Printable(reason.what())),
                          unloadable);
    }
}

void RequireExports(const fs::path &path, const base::DynamicLibrary &library, std::span<const char *const> exports,
                    ErrorCode foreign) {
    for (const char *name : exports)
        if (library.Symbol(name) == nullptr)
            throw base::Error(
                path, fmt::format("does not export {}; install the modules of one version together", name), foreign);
}

base::DynamicLibrary LoadModule(const fs::path &path) {
    RequireFile(path, ErrorCode::ModuleMissing, "install the module, or say where it is");
    RequireFile(path.parent_path() / kPlatform, ErrorCode::CompanionMissing,
                "install it beside tavrik2.hbx, which needs it");
    const base::DynamicLibrary checked = Load(path, ErrorCode::ModuleUnloadable);
    RequireExports(path, checked, kExports, ErrorCode::ModuleForeign);
    return Load(path, ErrorCode::ModuleUnloadable); // once more what is loaded already, which takes no time
}

fs::path Absolute(const fs::path &path) {
    std::error_code error;
    fs::path absolute = fs::absolute(path, error);
    return error ? path : absolute;
}

} // namespace

base::DynamicLibrary LoadUsable(const fs::path &module) {
    const base::DynamicLibrary checked = LoadModule(module);
    const fs::path folder = module.parent_path();
    const std::string directory = base::SystemPath(folder);
    if (directory.empty() || directory.size() + sizeof kDecoder >= sizeof HostConfig::decoder_directory)
        throw base::Error(module,
                          "the path of its folder is too long or has characters that the module cannot take; move the "
                          "modules to another folder",
                          ErrorCode::ModulePath);
    const fs::path decoder = folder / kDecoder;
    RequireFile(decoder, ErrorCode::CompanionMissing, "install it beside tavrik2.hbx, which needs it");
    RequireExports(decoder, Load(decoder, ErrorCode::CompanionUnusable), kDecoderExports, ErrorCode::CompanionUnusable);
    return Load(module, ErrorCode::ModuleUnloadable);
}

StoredModule::StoredModule(const fs::path &module) : path_(Absolute(module)), library_(LoadModule(path_)) {
    const auto get = std::bit_cast<decltype(&HeurGetDetectionInfo)>(library_.Symbol("HeurGetDetectionInfo"));
    HeuristicRule *const *rules = nullptr;
    uint32_t count = 0;
    if (get(&rules, &count) == 0)
        throw base::Error(path_, "hands out no rules; install the modules of one version together",
                          ErrorCode::ModuleForeign);
    rules_ = {rules, count};
}

} // namespace tavrik::scanner
