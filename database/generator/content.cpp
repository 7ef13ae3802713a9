#include "database/generator/content.h"

#include <algorithm>
#include <cstring>

#include "database/generator/names.h"

namespace tavrik::generator {
namespace {

// An instruction: its fixed bytes, then an operand.
enum class Operand : uint8_t { None, Byte, Word, Address };

struct Instruction {
    std::string_view opcode;
    Operand operand;
};

using namespace std::string_view_literals;

constexpr Instruction kInstructions[] = {
    {"\x55"sv, Operand::None},
    {"\x8B\xEC"sv, Operand::None},
    {"\x83\xEC"sv, Operand::Byte},
    {"\x53"sv, Operand::None},
    {"\x56"sv, Operand::None},
    {"\x57"sv, Operand::None},
    {"\x68"sv, Operand::Address},
    {"\xFF\x15"sv, Operand::Address},
    {"\xE8"sv, Operand::Address},
    {"\xA1"sv, Operand::Address},
    {"\xA3"sv, Operand::Address},
    {"\x8B\x0D"sv, Operand::Address},
    {"\x33\xC0"sv, Operand::None},
    {"\x33\xDB"sv, Operand::None},
    {"\x85\xC0"sv, Operand::None},
    {"\x74"sv, Operand::Byte},
    {"\x75"sv, Operand::Byte},
    {"\x80\x34\x08"sv, Operand::Byte},
    {"\x41"sv, Operand::None},
    {"\x3B\xCA"sv, Operand::None},
    {"\x7C"sv, Operand::Byte},
    {"\x8D\x45"sv, Operand::Byte},
    {"\x8D\x4D"sv, Operand::Byte},
    {"\x50"sv, Operand::None},
    {"\x51"sv, Operand::None},
    {"\x6A"sv, Operand::Byte},
    {"\xB8"sv, Operand::Word},
    {"\x89\x45"sv, Operand::Byte},
    {"\x8B\x45"sv, Operand::Byte},
    {"\x81\xF1"sv, Operand::Word},
    {"\xC1\xE0"sv, Operand::Byte},
    {"\x03\xC1"sv, Operand::None},
    {"\x8A\x04\x0E"sv, Operand::None},
    {"\x34"sv, Operand::Byte},
    {"\x88\x04\x0E"sv, Operand::None},
    {"\x0F\xB6\xC0"sv, Operand::None},
    {"\x5F\x5E\xC9\xC3"sv, Operand::None},
};

constexpr std::string_view kHosts[] = {"update", "www", "stat", "cdn", "img", "down", "gate", "srv"};

template <typename Value>
void Append(Bytes &bytes, Value value) {
    const std::size_t position = bytes.size();
    bytes.resize(position + sizeof value);
    std::memcpy(bytes.data() + position, &value, sizeof value);
}

} // namespace

void Content::AddCode(uint32_t size, uint32_t image_base, Random &random) {
    constexpr uint32_t kImageSpan = 0x7000; // where operands point, after the first page
    constexpr uint32_t kLongPercent = 3;
    const std::size_t end = bytes.size() + size;
    Mark mark;
    uint32_t wanted = 0;
    const auto begin_mark = [&] {
        mark = {.offset = this->size()};
        wanted = random.Chance(kLongPercent) ? random.Between(40, 128) : random.Between(9, 24);
    };
    begin_mark();
    while (bytes.size() < end) {
        const Instruction &instruction = random.Pick(kInstructions);
        bytes.insert(bytes.end(), instruction.opcode.begin(), instruction.opcode.end());
        switch (instruction.operand) {
        case Operand::None:
            break;
        case Operand::Byte:
            bytes.push_back(random.NextByte());
            break;
        case Operand::Word:
            Append(bytes, random.Next32());
            break;
        case Operand::Address:
            for (uint32_t i = 0; i < 4; ++i)
                if (const uint32_t position = this->size() + i - mark.offset; position < rules::kMaxStringLength)
                    mark.mask.set(position);
            Append(bytes, image_base + 0x1000 + random.Below(kImageSpan));
            break;
        }
        const uint32_t length = this->size() - mark.offset;
        if (length < wanted)
            continue;
        mark.length = std::min<uint32_t>(length, rules::kMaxStringLength);
        // A string does not begin or end with what it does not ask for.
        while (mark.length > 1 && mark.mask[mark.length - 1] && wanted < rules::kMaxStringLength - 4)
            mark.mask.reset(--mark.length);
        for (std::size_t i = mark.length; i < rules::kMaxStringLength; ++i)
            mark.mask.reset(i);
        if (mark.length - mark.mask.count() >= 6)
            marks.push_back(mark);
        begin_mark();
    }
}

void Content::AddPacked(uint32_t size, Random &random) {
    constexpr uint32_t kMarkEvery = 0x100;
    for (uint32_t i = 0; i < size; ++i) {
        if (i % kMarkEvery == 0 && size - i >= 32)
            marks.push_back({.offset = this->size() + random.Below(8U), .length = random.Between(10, 24)});
        bytes.push_back(random.NextByte());
    }
}

void Content::AddNumbers(uint32_t count, Random &random) {
    constexpr uint32_t kSmall = 0x400;
    for (uint32_t i = 0; i < count; ++i)
        Append(bytes, random.Below(kSmall));
}

void Content::AddText(std::string_view text, bool is_wide) {
    PadTo(4);
    marks.push_back({.offset = size(),
                     .length = static_cast<uint32_t>(std::min(text.size(), rules::kMaxStringLength)),
                     .is_text = true,
                     .is_wide = is_wide});
    for (const char c : text) {
        bytes.push_back(static_cast<uint8_t>(c));
        if (is_wide)
            bytes.push_back(0);
    }
    bytes.insert(bytes.end(), is_wide ? 2 : 1, 0);
}

std::string ExpandText(std::string_view text, std::string_view family, Random &random) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string expanded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char code = text[i] == '%' && i + 1 < text.size() ? text[i + 1] : '\0';
        switch (code) {
        case 'f':
            expanded += family;
            break;
        case 'h':
            expanded += random.Pick(kHosts);
            expanded += "." + SmallWord(random) + ".example";
            break;
        case 'n':
            expanded += std::to_string(random.Between(2, 9999));
            break;
        case 'x':
            for (int digit = 0; digit < 8; ++digit)
                expanded += random.Pick(kDigits);
            break;
        case 'w':
            expanded += SmallWord(random);
            break;
        default:
            expanded += text[i];
            continue;
        }
        ++i;
    }
    return expanded;
}

} // namespace tavrik::generator
