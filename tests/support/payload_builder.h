/* Payloads of the four formats, small and made by hand. */
#ifndef TAVRIK_TESTS_SUPPORT_PAYLOAD_BUILDER_H
#define TAVRIK_TESTS_SUPPORT_PAYLOAD_BUILDER_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/crc32.h"
#include "scanner/payloads/autoit_keystream.h"
#include "tests/support/payloads.h"

namespace tavrik::tests {

/** The lowest `width` bytes of a number, the lowest first. */
inline std::string Little(uint64_t value, int width) {
    std::string bytes;
    for (int i = 0; i < width; ++i)
        bytes += static_cast<char>(value >> 8 * i);
    return bytes;
}

// AutoIt: the constants are written down once more here, apart from the reader's.

struct ScriptFile {
    std::string kind;
    std::string path;
    std::string bytes;
    bool is_compressed = true;
    uint64_t time = 0x01DD7B54'479E2A00; // a FILETIME, 1795442980 in Unix time
};

struct ScriptBuild {
    bool is_ea06;
    uint32_t kind_mask, kind_seed, path_mask, path_seed, size_mask, checksum_mask, data_seed, magic_seed;
};
inline constexpr ScriptBuild kEA06Build = {true, 0xADBC, 0xB33F, 0xF820, 0xF479, 0x87BC, 0xA685, 0x2477, 0x18EE};
inline constexpr ScriptBuild kEA05Build = {false, 0x29BC, 0xA25E, 0x29AC, 0xF25E, 0x45AA, 0xC3D2, 0x22AF, 0x16FA};

inline std::string Encrypted(const ScriptBuild &build, std::string bytes, uint32_t seed) {
    using scanner::payloads::Keystream;
    Keystream(build.is_ea06 ? Keystream::Kind::Rotating : Keystream::Kind::Twister, seed)
        .Apply({reinterpret_cast<uint8_t *>(bytes.data()), bytes.size()});
    return bytes;
}

/** Bits, the first one highest. */
class BitWriter {
public:
    void Put(uint32_t value, int count) {
        while (count-- > 0) {
            if (used_++ % 8 == 0)
                bytes_ += '\0';
            bytes_.back() =
                static_cast<char>(static_cast<uint8_t>(bytes_.back()) | (value >> count & 1) << (7 - (used_ - 1) % 8));
        }
    }
    std::string Take() { return std::move(bytes_); }

private:
    std::string bytes_;
    int used_ = 0;
};

/** The text compressed as AutoIt does it, with the longest match at each place. */
inline std::string ScriptCompressed(const ScriptBuild &build, std::string_view text) {
    constexpr std::size_t kFarthest = 32767;
    BitWriter bits;
    for (std::size_t place = 0; place < text.size();) {
        std::size_t length = 0;
        std::size_t distance = 0;
        for (std::size_t back = 1; back <= std::min(place, kFarthest); ++back) {
            std::size_t same = 0;
            while (place + same < text.size() && text[place + same] == text[place + same - back])
                ++same;
            if (same > length) {
                length = same;
                distance = back;
            }
        }
        const bool is_match = length >= 3;
        bits.Put(is_match != build.is_ea06, 1);
        if (!is_match) {
            bits.Put(static_cast<uint8_t>(text[place++]), 8);
            continue;
        }
        place += length;
        bits.Put(static_cast<uint32_t>(distance), 15);
        auto left = static_cast<uint32_t>(length - 3);
        for (const int count : {2, 3, 5}) {
            const uint32_t full = (1u << count) - 1;
            bits.Put(std::min(left, full), count);
            if (left < full)
                goto next;
            left -= full;
        }
        for (; left >= 255; left -= 255)
            bits.Put(255, 8);
        bits.Put(left, 8);
    next:;
    }
    const std::string size = Little(text.size(), 4);
    return (build.is_ea06 ? "EA06" : "EA05") + std::string(size.rbegin(), size.rend()) + bits.Take();
}

inline uint32_t Adler32(std::string_view bytes) {
    uint32_t low = 1;
    uint32_t high = 0;
    for (const char byte : bytes) {
        low = (low + static_cast<uint8_t>(byte)) % 65521;
        high = (high + low) % 65521;
    }
    return high << 16 | low;
}

/** A compiled script; its checksum is `checksum`, 16 bytes. */
inline std::string ScriptArchive(const ScriptBuild &build, const std::vector<ScriptFile> &files,
                                 const std::string &checksum = "0123456789abcdef") {
    const std::string tag = build.is_ea06 ? "AU3!EA06" : "AU3!EA05";
    const auto text = [&](const std::string &plain, uint32_t mask, uint32_t seed) {
        const auto length = static_cast<uint32_t>(plain.size());
        std::string stored;
        for (const char c : plain)
            stored.append(1, c).append(build.is_ea06 ? 1 : 0, '\0');
        return Little(length ^ mask, 4) + Encrypted(build, stored, seed + length);
    };
    uint32_t data_seed = build.data_seed;
    for (const char c : checksum)
        data_seed += build.is_ea06 ? 0u : static_cast<uint8_t>(c);
    std::string out = kMarker + tag + checksum;
    for (const ScriptFile &file : files) {
        const std::string data = file.is_compressed ? ScriptCompressed(build, file.bytes) : file.bytes;
        const std::string time = Little(file.time >> 32, 4) + Little(file.time, 4);
        out += Encrypted(build, "FILE", build.magic_seed) + text(file.kind, build.kind_mask, build.kind_seed) +
               text(file.path, build.path_mask, build.path_seed) + Little(file.is_compressed, 1) +
               Little(data.size() ^ build.size_mask, 4) + Little(file.bytes.size() ^ build.size_mask, 4) +
               Little(Adler32(data) ^ build.checksum_mask, 4) +
               std::string(time).append(time).append(Encrypted(build, data, data_seed));
    }
    return out + tag;
}

// Nullsoft installers, not compressed.

/** A script: its strings (the first is empty), and instructions with numbers of strings (their places, in characters).
 */
struct InstallerParts {
    std::string strings;
    std::string languages; // the table of the first language, after its head
    std::vector<std::vector<uint32_t>> instructions;
    std::string blocks; // as they are in the archive
    uint32_t flags = 4; // no CRC
};

inline std::string Installer(const InstallerParts &parts) {
    constexpr uint32_t kHead = 4 + 8 * 8;
    constexpr std::size_t kWords = 7;
    const auto entries_length = static_cast<uint32_t>(parts.instructions.size() * kWords * 4);
    const auto strings_end = static_cast<uint32_t>(kHead + entries_length + parts.strings.size());
    const auto end = static_cast<uint32_t>(strings_end + 10 + parts.languages.size());
    const uint32_t offsets[8] = {kHead, kHead, kHead, kHead + entries_length, strings_end, end, 0, 0};
    std::string script(4, '\0');
    for (std::size_t i = 0; i < 8; ++i)
        script += Little(offsets[i], 4) + Little(i == 2 ? parts.instructions.size() : i == 1 ? 1 : 0, 4);
    for (std::vector<uint32_t> words : parts.instructions) {
        words.resize(kWords);
        for (const uint32_t word : words)
            script += Little(word, 4);
    }
    script += parts.strings + std::string(10, '\0') + parts.languages;
    const std::string body = Little(script.size(), 4) + script + parts.blocks;
    return Little(parts.flags, 4) + kNullsoft + Little(script.size(), 4) + Little(28 + body.size(), 4) + body;
}

/** The same archive as a solid stream of stored deflate blocks, with the complement of their lengths or without. The
 * first block has 127 bytes: with the complement, the stream begins like the length of a compressed block. */
inline std::string SolidInstaller(const InstallerParts &parts, bool has_complement) {
    constexpr std::size_t kHead = 28;
    std::string archive = Installer(parts);
    const std::string body = archive.substr(kHead);
    std::string stream;
    for (std::size_t place = 0; place < body.size();) {
        const std::size_t length = std::min<std::size_t>(place == 0 ? 127 : 1000, body.size() - place);
        stream += Little(place + length == body.size(), 1) + Little(length, 2);
        stream += (has_complement ? Little(length ^ 0xFFFF, 2) : "") + body.substr(place, length);
        place += length;
    }
    return archive.replace(kHead - 4, std::string::npos, Little(kHead + stream.size(), 4) + stream);
}

// Cabinets and RAR archives: as much of them as their bounds need.

inline std::string Cabinet(uint32_t length, uint16_t flags = 0) {
    std::string head = "MSCF" + Little(0, 4) + Little(length, 4) + Little(0, 4) + Little(44, 4) + Little(0, 4) +
                       Little(0x0103, 2) + Little(1, 2) + Little(1, 2) + Little(flags, 2) + Little(7, 2) + Little(1, 2);
    head.resize(length, 'x');
    return head;
}

/** A block of version 4: its fields after the size, and its data. */
inline std::string Rar4Block(uint8_t type, uint16_t flags, const std::string &fields, const std::string &data = "") {
    const std::string head = Little(type, 1) + Little(flags, 2) + Little(7 + fields.size(), 2) + fields;
    const std::span<const uint8_t> bytes(reinterpret_cast<const uint8_t *>(head.data()), head.size());
    return Little(base::Crc32(bytes), 2) + head + data;
}

/** A file that is stored, with the version that is needed for unpacking it. */
inline std::string Rar4File(const std::string &name, const std::string &bytes, uint8_t version, uint16_t flags = 0) {
    const std::span<const uint8_t> view(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    const bool is_large = (flags & 0x100) != 0;
    const std::string fields = Little(bytes.size(), 4) + Little(bytes.size(), 4) + Little(2, 1) +
                               Little(base::Crc32(view), 4) + Little(0x5B215083, 4) + Little(version, 1) +
                               Little(0x30, 1) + Little(name.size(), 2) + Little(0x20, 4) +
                               (is_large ? Little(0, 8) : "") + name;
    return Rar4Block(0x74, static_cast<uint16_t>(0x8000 | flags), fields, bytes);
}
inline std::string Rar4Main(uint16_t flags = 0) {
    return kRar + Rar4Block(0x73, flags, Little(0, 6));
}
inline const std::string kRar4End = Rar4Block(0x7B, 0x4000, "");

/** A block of version 5: what follows the size of its header, and its data. */
inline std::string Rar5Block(const std::string &header, const std::string &data = "") {
    const std::string sized = Little(header.size(), 1) + header;
    const std::span<const uint8_t> bytes(reinterpret_cast<const uint8_t *>(sized.data()), sized.size());
    return Little(base::Crc32(bytes), 4) + sized + data;
}
inline const std::string kRar5 = Hex("526172211A070100");
inline const std::string kRar5Main = kRar5 + Rar5Block(Hex("01 00 00"));
inline const std::string kRar5End = Rar5Block(Hex("05 00 00"));
/** A file that is stored; `extra` are its records of additional data. */
inline std::string Rar5File(const std::string &name, const std::string &bytes, const std::string &extra = "") {
    return Rar5Block(Little(2, 1) + Little(extra.empty() ? 2 : 3, 1) + (extra.empty() ? "" : Little(extra.size(), 1)) +
                         Little(bytes.size(), 1) + Little(0, 1) + Little(bytes.size(), 1) + Little(0x20, 1) +
                         Little(0, 1) + Little(1, 1) + Little(name.size(), 1) + name + extra,
                     bytes);
}

} // namespace tavrik::tests

#endif
