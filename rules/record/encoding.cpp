#include "rules/record/encoding.h"

#include <stdexcept>

namespace tavrik::rules::record {

void CheckWidth(std::string_view text, std::size_t width) {
    if (text.size() >= width)
        throw std::invalid_argument("the text '" + std::string(text) + "' has more than " + std::to_string(width - 1) +
                                    " characters");
}

void PackMask(const std::bitset<kMaxStringLength> &mask, std::size_t length, uint8_t (&packed)[kMaskBytes]) {
    for (std::size_t i = 0; i < length; ++i)
        if (mask[i])
            packed[i / 8] = static_cast<uint8_t>(packed[i / 8] | 1u << i % 8);
}

std::string SectionBytes(std::string_view name, std::string_view tail) {
    std::string bytes(name);
    bytes.append(tail).resize(kSectionTextBytes, '\0');
    return bytes;
}

} // namespace tavrik::rules::record
