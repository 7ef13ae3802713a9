// disasm.hbx, reduced to its entry points: it decodes nothing. The engine's modules require it to be there and look the
// five entry points up, but do not call them. Every entry point may be called with any arguments, which it leaves
// alone, and returns kNothingDecoded.
#include "tavrik2/abi.h"

namespace {

constexpr uint32_t kNothingDecoded = 0;

} // namespace

TAVRIK_EXTERN_C_BEGIN

TAVRIK_API uint32_t GetOffsetsFromBufferEx() {
    return kNothingDecoded;
}
TAVRIK_API uint32_t GetOffsetsFromBufferExUdi() {
    return kNothingDecoded;
}
TAVRIK_API uint32_t GetUdiInstructionsEx() {
    return kNothingDecoded;
}
TAVRIK_API uint32_t GetMSILDecodedInstructions() {
    return kNothingDecoded;
}
TAVRIK_API uint32_t GetPCODEDecodedInstructions() {
    return kNothingDecoded;
}

TAVRIK_EXTERN_C_END
