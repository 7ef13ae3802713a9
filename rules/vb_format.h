/* The structures of Visual Basic 5 and 6 programs that rules ask about; fields.cpp has their fields. */
#ifndef TAVRIK_RULES_VB_FORMAT_H
#define TAVRIK_RULES_VB_FORMAT_H

#include <cstdint>

namespace tavrik::rules::vb {

inline constexpr uint32_t kSignature = 0x21354256; // "VB5!", the first field of the project header

/** Sizes in bytes, up to the last field that rules can ask for. */
inline constexpr uint32_t kHeaderSize = 0x68;
inline constexpr uint32_t kProjectSize = 0x23C;
inline constexpr uint32_t kObjectTableSize = 0x54;
inline constexpr uint32_t kComDataSize = 0x2A;
inline constexpr uint32_t kProject2Size = 0x28;
inline constexpr uint32_t kFormSize = 0x50;
inline constexpr uint32_t kExternalSize = 8; // of one external reference
inline constexpr uint32_t kObjectSize = 48;
inline constexpr uint32_t kObjectInfoSize = 56;
inline constexpr uint32_t kOptionalInfoSize = 0x34; // follows the object information

inline constexpr uint32_t kHasOptionalInfo = 2; // bit of ObjectType

} // namespace tavrik::rules::vb

#endif
