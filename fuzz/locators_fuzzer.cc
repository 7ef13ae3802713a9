// All fifty locators, with headers that come close to passing a gate and a stream that may lie: it seeks elsewhere,
// falls short, or claims more than it read. A locator must end, must stay inside its buffers, must leave its result
// alone when it declines, and must report one of the known kinds when it does not.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <string>
#include <vector>

#include "samples/gate_values.h"
#include "tavrik2/locators/locators.h"
#include "tavrik2/tavrik2.h"

namespace {

using tavrik::samples::FieldValues;
using tavrik::samples::GatePath;
using tavrik::samples::HostRecords;

// A file of zeros with two windows of the input's bytes: its headers, and a place for the payload.
struct HostileStream {
    FileStream base = {&kOperations};
    std::vector<uint8_t> headers;
    std::vector<uint8_t> payload;
    uint32_t payload_offset = 0;
    uint32_t size = 0;
    std::string faults; // a character a call, over and over; most of them mean none
    uint32_t position = 0;
    size_t calls = 0;

    static HostileStream &Of(FileStream *stream) { return *static_cast<HostileStream *>(static_cast<void *>(stream)); }

    char NextFault() {
        ++calls;
        return faults.empty() ? '\0' : faults[calls % faults.size()];
    }

    static uint32_t Seek(FileStream *stream, uint32_t, uint32_t offset, uint32_t) {
        HostileStream &self = Of(stream);
        self.position = offset;
        return self.NextFault() == 's' ? offset + 1 : offset;
    }

    static uint32_t Read(FileStream *stream, uint32_t, void *buffer, uint32_t length) {
        HostileStream &self = Of(stream);
        const char fault = self.NextFault();
        const uint32_t left = self.position < self.size ? self.size - self.position : 0;
        uint32_t count = std::min(length, left);
        if (fault == 'r')
            count /= 2;
        std::memset(buffer, 0, count);
        self.CopyWindow(self.headers, 0, buffer, count);
        self.CopyWindow(self.payload, self.payload_offset, buffer, count);
        self.position += count;
        return fault == 'R' ? length + 4096 : count;
    }

    static uint32_t Tell(FileStream *stream, uint32_t) { return Of(stream).position; }

    // Copies what of a window falls into the `count` bytes at the stream's position.
    void CopyWindow(const std::vector<uint8_t> &window, uint64_t offset, void *buffer, uint32_t count) const {
        const uint64_t begin = std::max<uint64_t>(offset, position);
        const uint64_t end = std::min<uint64_t>(offset + window.size(), uint64_t{position} + count);
        if (begin < end)
            std::memcpy(static_cast<uint8_t *>(buffer) + (begin - position), window.data() + (begin - offset),
                        end - begin);
    }

    static constexpr FileStreamOperations kOperations = {nullptr, nullptr, Seek, Read, nullptr, nullptr, nullptr, Tell};
};

const std::vector<GatePath> &PathsOfEntry(uint32_t entry) {
    static const auto paths = [] {
        std::array<std::vector<GatePath>, LOCATOR_COUNT> all;
        for (uint32_t index = 0; index < LOCATOR_COUNT; ++index)
            all[index] = tavrik::samples::PathsOf(tavrik2::GateOf(index));
        return all;
    }();
    return paths[entry];
}

void FillAnyField(HostRecords &records, FuzzedDataProvider &input) {
    const auto field = static_cast<tavrik2::Field>(
        input.ConsumeIntegralInRange<uint32_t>(0, static_cast<uint32_t>(tavrik2::Field::EntryCodeLast)));
    const uint64_t value = input.ConsumeIntegral<uint64_t>();
    const uint32_t width = tavrik::samples::WidthOf(field);
    if (field != tavrik2::Field::Stream)
        tavrik::samples::Fill(records, {{field, width < 8 ? value & ((uint64_t{1} << (8 * width)) - 1) : value}});
}

// Records that pass one path of one gate, but for a field that the input may spoil.
HostRecords MakeRecords(FuzzedDataProvider &input) {
    HostRecords records = {};
    const std::vector<GatePath> &paths = PathsOfEntry(input.ConsumeIntegralInRange<uint32_t>(0, LOCATOR_COUNT - 1));
    records.file_size = input.ConsumeIntegral<int32_t>();
    for (auto count = input.ConsumeIntegralInRange<uint32_t>(0, 8); count > 0; --count)
        FillAnyField(records, input);
    records.first_section.PointerToRawData = input.ConsumeIntegral<uint32_t>();
    records.last_section.PointerToRawData = input.ConsumeIntegral<uint32_t>();
    records.last_section.VirtualAddress = input.ConsumeIntegral<uint32_t>();
    if (!paths.empty()) {
        const GatePath &path = paths[input.ConsumeIntegralInRange<size_t>(0, paths.size() - 1)];
        FieldValues values = path.Pick(
            input.PickValueInArray({GatePath::Choice::Lowest, GatePath::Choice::Middle, GatePath::Choice::Highest}));
        values.erase(tavrik2::Field::Stream);
        tavrik::samples::Fill(records, values);
    }
    if (input.ConsumeBool())
        FillAnyField(records, input);
    return records;
}

bool IsKnownKind(uint32_t kind) {
    return kind == PAYLOAD_NULLSOFT || kind == PAYLOAD_AUTOIT || kind == PAYLOAD_RAR || kind == PAYLOAD_CABINET;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const HostRecords records = MakeRecords(input);

    HostileStream stream;
    // Sizes are kept to a few megabytes, or a walk over zeros would take most of the fuzzer's time.
    stream.size = input.ConsumeIntegralInRange<uint32_t>(0, 0x900000);
    stream.faults = input.ConsumeRandomLengthString(16);
    stream.payload_offset = input.ConsumeIntegralInRange<uint32_t>(0, 0x900000);
    stream.headers = input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange<size_t>(0, 0x400));
    stream.payload = input.ConsumeRemainingBytes<uint8_t>();

    const LocatorTableEntry *table;
    uint32_t count;
    HeurGetLocatorTable(&table, &count);
    for (uint32_t entry = 0; entry < count; ++entry) {
        constexpr uint32_t kUntouched = 0x5A5A5A5A;
        LocatorResult result = {kUntouched, kUntouched, kUntouched};
        stream.position = 0;
        const int matched = table[entry].locator(&stream.base, 7, records.file_size, records.data_dirs,
                                                 &records.file_header, &records.opt_header, &records.first_section,
                                                 &records.last_section, records.entry_code, &result);
        const bool untouched = result.kind == kUntouched && result.offset == kUntouched && result.size == kUntouched;
        if (matched == 0 ? !untouched : matched != 1 || !IsKnownKind(result.kind))
            std::abort();
    }
    return 0;
}
