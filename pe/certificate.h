/* Who signed a file, as its certificate table says. Nothing is verified: neither digests nor signatures nor trust. */
#ifndef TAVRIK_PE_CERTIFICATE_H
#define TAVRIK_PE_CERTIFICATE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "pe/image.h"

namespace tavrik::pe {

/** Certificate tables are read up to this many bytes. */
inline constexpr std::size_t kMostCertificateBytes = std::size_t{1} << 20;

/** The names in the certificate of a file's first signer, in UTF-8 or whatever bytes the certificate has: the common
 * name, or the organisation when there is none; "" when there is neither. */
struct Signer {
    std::string name;
    std::string issuer; // who issued the certificate

    bool operator==(const Signer &) const = default;
};

/** The certificate table's bytes, cut at the end of the file; absent when the file names none. Its directory has a file
 * offset where others have an address. */
base::Region CertificateTable(const Image &image);

/** The signer named by the table's first PKCS #7 signature (Microsoft, "Windows Authenticode Portable Executable
 * Signature Format"; RFC 2315); nothing when there is none or its certificate is not enclosed. */
std::optional<Signer> ReadSigner(const Image &image);

/** The same of a DER-encoded PKCS #7 SignedData of any content. */
std::optional<Signer> ReadSignerOfPkcs7(std::span<const uint8_t> der);

} // namespace tavrik::pe

#endif
