// Any bytes as the archive of a Nullsoft installer: its bounds, its script and its files.

#include "fuzz/payload_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<uint8_t> file(data, data + size);
    tavrik::base::MemorySource source(file);
    if (const auto extent = tavrik::fuzz::CheckExtent(source, tavrik::scanner::payloads::Format::Nsis))
        tavrik::fuzz::CheckContents(source, *extent);
    return 0;
}
