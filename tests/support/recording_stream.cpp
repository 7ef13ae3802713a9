#include "tests/support/recording_stream.h"

#include <algorithm>

#include <fmt/format.h>

namespace tavrik::tests {

const FileStreamOperations RecordingStream::kOperations = {
    nullptr,
    [](FileStream *stream, const void *name, uint32_t mode, uint32_t zero) {
        RecordingStream &self = Self(stream);
        self.opened_name_ = name;
        self.Record(zero == 0 ? 'O' : '!', mode);
        return self.open_result_;
    },
    [](FileStream *stream, uint32_t handle, uint32_t offset, uint32_t origin) {
        RecordingStream &self = Self(stream, handle);
        self.Record(origin == SEEK_FROM_START ? 'S' : '!', offset);
        self.position_ = offset + self.IsDue(Fault::SeekElsewhere);
        return self.position_ + self.IsDue(Fault::SeekMisreported);
    },
    [](FileStream *stream, uint32_t handle, void *buffer, uint32_t length) {
        RecordingStream &self = Self(stream, handle);
        self.Record('R', length);
        const auto *bytes = static_cast<const char *>(buffer);
        if (std::any_of(bytes, bytes + length, [](char byte) { return byte != 0; }))
            self.uncleared_.insert(length);
        if (self.IsDue(Fault::Shrinks))
            self.end_ = std::min(self.size(), self.position_);
        else if (self.IsDue(Fault::Grows))
            self.end_ = self.size() + kGrowth;
        const uint32_t end = self.end_.value_or(self.size());
        const uint32_t rest = end - std::min(end, self.position_);
        uint32_t count = std::min(length, rest);
        uint32_t reported = count;
        if (self.fault_.length == 0 || self.fault_.length == length) {
            if (self.IsDue(Fault::ReadShort))
                reported = count = std::min(count, length - 1);
            else if (self.IsDue(Fault::ReadNothing))
                reported = count = 0;
            else if (self.IsDue(Fault::ReadTooMuch))
                reported = length + 1;
        }
        const uint32_t kept = std::min(count, self.size() - std::min(self.size(), self.position_));
        std::copy_n(self.bytes_.begin() + std::min(self.size(), self.position_), kept, static_cast<char *>(buffer));
        std::fill_n(static_cast<char *>(buffer) + kept, count - kept, '\0');
        self.position_ += count;
        return reported;
    },
    nullptr,
    nullptr,
    [](FileStream *stream, uint32_t handle) {
        Self(stream, handle).Record('C');
        return uint32_t{0};
    },
    [](FileStream *stream, uint32_t handle) {
        RecordingStream &self = Self(stream, handle);
        self.Record('T');
        return self.position_ + self.IsDue(Fault::TellElsewhere);
    },
};

RecordingStream::RecordingStream() : FileStream{&kOperations} {}

void RecordingStream::Put(uint32_t offset, std::string_view bytes) {
    if (bytes_.size() < offset + bytes.size())
        bytes_.resize(offset + bytes.size());
    std::copy(bytes.begin(), bytes.end(), bytes_.begin() + offset);
}

void RecordingStream::Restart(uint32_t position, Fault fault) {
    calls_.clear();
    uncleared_.clear();
    position_ = position;
    end_.reset();
    fault_ = fault;
    counted_ = 0;
    has_failed_ = false;
}

std::string RecordingStream::TakeCalls() {
    std::string calls;
    calls.swap(calls_);
    return calls;
}

RecordingStream &RecordingStream::Self(FileStream *stream, uint32_t handle) {
    auto &self = static_cast<RecordingStream &>(*stream);
    if (handle != kHandle)
        self.Record('!', handle);
    return self;
}

void RecordingStream::Record(char call) {
    calls_ += fmt::format("{}{}", calls_.empty() ? "" : " ", call);
}

void RecordingStream::Record(char call, uint32_t number) {
    Record(call);
    calls_ += fmt::format(number < 4096 ? fmt::runtime("{}") : fmt::runtime("0x{:X}"), number);
}

bool RecordingStream::IsDue(Fault::Kind kind) {
    if (kind != fault_.kind || ++counted_ < fault_.nth || (counted_ > fault_.nth && !fault_.lasts))
        return false;
    has_failed_ = true;
    return true;
}

} // namespace tavrik::tests
