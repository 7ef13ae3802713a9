#include "pe/certificate.h"

#include <algorithm>
#include <array>
#include <vector>

#include "base/utf8.h"

namespace tavrik::pe {

namespace {

using Bytes = std::span<const uint8_t>;

// WIN_CERTIFICATE: dwLength, wRevision, wCertificateType, and the certificate.
constexpr uint32_t kEntryHeaderSize = 8;
constexpr uint64_t kTypeOffset = 6;
constexpr int kMostCertificates = 16; // that are looked at
constexpr uint16_t kPkcsSignedData = 2;

// Tags of DER.
constexpr uint8_t kInteger = 0x02;
constexpr uint8_t kObjectIdentifier = 0x06;
constexpr uint8_t kBmpString = 0x1E;
constexpr uint8_t kSequence = 0x30;
constexpr uint8_t kSet = 0x31;
constexpr uint8_t kContext0 = 0xA0;

// 1.2.840.113549.1.7.2, 2.5.4.3 and 2.5.4.10.
constexpr std::array<uint8_t, 9> kSignedData = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x07, 0x02};
constexpr std::array<uint8_t, 3> kCommonName = {0x55, 0x04, 0x03};
constexpr std::array<uint8_t, 3> kOrganisation = {0x55, 0x04, 0x0A};

struct Element {
    uint8_t tag = 0;
    Bytes content;
    Bytes whole; // with tag and length
};

// Reads one element after the other. Every element is at least 2 bytes long and lies within its parent.
class Elements {
public:
    explicit Elements(Bytes bytes) : rest_(bytes) {}

    /** The next element; nothing at the end and where the bytes are no element. */
    std::optional<Element> Next() {
        constexpr uint8_t kLong = 0x80; // lengths of several bytes, whose number is in the other bits
        if (rest_.size() < 2)
            return std::nullopt;
        std::size_t header = 2;
        std::size_t length = rest_[1];
        if (length >= kLong) {
            const std::size_t bytes = length - kLong;
            if (bytes == 0 || bytes > sizeof(uint32_t) || rest_.size() < header + bytes)
                return std::nullopt;
            length = 0;
            for (std::size_t index = 0; index < bytes; ++index)
                length = length << 8 | rest_[header + index];
            header += bytes;
        }
        if (length > rest_.size() - header)
            return std::nullopt;
        const Element element = {rest_[0], rest_.subspan(header, length), rest_.first(header + length)};
        rest_ = rest_.subspan(header + length);
        return element;
    }

    /** The next element, which must have the tag. */
    std::optional<Element> Next(uint8_t tag) {
        const std::optional<Element> element = Next();
        return element && element->tag == tag ? element : std::nullopt;
    }

    /** The next element if it has the tag; otherwise it stays the next. */
    std::optional<Element> NextIf(uint8_t tag) { return !rest_.empty() && rest_[0] == tag ? Next() : std::nullopt; }

private:
    Bytes rest_;
};

std::string TextOf(const Element &string) {
    if (string.tag != kBmpString)
        return {string.content.begin(), string.content.end()};
    std::u16string text;
    for (std::size_t at = 0; at + 1 < string.content.size(); at += 2)
        text += static_cast<char16_t>(string.content[at] << 8 | string.content[at + 1]);
    return base::LossyUtf8Of(text);
}

// A Name: a sequence of sets of pairs of an attribute's type and value.
std::string NameOf(const Element &name) {
    std::string organisation;
    Elements sets(name.content);
    while (const std::optional<Element> set = sets.Next(kSet)) {
        const std::optional<Element> pair = Elements(set->content).Next(kSequence);
        if (!pair)
            break;
        Elements parts(pair->content);
        const std::optional<Element> type = parts.Next(kObjectIdentifier);
        const std::optional<Element> value = parts.Next();
        if (!type || !value)
            break;
        if (std::ranges::equal(type->content, kCommonName))
            return TextOf(*value);
        if (std::ranges::equal(type->content, kOrganisation))
            organisation = TextOf(*value);
    }
    return organisation;
}

struct Certificate {
    Element serial;
    Element issuer;
    Element subject;
};

std::optional<Certificate> ReadCertificate(const Element &whole) {
    const std::optional<Element> body = Elements(whole.content).Next(kSequence);
    if (!body)
        return std::nullopt;
    Elements fields(body->content);
    fields.NextIf(kContext0); // the version
    const std::optional<Element> serial = fields.Next(kInteger);
    fields.Next(); // the algorithm
    const std::optional<Element> issuer = fields.Next(kSequence);
    fields.Next(); // the validity
    const std::optional<Element> subject = fields.Next(kSequence);
    if (!serial || !issuer || !subject)
        return std::nullopt;
    return Certificate{*serial, *issuer, *subject};
}

} // namespace

std::optional<Signer> ReadSignerOfPkcs7(std::span<const uint8_t> der) {
    const std::optional<Element> outer = Elements(der).Next(kSequence);
    if (!outer)
        return std::nullopt;
    Elements content_info(outer->content);
    const std::optional<Element> type = content_info.Next(kObjectIdentifier);
    const std::optional<Element> content = content_info.Next(kContext0);
    if (!type || !std::ranges::equal(type->content, kSignedData) || !content)
        return std::nullopt;
    const std::optional<Element> signed_data = Elements(content->content).Next(kSequence);
    if (!signed_data)
        return std::nullopt;

    Elements fields(signed_data->content);
    fields.Next(kInteger);  // the version
    fields.Next(kSet);      // the digest algorithms
    fields.Next(kSequence); // what is signed
    const std::optional<Element> certificates = fields.Next(kContext0);
    std::optional<Element> signers;
    while ((signers = fields.Next()) && signers->tag != kSet) {
    }
    if (!certificates || !signers)
        return std::nullopt;
    const std::optional<Element> signer = Elements(signers->content).Next(kSequence);
    if (!signer)
        return std::nullopt;
    Elements signer_fields(signer->content);
    signer_fields.Next(kInteger); // the version
    const std::optional<Element> identity = signer_fields.Next(kSequence);
    if (!identity)
        return std::nullopt;
    Elements identity_fields(identity->content);
    const std::optional<Element> issuer = identity_fields.Next(kSequence);
    const std::optional<Element> serial = identity_fields.Next(kInteger);
    if (!issuer || !serial)
        return std::nullopt;

    Elements list(certificates->content);
    while (const std::optional<Element> element = list.Next()) {
        const std::optional<Certificate> certificate = ReadCertificate(*element);
        if (certificate && std::ranges::equal(certificate->serial.whole, serial->whole) &&
            std::ranges::equal(certificate->issuer.whole, issuer->whole))
            return Signer{NameOf(certificate->subject), NameOf(certificate->issuer)};
    }
    return std::nullopt;
}

base::Region CertificateTable(const Image &image) {
    constexpr auto kAt = static_cast<uint16_t>(optional_header::kDirectories + kDirectorySize * kCertificateDirectory);
    const uint64_t offset = image.OptionalField(kAt, 4).value_or(0);
    const uint64_t length = image.OptionalField(kAt + 4, 4).value_or(0);
    if (offset == 0 || offset >= image.size())
        return {};
    return {offset, std::min(length, image.size() - offset)};
}

std::optional<Signer> ReadSigner(const Image &image) {
    const base::Region table = CertificateTable(image);
    // Entries begin at multiples of 8.
    uint64_t entry = table.offset;
    for (int count = 0; count < kMostCertificates && entry + kEntryHeaderSize <= table.End(); ++count) {
        const uint32_t length = image.bytes().Get<uint32_t>(entry).value_or(0);
        if (length <= kEntryHeaderSize || length > table.End() - entry)
            return std::nullopt;
        if (image.bytes().Get<uint16_t>(entry + kTypeOffset) == kPkcsSignedData) {
            const std::optional<std::vector<uint8_t>> der =
                length > kMostCertificateBytes
                    ? std::nullopt
                    : image.bytes().Copy({entry + kEntryHeaderSize, length - kEntryHeaderSize});
            return der ? ReadSignerOfPkcs7(*der) : std::nullopt;
        }
        entry += (uint64_t{length} + 7) / 8 * 8;
    }
    return std::nullopt;
}

} // namespace tavrik::pe
