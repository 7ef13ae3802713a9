#include "base/version.h"

#include <CLI/Version.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#ifdef TAVRIK_HAS_CRYPTO
#include <openssl/crypto.h>
#endif

namespace tavrik::base {

const char kVersion[] = TAVRIK_VERSION;

std::string LibraryVersions() {
    std::string libraries = fmt::format("CLI11 {}, fmt {}.{}.{}", CLI11_VERSION, FMT_VERSION / 10000,
                                        FMT_VERSION / 100 % 100, FMT_VERSION % 100);
#ifdef TAVRIK_HAS_CRYPTO
    libraries += fmt::format(", OpenSSL {}", OpenSSL_version(OPENSSL_VERSION_STRING));
#else
    libraries += ", SHA-256 of our own";
#endif
    return libraries;
}

std::string JsonLibraryVersion() {
    return fmt::format("nlohmann-json {}.{}.{}", NLOHMANN_JSON_VERSION_MAJOR, NLOHMANN_JSON_VERSION_MINOR,
                       NLOHMANN_JSON_VERSION_PATCH);
}

std::string VersionText(std::string_view program, std::string_view more) {
    return fmt::format("{} {}\nlibraries: {}{}{}\n", program, kVersion, LibraryVersions(), more.empty() ? "" : ", ",
                       more);
}

} // namespace tavrik::base
