/* Files that pass a gate, and the places of payloads in them.
 *
 * One layout serves all: section i has 4096 bytes of raw data at 0x1000 * (i + 1), one after the other, and begins at
 * the address 0x10000 * (i + 4). Section 4, ".rsrc", reaches far beyond its raw data, so that its addresses from
 * 0x80000 on are in the file from 0x5000 on; its resource directory is at its start. */
#ifndef TAVRIK_TESTS_SUPPORT_LOCATOR_SCENES_H
#define TAVRIK_TESTS_SUPPORT_LOCATOR_SCENES_H

#include <algorithm>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string_view>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "samples/gate_values.h"
#include "tavrik2/locators/locators.h"
#include "tests/support/golden.h"
#include "tests/support/payloads.h"
#include "tests/support/resource_tree.h"

namespace tavrik::tests {

using namespace tavrik2;
using samples::FieldValues;
using enum tavrik2::Field;

inline constexpr uint32_t kResources = 0x5000; // file offset of section 4
inline constexpr uint32_t kResourceRva = 0x80000;
inline constexpr uint32_t kPayloadRva = 0x81800; // the file offset 0x6800
inline constexpr uint32_t kLastPointer = 0x6000;
inline constexpr uint32_t kFirstPointer = 0x800; // of the host's record; in the file it is 0x1000

// A file that passes an entry's gate on the first path that allows the wanted values.
struct Scene {
    uint32_t entry;
    samples::HostRecords records = {};
    PeFile file;
    RecordingStream stream;
    ResourceTree tree{stream, kResources};
    // Of the resource that the entry takes: RVA and size.
    uint32_t resources = 0; // how many there are
    std::pair<uint32_t, uint32_t> resource = {};

    explicit Scene(uint32_t entry_number, const FieldValues &wanted = {}) : entry(entry_number) {
        FieldValues values;
        const std::vector<GateRow> gate = GoldenGate(entry);
        for (const samples::GatePath &path : samples::PathsOf({gate.data(), static_cast<uint32_t>(gate.size())})) {
            if (path.Accepts(wanted)) {
                values = path.Pick(samples::GatePath::Choice::Lowest, wanted);
                break;
            }
        }
        EXPECT_FALSE(values.empty() && entry != 27) << "no path of entry " << entry << " allows these values";
        records.first_section.PointerToRawData = kFirstPointer;
        records.last_section.PointerToRawData = kLastPointer;
        records.last_section.SizeOfRawData = 0x1000;
        records.last_section.VirtualAddress = kResourceRva;
        records.data_dirs[4] = kResourceRva;
        Fill(records, values);
        const char *names[] = {".text", ".rdata", ".data", ".idata", ".rsrc", ".reloc", ".rrdata"};
        for (uint32_t index = 0; index < 7; ++index)
            file.sections.push_back(Section(names[index], 0x10000 * (index + 4), 0x1000, 0x1000 * (index + 1), 0x1000));
        file.sections[4].VirtualSize = 0x80000;
        file.sections[5].VirtualAddress = 0x200000;
        file.sections[6].VirtualAddress = 0x300000;
    }

    /** Writes the headers; a file without a size of its own ends `rest` bytes after what was put into it. */
    void Finish(uint32_t rest) {
        file.PutInto(stream);
        stream.Resize(std::max(stream.size() + rest, static_cast<uint32_t>(records.file_size)));
        records.file_size = static_cast<int32_t>(stream.size());
    }

    /** One resource of a type: its data entry says (rva, size). More may follow. */
    void Resource(uint32_t type, std::initializer_list<std::pair<uint32_t, uint32_t>> data) {
        tree.Directory(0, {{3, kSub | 0x700}, {type, kSub | 0x40}});
        uint32_t index = 0;
        for (const auto &[rva, size] : data) {
            tree.Directory(0x40, {{1, 0x100}, {2, 0x110}, {3, 0x120}});
            tree.Data(0x100 + 0x10 * index++, rva, size);
            if (rva == kPayloadRva)
                resource = {rva, size};
        }
        tree.Count(0x40, 0, static_cast<uint16_t>(index));
        resources = index;
    }

    int Call(LocatorResult *result, Fault fault = {}) {
        stream.Restart(0, fault);
        return CallWith(&stream, result);
    }

    int CallWith(FileStream *any_stream, LocatorResult *result) {
        const LocatorTableEntry *table = nullptr;
        uint32_t count = 0;
        HeurGetLocatorTable(&table, &count);
        return table[entry].locator(any_stream, kHandle, records.file_size, records.data_dirs, &records.file_header,
                                    &records.opt_header, &records.first_section, &records.last_section,
                                    records.entry_code, result);
    }
};

// What a locator reports of a payload besides its offset.
struct Payload {
    std::string bytes;
    uint32_t kind;
    uint32_t size;
};

// A payload at a place, and what makes the entry look there.
struct Find {
    uint32_t entry;
    const char *what;
    uint32_t offset;
    Payload payload;
    FieldValues wanted = {};
    std::function<void(Scene &)> prepare = [](Scene &) {};
    uint32_t rest = 0x7000; // bytes of the file after the payload
};

// A resource whose data begins at 0x6800 of the file.
inline std::function<void(Scene &)> WithResource(uint32_t type, uint32_t size) {
    return [=](Scene &scene) { scene.Resource(type, {{kPayloadRva, size}}); };
}

// The same with a manifest whose text ends with its block.
inline std::function<void(Scene &)> WithManifest(const char *text, uint32_t size, int32_t file_size = 0) {
    return [=](Scene &scene) {
        scene.Resource(24, {{kPayloadRva, size}});
        scene.stream.Put(0x6800 + 24576 - static_cast<uint32_t>(std::strlen(text)), text);
        scene.records.file_size = file_size;
    };
}

inline std::function<void(Scene &)> WithSection(size_t index, const SectionHeader &section) {
    return [=](Scene &scene) { scene.file.sections[index] = section; };
}

inline std::function<void(Scene &)> Entry25(int32_t file_size) {
    return WithManifest("level=\"requireAdministrator\"", 0x10, file_size);
}

inline std::function<void(Scene &)> Entry26() {
    return WithManifest("name=\"AutoIt3\"", 0x7800);
}

inline const Payload kWord = {kMarker.substr(0, 4), 82, 256};
inline const Payload kWhole = {kMarker, 82, 256};
inline const Payload kEntry0 = {kMarker.substr(0, 8) + Hex("8229927682851965"), 82, 256};
inline const Payload kEntry5 = {Hex("38711328951258716323475232128379"), 82, 256};
inline const Payload kOtherWord = {Hex("C6DF5037"), 82, 256};
inline const Payload kSigned = {kSignature, 82, 4096};
inline const Payload k5 = {kScript5, 82, 4096};
inline const Payload k6A = {kScript6A, 82, 4096};
inline const Payload k6B = {kScript6B, 82, 4096};
inline const Payload kTagged = {kEA06, 82, 4096};
inline const Payload kAltered = {kAlteredHeaders[3], 82, 4096};
inline const Payload kInstaller = {kNullsoft, 81, 256};
inline const Payload kWords = {kNullsoft.substr(0, 12), 81, 256};
inline const Payload kArchive = {kRar, 111, 4096};
inline const Payload kCab = {kCabinet, 113, 4096};

// clang-format off
inline const Find kFinds[] = {
    {0, "section 3's end", 0x5000, kEntry0},
    {1, "first section", kFirstPointer, kSigned},
    {2, "fixed start", 0x40000, kSigned},
    {3, "fixed start", 0xC0000, kSigned},
    {4, "second block", kLastPointer + 0x1000, kSigned},
    {5, "fixed offset", 0xA7C1F, kEntry5},
    {6, "3 sections", 0x56000, kSigned, {{NumberOfSections, 3}}},
    {6, "5 sections", 0xC0000, kSigned, {{NumberOfSections, 5}}},
    {6, "8 sections", 0xB0000, kSigned, {{NumberOfSections, 8}}},
    {6, "12 sections", 0xC0000, kSigned, {{NumberOfSections, 12}}},
    {7, "after section 4", 0x6004, kWords},
    {8, "adjoining", 0x15004, kWords},
    {8, "apart", kLastPointer + 0x22404, kWords, {}, WithSection(5, Section(".reloc", 0, 0, 0x6200, 0x200))},
    {8, "by characteristics", 0x15004, kWords, {}, WithSection(4, Section("other", 0, 0, 0x5000, 0x1000, 0xC0000040))},
    {8, "section 4 ends at 1", kLastPointer + 0x22404, kWords, {}, WithSection(4, Section(".rsrc", 0, 0, 0, 1))},
    {8, "section 4 ends last", kLastPointer + 0x22404, kWords, {}, [](Scene &s) {
         s.records.file_size = 0x40000;
         s.file.sections[4] = Section(".rsrc", 0, 0, 0, 0x3FFFF); }},
    {9, "before the end", 0x64, kWords, {{FileSize, 0x133600}}, [](Scene &) {}, 0},
    {10, "last section", kLastPointer + 0xA04, kWords},
    {11, "last section", kLastPointer + 0x3500 + 8176, kInstaller},
    {12, "first offset", 0xF2000, kWord},
    {12, "second offset", 0xFF200, kWord},
    {12, "third offset, short block", 0x1CD200, kWord, {}, [](Scene &) {}, 0},
    {13, "resources", kResources + 0x3FF8, kWhole},
    {14, "fixed start", 0x49800 + 0x9000, kWhole},
    {15, "section 0", 0x1000 + 0x34000, kWhole, {}, WithSection(0, Section(".text", 0x40000, 0x65000, 0x1000, 0x33F31))},
    {16, "fixed start", 0x400, kSigned},
    {17, "fixed start", 0xBB000, kSigned},
    {18, "fixed start", 0xA0000, kSigned},
    {19, "fixed start", 0x6C7000, kSigned},
    {20, "fixed start", 0x40000, kSigned},
    {21, "fixed start", 0x5B000, kSigned},
    {22, "last section", kLastPointer + 0x35000, kSigned},
    {22, "seven sections", 0x7E000 + 0x3B000, kSigned, {{NumberOfSections, 7}},
     WithSection(6, Section(".rrdata", 0x300000, 0, 0x7E000, 0xF500))},
    {23, "first candidate", kResources + 0x14A00, kWord},
    {23, "second candidate", kResources + 0x5CA00, kWord},
    {24, "section 0", 0x1000, kSigned},
    {25, "small file", 0x6810 + 0x16B000 + 24571, kWord, {}, Entry25(0x3F0000), 0},
    {25, "middle file, lower end", 0x6810 + 0x5F000, kWord, {}, Entry25(0x3F0001), 0},
    {25, "middle file, upper end", 0x6810 + 0x5F000, kWord, {}, Entry25(0x40FFFF), 0},
    {25, "larger file", 0x6810 + 0x16B000, kWord, {}, Entry25(0x4FFFFF), 0},
    {25, "large file", 0x6810 + 0x26000, kWord, {}, Entry25(0x1800001), 0},
    {26, "after the manifest", 0xE000, kWord, {}, Entry26()},
    {26, "short block", 0xE000 + 100, kWord, {}, Entry26(), 1},
    {26, "second block", 0xE000 + 0x5B000 + 7, kWord, {}, Entry26()},
    {28, "last row", kLastPointer + 0x35000, kWord, {{SizeOfCode, 0x65200}, {SizeOfInitializedData, 0x2FE00}}},
    {28, "altered marker", kLastPointer + 0x35000, kOtherWord, {{SizeOfCode, 0x65200}, {SizeOfInitializedData, 0x2FE00}}},
    {28, "hidden resource directory", kResources + 0x9600, kWord,
     {{SizeOfCode, 0x38000}, {SizeOfInitializedData, 0x6000}, {NumberOfRvaAndSizes, 0x90000010}, {ResourceVirtualAddress, 1}}},
    {29, "a row", kLastPointer + 0x9DC00, kWord,
     {{SizeOfCode, 0x5E200}, {SizeOfInitializedData, 0x22A00}, {ResourceVirtualAddress, 0x8F000}}},
    {30, "last section", kLastPointer, kSigned},
    {31, "the address as an offset", 0x80000, kSigned},
    {32, "resource", 0x6800, k5, {}, WithResource(10, 0xBD00)},
    {32, "end of the resources", kResources + 0x24000, k6A},
    {33, "resource", 0x6800, k6B, {}, WithResource(10, 0x300)},
    {33, "end of the resources", kResources + 0x11000, k6A},
    {34, "second block", kResources + 0x1000, kAltered},
    {35, "after section 2", 0x4400 + 24560, kInstaller},
    {36, "after section 2", 0x4000 + 0xD000 + 0x11000 + 8176, kInstaller},
    {37, ".rsrc, second block", kResources + 0x1000, k5},
    {38, "resource", 0x6800 + 1016, kCab, {}, WithResource(10, 9)},
    {38, "short resource", 0x6800, kCab, {}, WithResource(10, 9), 0},
    {39, "four sections", 0x7000 + 4096 - 7, kArchive, {{NumberOfSections, 4}}},
    {39, "fifth block", 0x7000 + 4 * 4096, kArchive, {{NumberOfSections, 5}}},
    {40, "after the last section", 0x7000 + 0x3000 + 240, kInstaller},
    {41, "end of the last section", kLastPointer + 4080, kInstaller},
    {42, "after section 4", 0x6000 + 0xA00 + 240, kInstaller},
    {43, "resources", kResources, k5},
    {44, "after the last section", 0x7000 + 0x1A000 + 1264, kInstaller},
    {45, "version resource", 0x6800, kTagged, {}, WithResource(16, 0x200)},
    {46, "second block", kResources + 0x14000, kTagged},
    {47, "resource", 0x6800, k5, {}, WithResource(10, 0x300)},
    {47, "end of the resources", kResources + 0x17000, k5},
    {48, "first message table", 0x6800, kTagged, {}, [](Scene &s) { s.Resource(11, {{kPayloadRva, 0x4FFF}, {0x90000, 1}}); }},
    {48, "second message table", 0x6800, kTagged, {}, [](Scene &s) { s.Resource(11, {{0x90000, 0x5000}, {kPayloadRva, 1}}); }},
    {49, "first type", 0x6800, kTagged, {}, WithResource(1, 0x25001)},
    {49, "last type", 0x6800, kTagged, {}, WithResource(17, 0x25001)},
};

// clang-format on

inline const LocatorResult kUntouched = {1, 2, 3};

inline void Build(Scene &scene, const Find &find) {
    find.prepare(scene);
    scene.stream.Put(find.offset, find.payload.bytes);
    scene.Finish(find.rest);
}

// The find of that name, or the entry's first. Throws when there is none.
inline const Find &FindOf(uint32_t entry, std::string_view what = {}) {
    for (const Find &find : kFinds)
        if (find.entry == entry && (what.empty() || what == find.what))
            return find;
    throw std::out_of_range(fmt::format("entry {} has no find \"{}\"", entry, what));
}

} // namespace tavrik::tests

#endif
