/* The contents of sections: code, packed data, texts and tables, with marks at what an analyst would pick as a string.
 */
#ifndef TAVRIK_DATABASE_GENERATOR_CONTENT_H
#define TAVRIK_DATABASE_GENERATOR_CONTENT_H

#include <bitset>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "database/generator/random.h"
#include "rules/model.h"

namespace tavrik::generator {

using Bytes = std::vector<uint8_t>;

/** A range that makes a good string: an instruction sequence, or a text. */
struct Mark {
    uint32_t offset = 0;                            // into the content
    uint32_t length = 0;                            // characters or bytes of the string; a wide one takes twice as many
    std::bitset<rules::kMaxStringLength> mask = {}; // address operands
    bool is_text = false;
    bool is_wide = false;
};

struct Content {
    Bytes bytes;
    std::vector<Mark> marks;

    uint32_t size() const { return static_cast<uint32_t>(bytes.size()); }

    void PadTo(uint32_t alignment) { bytes.resize((bytes.size() + alignment - 1) / alignment * alignment); }

    /** At least `size` bytes of 32-bit code whose operands point into an image at `image_base`. */
    void AddCode(uint32_t size, uint32_t image_base, Random &random);

    /** `size` bytes without any order. */
    void AddPacked(uint32_t size, Random &random);

    /** A table of `count` small 32-bit numbers. */
    void AddNumbers(uint32_t count, Random &random);

    /** A text with its NUL, as bytes or as UTF-16, on a multiple of 4. */
    void AddText(std::string_view text, bool is_wide);
};

/** Fills in a text's template: %f the family, %h a host, %n a number, %x hexadecimal digits, %w a new word. */
std::string ExpandText(std::string_view text, std::string_view family, Random &random);

} // namespace tavrik::generator

#endif
