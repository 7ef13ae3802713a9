#include "engine/failure.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

namespace tavrik::engine {

namespace {

struct StatusWord {
    tavrik_status status;
    const char *word;
};

constexpr StatusWord kWords[] = {
    {TAVRIK_OK, "ok"},
    {TAVRIK_ERROR_ARGUMENT, "argument"},
    {TAVRIK_ERROR_MEMORY, "memory"},
    {TAVRIK_ERROR_INTERNAL, "internal"},
    {TAVRIK_ERROR_FILE, "file"},
    {TAVRIK_ERROR_READ, "read"},
    {TAVRIK_ERROR_TOO_LARGE, "too-large"},
    {TAVRIK_ERROR_TIMEOUT, "timeout"},
    {TAVRIK_ERROR_CANCELLED, "cancelled"},
    {TAVRIK_ERROR_RULES, "rules"},
    {TAVRIK_ERROR_NO_SUCH_RULE, "no-such-rule"},
    {TAVRIK_ERROR_MODULE_MISSING, "module-missing"},
    {TAVRIK_ERROR_MODULE_UNLOADABLE, "module-unloadable"},
    {TAVRIK_ERROR_MODULE_FOREIGN, "module-foreign"},
    {TAVRIK_ERROR_MODULE_PATH, "module-path"},
    {TAVRIK_ERROR_COMPANION_MISSING, "companion-missing"},
    {TAVRIK_ERROR_COMPANION_UNUSABLE, "companion-unusable"},
    {TAVRIK_ERROR_MODULE_INIT, "module-init"},
};

constexpr bool IsContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

} // namespace

tavrik_status StatusOf(base::ErrorCode code) {
    switch (code) {
    case base::ErrorCode::ReadFailed:
        return TAVRIK_ERROR_READ;
    case base::ErrorCode::TooLarge:
        return TAVRIK_ERROR_TOO_LARGE;
    case base::ErrorCode::TimedOut:
        return TAVRIK_ERROR_TIMEOUT;
    case base::ErrorCode::Cancelled:
        return TAVRIK_ERROR_CANCELLED;
    case base::ErrorCode::OutOfMemory:
        return TAVRIK_ERROR_MEMORY;
    case base::ErrorCode::ModuleMissing:
        return TAVRIK_ERROR_MODULE_MISSING;
    case base::ErrorCode::ModuleUnloadable:
        return TAVRIK_ERROR_MODULE_UNLOADABLE;
    case base::ErrorCode::ModuleForeign:
        return TAVRIK_ERROR_MODULE_FOREIGN;
    case base::ErrorCode::ModulePath:
        return TAVRIK_ERROR_MODULE_PATH;
    case base::ErrorCode::CompanionMissing:
        return TAVRIK_ERROR_COMPANION_MISSING;
    case base::ErrorCode::CompanionUnusable:
        return TAVRIK_ERROR_COMPANION_UNUSABLE;
    case base::ErrorCode::ModuleInit:
        return TAVRIK_ERROR_MODULE_INIT;
    default:
        return TAVRIK_ERROR_FILE;
    }
}

tavrik_status Report(tavrik_error *error, tavrik_status status, const char *text) noexcept {
    constexpr std::size_t kHead = offsetof(tavrik_error, text);
    if (error == nullptr || error->size <= kHead)
        return status;
    error->status = status;
    const std::size_t room = std::min<std::size_t>(error->size, sizeof *error) - kHead - 1;
    std::size_t length = std::strlen(text);
    if (length > room)
        for (length = room; length > 0 && IsContinuation(text[length]);)
            --length;
    std::memcpy(error->text, text, length);
    error->text[length] = '\0';
    return status;
}

tavrik_status ReportException(tavrik_error *error) noexcept {
    try {
        throw;
    } catch (const Failure &failure) {
        return Report(error, failure.status(), failure.what());
    } catch (const base::Error &failure) {
        return Report(error, StatusOf(failure.code()), failure.what());
    } catch (const std::bad_alloc &) {
        return Report(error, TAVRIK_ERROR_MEMORY, "not enough memory");
    } catch (const std::exception &fault) {
        return Report(error, TAVRIK_ERROR_INTERNAL, fault.what());
    } catch (...) {
        return Report(error, TAVRIK_ERROR_INTERNAL, "unknown exception");
    }
}

void Require(bool is_there, const char *argument) {
    if (!is_there)
        throw Failure(TAVRIK_ERROR_ARGUMENT, std::string(argument) + " is missing or of a wrong size");
}

} // namespace tavrik::engine

extern "C" const char *tavrik_status_name(int32_t status) {
    for (const tavrik::engine::StatusWord &word : tavrik::engine::kWords)
        if (word.status == status)
            return word.word;
    return "unknown";
}

extern "C" uint32_t tavrik_version(void) {
    return TAVRIK_VERSION_NUMBER;
}

extern "C" const char *tavrik_version_text(void) {
    return TAVRIK_VERSION;
}
