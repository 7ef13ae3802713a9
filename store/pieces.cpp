#include "store/pieces.h"

#include <memory>
#include <new>
#include <zstd.h>

#include <fmt/format.h>

namespace tavrik::store {

namespace {

// Higher levels save few bytes for much time.
constexpr int kLevel = 3;

struct FreeContexts {
    void operator()(ZSTD_CCtx *context) const { ZSTD_freeCCtx(context); }
    void operator()(ZSTD_DCtx *context) const { ZSTD_freeDCtx(context); }
};

} // namespace

void PutNumber(std::string &to, uint64_t number) {
    for (; number >= 0x80; number >>= 7)
        to += static_cast<char>(number | 0x80);
    to += static_cast<char>(number);
}

uint64_t PieceReader::Number() {
    uint64_t number = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
        const uint8_t byte = Byte();
        number |= static_cast<uint64_t>(byte & 0x7F) << shift;
        if (byte < 0x80)
            return number;
    }
    throw Damaged("a number is too long");
}

uint64_t PieceReader::NumberUpTo(uint64_t most) {
    const uint64_t number = Number();
    if (number > most)
        throw Damaged(fmt::format("a number is {}, above {}", number, most));
    return number;
}

std::span<const uint8_t> PieceReader::Take(uint64_t length) {
    if (length > bytes_.size())
        throw Damaged("a piece ends early");
    const auto taken = bytes_.first(static_cast<std::size_t>(length));
    bytes_ = bytes_.subspan(static_cast<std::size_t>(length));
    return taken;
}

std::string Compress(std::string_view bytes) {
    static thread_local const std::unique_ptr<ZSTD_CCtx, FreeContexts> kContext(ZSTD_createCCtx());
    if (!kContext)
        throw std::bad_alloc();
    ZSTD_CCtx_setParameter(kContext.get(), ZSTD_c_compressionLevel, kLevel);
    ZSTD_CCtx_setParameter(kContext.get(), ZSTD_c_checksumFlag, 1);
    std::string frame(ZSTD_compressBound(bytes.size()), '\0');
    const std::size_t size = ZSTD_compress2(kContext.get(), frame.data(), frame.size(), bytes.data(), bytes.size());
    if (ZSTD_isError(size) != 0)
        throw std::bad_alloc(); // the only failure that a large enough buffer leaves
    frame.resize(size);
    return frame;
}

std::vector<uint8_t> Decompress(std::span<const uint8_t> frame, std::size_t most) {
    static thread_local const std::unique_ptr<ZSTD_DCtx, FreeContexts> kContext(ZSTD_createDCtx());
    if (!kContext)
        throw std::bad_alloc();
    const unsigned long long size = ZSTD_getFrameContentSize(frame.data(), frame.size());
    if (size == ZSTD_CONTENTSIZE_ERROR || size == ZSTD_CONTENTSIZE_UNKNOWN || size > most)
        throw Damaged("a piece has no size that it may have");
    std::vector<uint8_t> bytes(static_cast<std::size_t>(size));
    const std::size_t done =
        ZSTD_decompressDCtx(kContext.get(), bytes.data(), bytes.size(), frame.data(), frame.size());
    if (ZSTD_isError(done) != 0 || done != bytes.size())
        throw Damaged(fmt::format("a piece cannot be unpacked: {}", ZSTD_getErrorName(done)));
    return bytes;
}

} // namespace tavrik::store
