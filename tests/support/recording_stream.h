/* A FileStream over bytes in memory that writes down every call, so that a test can state a whole call sequence in a
 * line, and that fails where it is told to. */
#ifndef TAVRIK_TESTS_SUPPORT_RECORDING_STREAM_H
#define TAVRIK_TESTS_SUPPORT_RECORDING_STREAM_H

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "tavrik2/file_stream.h"

namespace tavrik::tests {

/** The handle that every call must carry. */
inline constexpr uint32_t kHandle = 77;

/** What goes wrong, and at which call of its kind (counted from 1). A misreported seek goes where it should, and only
 * says otherwise. A file that shrinks ends where it is read next, and one that grows goes on with kGrowth zeros. */
struct Fault {
    enum Kind {
        None,
        SeekElsewhere,
        ReadShort,
        ReadNothing,
        ReadTooMuch,
        SeekMisreported,
        TellElsewhere,
        Shrinks,
        Grows
    } kind = None;
    uint32_t nth = 0;
    uint32_t length = 0; // when not 0, only reads of this many bytes count
    bool lasts = false;  // all calls after it go wrong as well
};

inline constexpr uint32_t kGrowth = 0x10000;

/** The faults that every locator meets in turn. */
inline constexpr Fault::Kind kFaultKinds[] = {Fault::SeekElsewhere, Fault::ReadShort,     Fault::ReadNothing,
                                              Fault::ReadTooMuch,   Fault::TellElsewhere, Fault::Shrinks,
                                              Fault::Grows};

/** Calls are recorded as "T" (Tell), "S12" (Seek to 12), "R64" (Read 64 bytes), "O32770" (Open with that mode) and "C"
 * (Close), numbers from 4096 on in hexadecimal: "T S0 R64 S0x1200". Whatever breaks the contract (another handle,
 * origin or slot) is recorded with an exclamation mark. */
class RecordingStream : public FileStream {
public:
    RecordingStream();
    RecordingStream(const RecordingStream &) = delete;
    RecordingStream &operator=(const RecordingStream &) = delete;

    /** Writes bytes at an offset; the file grows with zeros as needed. */
    void Put(uint32_t offset, std::string_view bytes);
    /** Cuts or grows (with zeros) the file. */
    void Resize(uint32_t size) { bytes_.resize(size); }
    uint32_t size() const { return static_cast<uint32_t>(bytes_.size()); }

    /** Forgets the calls and faults so far and moves to `position`. */
    void Restart(uint32_t position = 0, Fault fault = {});
    /** The calls so far, and forgets them. */
    std::string TakeCalls();
    bool WasCalled() const { return !calls_.empty(); }
    /** True unless a buffer of that length held anything but zeros when it was to be read into. */
    bool WasCleared(uint32_t length) const { return !uncleared_.contains(length); }
    uint32_t position() const { return position_; }
    /** True once the fault has happened. */
    bool HasFailed() const { return has_failed_; }
    /** What Open returns. */
    void set_open_result(uint32_t handle) { open_result_ = handle; }
    /** The name that the last Open was given. */
    const void *opened_name() const { return opened_name_; }

private:
    static const FileStreamOperations kOperations;

    static RecordingStream &Self(FileStream *stream, uint32_t handle = kHandle);
    void Record(char call);
    void Record(char call, uint32_t number);
    bool IsDue(Fault::Kind kind);

    std::string bytes_;
    std::string calls_;
    uint32_t position_ = 0;
    std::optional<uint32_t> end_; // where reads end, when a fault has moved it
    Fault fault_;
    uint32_t counted_ = 0;
    std::set<uint32_t> uncleared_;
    bool has_failed_ = false;
    uint32_t open_result_ = kHandle;
    const void *opened_name_ = nullptr;
};

/** A little-endian integer as the bytes of a file. */
template <typename Integer>
std::string Bytes(Integer value) {
    return std::string(reinterpret_cast<const char *>(&value), sizeof value);
}

/** A byte array of the module as the bytes of a file. */
template <size_t Size>
std::string Bytes(const uint8_t (&array)[Size]) {
    return std::string(reinterpret_cast<const char *>(array), Size);
}

} // namespace tavrik::tests

#endif
