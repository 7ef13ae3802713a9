#include "scanner/identity.h"

#include <fmt/format.h>

#include "base/byte_source.h"
#include "base/error.h"
#include "base/sha256.h"
#include "base/text.h"
#include "rules/record/reader.h"
#include "rules/text/digest.h"

namespace tavrik::scanner {

Identity IdentityOf(const Module &module) {
    Identity identity;
    identity.module = module.path();
    try {
        base::FileSource file(module.path());
        identity.module_sha256 = base::Sha256Of(file);
    } catch (const base::Error &) {
        // It may have been replaced since it was loaded.
    }
    identity.rules = module.rules().size();
    identity.database_sha256 = DatabaseDigest(module.rules());
    return identity;
}

std::string DatabaseDigest(std::span<HeuristicRule *const> rules) {
    return rules::text::DigestOf(rules::record::ReadRules(rules, rules::record::RecordForm::Working));
}

std::string IdentityText(const Identity &identity) {
    return fmt::format("module: {}, SHA-256 {}\ndatabase: {}, SHA-256 {}\n", base::PrintablePath(identity.module),
                       identity.module_sha256.empty() ? "not known" : identity.module_sha256,
                       base::CountText(identity.rules, "rule"), identity.database_sha256);
}

} // namespace tavrik::scanner
