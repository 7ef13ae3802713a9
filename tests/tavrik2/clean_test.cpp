// The clean decision.
#include <gtest/gtest.h>

#include "tavrik2/heur_clean.h"
#include "tests/support/recording_stream.h"

namespace tavrik::tests {
namespace {

constexpr char kOpens[] = "O0x8002 C";

TEST(Clean, EveryRuleAndCodeHasItsAction) {
    constexpr uint32_t kUntouched = 0x1234;
    constexpr uint32_t kClosed = FILE_NOT_OPENED;
    const struct {
        uint32_t rule;
        uint32_t code;
        uint32_t open_result;
        uint32_t answer;
        uint32_t action;
        const char *calls;
    } cases[] = {
        {147, 7422, kHandle, 1, 4021, kOpens},
        {173, 7422, kHandle, 1, 4021, kOpens},
        {175, 7422, kHandle, 1, 4024, kOpens},
        {175, 1, kHandle, 1, 4024, kOpens}, // whatever the code
        {147, 7421, kHandle, 0, 0xFFFFFFFF, kOpens},
        {173, 0, kHandle, 0, 0xFFFFFFFF, kOpens},
        {147, 7422, kClosed, 0, 4003, "O0x8002"},
        {173, 1, kClosed, 0, 4003, "O0x8002"},
        {175, 7422, kClosed, 0, 4003, "O0x8002"},
        {146, 7422, kHandle, 0, kUntouched, ""},
        {174, 7422, kClosed, 0, kUntouched, ""},
        {0, 7422, kHandle, 0, kUntouched, ""},
        // Equal in their low halves only.
        {0x10000 + 147, 7422, kHandle, 0, kUntouched, ""},
        {147, 0x10000 + 7422, kHandle, 0, 0xFFFFFFFF, kOpens},
    };
    for (const auto &test : cases) {
        RecordingStream stream;
        stream.set_open_result(test.open_result);
        CleanContext context = {};
        context.stream = &stream;
        uint32_t action = kUntouched;
        const char name[] = "name";
        EXPECT_EQ(HeurClean(name, &context, nullptr, nullptr, test.code, 0, test.rule, &action, nullptr), test.answer);
        EXPECT_EQ(action, test.action) << test.rule << " " << test.code;
        EXPECT_EQ(stream.TakeCalls(), test.calls) << test.rule << " " << test.code;
        EXPECT_EQ(stream.opened_name(), *test.calls == '\0' ? nullptr : name);
    }
}

} // namespace
} // namespace tavrik::tests
