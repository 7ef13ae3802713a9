#include "base/sha256.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include <fmt/format.h>

namespace tavrik::base {

namespace {

constexpr std::size_t kReadSize = 256 * 1024;

} // namespace

std::string HexDigits(const Sha256::Digest &digest) {
    std::string digits;
    for (const uint8_t byte : digest)
        fmt::format_to(std::back_inserter(digits), "{:02x}", byte);
    return digits;
}

std::string Sha256Of(std::string_view bytes) {
    Sha256 hash;
    hash.Update({reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()});
    return HexDigits(hash.Finish());
}

std::string Sha256Of(ByteSource &source) {
    Sha256 hash;
    std::vector<uint8_t> buffer(static_cast<std::size_t>(std::min<uint64_t>(kReadSize, source.size())));
    for (uint64_t offset = 0; offset < source.size();) {
        const std::size_t count = source.ReadAt(offset, buffer.data(), buffer.size());
        if (count == 0)
            break; // failed, or the file has shrunk
        hash.Update(std::span(buffer).first(count));
        offset += count;
    }
    if (!source.error().empty())
        return "";
    return HexDigits(hash.Finish());
}

} // namespace tavrik::base
