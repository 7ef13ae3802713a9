#include "scanner/payloads/lzma.h"

#include <array>
#include <utility>

#ifdef TAVRIK_HAS_LZMA
#include <lzma.h>
#endif

namespace tavrik::scanner::payloads {

#ifdef TAVRIK_HAS_LZMA

namespace {

constexpr std::size_t kPropertiesLength = 5;

class LzmaDecoder final : public Decoder {
public:
    LzmaDecoder(Input input, bool has_filter_byte) : input_(std::move(input)) {
        uint8_t filter = 0;
        std::array<uint8_t, kPropertiesLength> properties;
        if ((has_filter_byte && input_.Read(&filter, 1) != 1) ||
            input_.Read(properties.data(), properties.size()) != properties.size()) {
            error_ = kEndsEarly;
            return;
        }
        Start(properties, filter != 0);
    }
    ~LzmaDecoder() override { lzma_end(&stream_); }
    LzmaDecoder(const LzmaDecoder &) = delete;
    LzmaDecoder &operator=(const LzmaDecoder &) = delete;

    std::size_t Read(void *buffer, std::size_t length) override {
        stream_.next_out = static_cast<uint8_t *>(buffer);
        stream_.avail_out = length;
        while (stream_.avail_out != 0 && error_.empty() && !has_ended_) {
            const std::span<const uint8_t> next = input_.Peek();
            stream_.next_in = next.data();
            stream_.avail_in = next.size();
            const std::size_t room = stream_.avail_out;
            const lzma_ret result = lzma_code(&stream_, next.empty() ? LZMA_FINISH : LZMA_RUN);
            input_.Skip(next.size() - stream_.avail_in);
            has_ended_ = result == LZMA_STREAM_END;
            if (result == LZMA_BUF_ERROR || (result == LZMA_OK && next.empty() && stream_.avail_out == room))
                error_ = kEndsEarly;
            else if (result != LZMA_OK && result != LZMA_STREAM_END)
                error_ = result == LZMA_MEM_ERROR ? "not enough memory for its dictionary" : kIsDamaged;
        }
        return length - stream_.avail_out;
    }
    const std::string &error() const override { return error_; }

private:
    void Start(const std::array<uint8_t, kPropertiesLength> &properties, bool is_filtered) {
        lzma_options_lzma options = {};
        uint32_t packed = properties[0];
        options.lc = packed % 9;
        packed /= 9;
        options.lp = packed % 5;
        options.pb = packed / 5;
        for (std::size_t i = 0; i < 4; ++i)
            options.dict_size |= uint32_t{properties[1 + i]} << 8 * i;
        if (options.dict_size > kLargestDictionary) {
            error_ = "its LZMA dictionary is larger than 128 MiB; 7z x opens it";
            return;
        }
        lzma_filter filters[3] = {};
        lzma_filter *next = filters;
        if (is_filtered)
            (next++)->id = LZMA_FILTER_X86;
        *next++ = {LZMA_FILTER_LZMA1, &options};
        next->id = LZMA_VLI_UNKNOWN;
        if (lzma_raw_decoder(&stream_, filters) != LZMA_OK)
            error_ = kIsDamaged;
    }

    Input input_;
    lzma_stream stream_ = LZMA_STREAM_INIT;
    bool has_ended_ = false;
    std::string error_;
};

} // namespace

std::unique_ptr<Decoder> MakeLzmaDecoder(Input input, bool has_filter_byte) {
    return std::make_unique<LzmaDecoder>(std::move(input), has_filter_byte);
}

#else

namespace {

class NoLzmaDecoder final : public Decoder {
public:
    std::size_t Read(void *, std::size_t) override { return 0; }
    const std::string &error() const override { return error_; }

private:
    std::string error_ = "this build reads no LZMA; 7z x opens it";
};

} // namespace

std::unique_ptr<Decoder> MakeLzmaDecoder(Input, bool) {
    return std::make_unique<NoLzmaDecoder>();
}

#endif

} // namespace tavrik::scanner::payloads
