// Any bytes as a compiled AutoIt script: its bounds, its records and their data.

#include "fuzz/payload_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<uint8_t> file(data, data + size);
    tavrik::base::MemorySource source(file);
    if (const auto extent = tavrik::fuzz::CheckExtent(source, tavrik::scanner::payloads::Format::AutoIt))
        tavrik::fuzz::CheckContents(source, *extent);
    return 0;
}
