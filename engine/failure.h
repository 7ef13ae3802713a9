/* From exceptions to the codes and texts of the C interface. */
#ifndef TAVRIK_ENGINE_FAILURE_H
#define TAVRIK_ENGINE_FAILURE_H

#include <stdexcept>
#include <string>

#include "base/error.h"
#include "tavrik/tavrik.h"

namespace tavrik::engine {

/** A failure with its code. The text is one line without a full stop. */
class Failure : public std::runtime_error {
public:
    Failure(tavrik_status status, const std::string &text) : std::runtime_error(text), status_(status) {}

    tavrik_status status() const { return status_; }

private:
    tavrik_status status_;
};

/** The code of the C interface for a failure of that kind to open or read a file, or to load a module. */
tavrik_status StatusOf(base::ErrorCode code);

/** Fills `error`, if not null, as far as its size goes, and returns `status`. Texts are cut between characters. */
tavrik_status Report(tavrik_error *error, tavrik_status status, const char *text) noexcept;

/** Reports the exception that is being handled. */
tavrik_status ReportException(tavrik_error *error) noexcept;

/** Calls `body` so that no exception leaves; the result is its status, and `error` is filled. */
template <typename Body>
tavrik_status Guard(tavrik_error *error, Body body) noexcept {
    try {
        body();
        return Report(error, TAVRIK_OK, "");
    } catch (...) {
        return ReportException(error);
    }
}

/** Throws the Failure for an argument that must not be null. */
void Require(bool is_there, const char *argument);

} // namespace tavrik::engine

#endif
