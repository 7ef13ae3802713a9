/* The Characteristics of a section, under the names that the PE format gives them (IMAGE_SCN_...). */
#ifndef TAVRIK2_PE_SECTION_FLAGS_H
#define TAVRIK2_PE_SECTION_FLAGS_H

#include <cstdint>

namespace tavrik2 {

inline constexpr uint32_t kCntCode = 0x00000020;
inline constexpr uint32_t kCntInitializedData = 0x00000040;
inline constexpr uint32_t kCntUninitializedData = 0x00000080;
inline constexpr uint32_t kMemDiscardable = 0x02000000;
inline constexpr uint32_t kMemExecute = 0x20000000;
inline constexpr uint32_t kMemRead = 0x40000000;
inline constexpr uint32_t kMemWrite = 0x80000000;

/** The access that section flags begin with. */
inline constexpr uint32_t kMemReadExecute = kMemRead | kMemExecute;
inline constexpr uint32_t kMemReadWriteExecute = kMemReadExecute | kMemWrite;

} // namespace tavrik2

#endif
