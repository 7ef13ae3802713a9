// Any bytes as an archive, and as the contents of a cabinet or a RAR archive: their members.

#include "fuzz/payload_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace tavrik;
    const std::vector<uint8_t> file(data, data + size);
    base::MemorySource source(file);
    if (const auto archive = scanner::payloads::OpenArchive(source))
        fuzz::CheckMembers(*archive, false);
    for (const auto format : {scanner::payloads::Format::Cabinet, scanner::payloads::Format::Rar})
        if (const auto extent = fuzz::CheckExtent(source, format))
            fuzz::CheckContents(source, *extent);
    return 0;
}
