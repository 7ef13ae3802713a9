/* LZMA streams without a length, as Nullsoft installers have them. */
#ifndef TAVRIK_SCANNER_PAYLOADS_LZMA_H
#define TAVRIK_SCANNER_PAYLOADS_LZMA_H

#include <memory>

#include "scanner/payloads/decoder.h"

namespace tavrik::scanner::payloads {

/** Whether this build reads LZMA. */
#ifdef TAVRIK_HAS_LZMA
inline constexpr bool kReadsLzma = true;
#else
inline constexpr bool kReadsLzma = false;
#endif

/** The largest dictionary that is allocated, in bytes; the installer's own compressor uses 8 MiB unless told otherwise.
 */
inline constexpr uint32_t kLargestDictionary = 128u << 20;

/** A stream that begins with five bytes of properties or, with `has_filter_byte`, with one before them that is 1 when
 * the data went through a filter for x86 code. Never null: without the library, the decoder has an error and no bytes.
 */
std::unique_ptr<Decoder> MakeLzmaDecoder(Input input, bool has_filter_byte);

} // namespace tavrik::scanner::payloads

#endif
