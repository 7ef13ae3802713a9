/* Which module and which database a result comes from. */
#ifndef TAVRIK_SCANNER_IDENTITY_H
#define TAVRIK_SCANNER_IDENTITY_H

#include <filesystem>
#include <span>
#include <string>

#include "scanner/module.h"

namespace tavrik::scanner {

/** What identifies a loaded module. */
struct Identity {
    std::filesystem::path module; // its file, absolute
    std::string module_sha256;    // of that file; "" when it cannot be read any more
    std::size_t rules = 0;
    std::string database_sha256; // of the rules' canonical text
};

/** Takes a third of a second for the whole database. */
Identity IdentityOf(const Module &module);

/** The SHA-256 of the canonical text of rules in working form, in hexadecimal digits. */
std::string DatabaseDigest(std::span<HeuristicRule *const> rules);

/** The lines about it for --version. */
std::string IdentityText(const Identity &identity);

} // namespace tavrik::scanner

#endif
