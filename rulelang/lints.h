// Faults of rules that are well formed: conditions that no file meets, and rules that add nothing.
#ifndef TAVRIK_RULELANG_LINTS_H
#define TAVRIK_RULELANG_LINTS_H

#include "rulelang/diagnostics.h"
#include "rulelang/parser.h"

#include <span>
#include <vector>

namespace tavrik::rules {

/// A rule file without errors.
struct LintedFile {
    const Source *source = nullptr;
    const ParsedFile *parsed = nullptr;
};

/// The warnings about each file, in the order of their places; at most kMaxErrors of each. Rules are compared across
/// all files.
std::vector<std::vector<Diagnostic>> FindLints(std::span<const LintedFile> files);

} // namespace tavrik::rules

#endif
