/* What rules can ask of a manifest. */
#ifndef TAVRIK_PE_MANIFEST_H
#define TAVRIK_PE_MANIFEST_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace tavrik::pe {

/** The text that a key of a manifest resource (docs/rule-semantics.md) names, a part of `manifest`: all of it for key
 * 0, else the value of an element or attribute as written. Nothing when the manifest has none or the key is not one of
 * manifests. */
std::optional<std::string_view> FindInManifest(std::string_view manifest, uint32_t key);

} // namespace tavrik::pe

#endif
