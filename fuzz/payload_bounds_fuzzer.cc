// Any bytes as a cabinet or a RAR archive: their bounds.

#include "fuzz/payload_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::vector<uint8_t> file(data, data + size);
    tavrik::base::MemorySource source(file);
    tavrik::fuzz::CheckExtent(source, tavrik::scanner::payloads::Format::Cabinet);
    tavrik::fuzz::CheckExtent(source, tavrik::scanner::payloads::Format::Rar);
    return 0;
}
