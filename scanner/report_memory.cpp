#include "scanner/report_memory.h"

namespace tavrik::scanner {

namespace {

std::size_t MemoryOf(const NearMiss &miss) {
    std::size_t bytes = sizeof miss;
    for (const MissedEntry &missed : miss.entries) {
        bytes += sizeof missed;
        for (const FailedCondition &condition : missed.failed)
            bytes += sizeof condition + condition.field.size() + condition.value.size() + condition.wanted.size();
    }
    return bytes;
}

} // namespace

std::size_t OwnMemory(const FileReport &report) {
    std::size_t bytes = sizeof report + report.error.size() + report.sha256.size();
    bytes += sizeof(std::filesystem::path::value_type) *
             (report.file.native().size() + (report.parent ? report.parent->native().size() : 0));
    for (const Note &note : report.notes)
        bytes += sizeof note + note.text.size();
    for (const Detection &detection : report.detections)
        bytes += sizeof detection + detection.name.size();
    bytes += report.findings.size() * sizeof(Finding);
    for (const Payload &payload : report.payloads)
        bytes += sizeof payload + payload.sha256.size() + payload.entries.size() * sizeof(uint32_t) +
                 (payload.extent ? payload.extent->description.size() : 0);
    if (report.near)
        for (const NearMiss &miss : *report.near)
            bytes += MemoryOf(miss);
    return bytes + report.read.size() * sizeof(base::Region);
}

std::size_t MemoryOf(const FileReport &report) {
    std::size_t bytes = 0;
    report.ForEach([&bytes](const FileReport &each) { bytes += OwnMemory(each); });
    return bytes;
}

} // namespace tavrik::scanner
