#include "tavrik2/heur_clean.h"

namespace tavrik2 {
namespace {

// The cleanable rules, by their identifiers in the rule table.
constexpr uint32_t kLolydaRule = 147;       // TrojanPWS.Lolyda.AT5
constexpr uint32_t kAutorunRule = 173;      // Worm.Autorun.LD4
constexpr uint32_t kVbDownloaderRule = 175; // TrojanDownloader.VB.ac3

constexpr uint32_t kCleanableCode = 7422;

bool IsCleanable(uint32_t rule_id) {
    return rule_id == kLolydaRule || rule_id == kAutorunRule || rule_id == kVbDownloaderRule;
}

bool CanBeOpened(FileStream *stream, const void *file_name) {
    const uint32_t handle = stream->operations->Open(stream, file_name, OPEN_FOR_CLEANING, 0);
    if (handle == FILE_NOT_OPENED)
        return false;
    stream->operations->Close(stream, handle);
    return true;
}

} // namespace
} // namespace tavrik2

extern "C" uint32_t HeurClean(const void *file_name, const CleanContext *context, const void *, const void *,
                              uint32_t code, uint32_t, uint32_t rule_id, uint32_t *action, const void *) {
    if (!tavrik2::IsCleanable(rule_id))
        return 0;
    *action = CLEAN_ACTION_NONE;
    if (!tavrik2::CanBeOpened(context->stream, file_name)) {
        *action = CLEAN_ACTION_CANNOT_OPEN;
        return 0;
    }
    if (rule_id == tavrik2::kVbDownloaderRule) {
        *action = CLEAN_ACTION_4024;
        return 1;
    }
    if (code != tavrik2::kCleanableCode)
        return 0;
    *action = CLEAN_ACTION_4021;
    return 1;
}
