/* The byte sequences that the locators find, written down independently of the module. */
#ifndef TAVRIK_TESTS_SUPPORT_PAYLOADS_H
#define TAVRIK_TESTS_SUPPORT_PAYLOADS_H

#include <string>
#include <string_view>

namespace tavrik::tests {

/** Bytes from pairs of hexadecimal digits; blanks are skipped. */
inline std::string Hex(std::string_view digits) {
    std::string bytes;
    std::string pair;
    for (const char digit : digits) {
        if (digit != ' ')
            pair += digit;
        if (pair.size() == 2) {
            bytes += static_cast<char>(std::stoi(pair, nullptr, 16));
            pair.clear();
        }
    }
    return bytes;
}

inline const std::string kMarker = Hex("A3484BBE986C4AA9994C530A86D6487D");
inline const std::string kPatternA = Hex("6B43CA52AFAD0000E6FB2578C8E213F9");
inline const std::string kPatternB = Hex("6B43CA52A6AD0000E1BB3A21A529E3EC");

/** Script headers of both generations; an EA06 header's first 16 bytes may be anything. */
inline const std::string kScript5 = kMarker + "AU3!EA05";
inline const std::string kScript6A = std::string(16, '?') + "AU3!EA06" + std::string(16, '?') + kPatternA;
inline const std::string kScript6B = std::string(16, '?') + "AU3!EA06" + std::string(16, '?') + kPatternB;
/** The same after altered bytes: only the tag's end and the pattern count. */
inline const std::string kEA06 = std::string(20, '?') + "EA06" + std::string(16, '?') + kPatternA;

inline const std::string kSignature = kMarker.substr(0, 7) + std::string(9, '?') + "AU3!EA";
inline const std::string kAltMarkers[] = {
    Hex("A3A797E026F90B7DB43B43DFC8821745"), Hex("AEF01A9F55DC4E9CBABA567CF18D0804"),
    Hex("1019EE2FE4CD5456FBF9BDFDE696A70D"), Hex("581000EF395B38C6341BD6A7E1A3C642"),
    Hex("BA42549769D9ED78BAEF79EA049AF72E"), Hex("82A81F9653ED2DCB3A03B66D4478F8B3"),
    Hex("61A3370EBC86768B777130522926C65D")};
inline const std::string kAlteredHeaders[] = {Hex("1BE9A0A0540B958BED64AF2C4E0CF3A0E94F7A3445413036BFE1451AE55DBC16"),
                                              Hex("8947676236C7E8D6D4F220FBA0C191AA6BAA449F45413036AB6D5A8F5EB04F4A"),
                                              Hex("A40FA2285C82C0A513889D018B6F528A849EB34E4541303640E6BC0B759C13DF"),
                                              Hex("C6DF5037FC294E1EA264435BB205E8F9566220C44541303693D3AAF7DA2F8820")};

inline const std::string kNullsoft = Hex("EFBEADDE") + "NullsoftInst";
inline const std::string kRar = Hex("526172211A0700");
inline const std::string kCabinet = Hex("4D534346 00000000");

} // namespace tavrik::tests

#endif
