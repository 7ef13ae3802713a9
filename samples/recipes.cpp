#include "samples/recipes.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "samples/payloads.h"
#include "samples/stub.h"

namespace tavrik::samples {
namespace {

constexpr uint32_t kBlock = 4096; // what the scans read at once
constexpr uint32_t kIntoBlock = 0x40;
constexpr uint32_t kReportedHeader = 256;
constexpr uint32_t kAfterPayload = 0x6000; // room for the longest block that a locator reads

pe::builder::PeFile Stub(uint32_t entry, const StubWishes &wishes = {}) {
    return MakeStub(entry, wishes).Build();
}

Made Plant(pe::builder::PeFile file, PayloadKind kind, uint32_t offset, uint32_t size, const base::Bytes &payload) {
    file.Plant(offset, payload);
    file.GrowTo(base::AlignUp(offset + kAfterPayload, kBlock));
    return {std::move(file), LocatorResult{static_cast<uint32_t>(kind), offset, size}};
}

Made PlantNullsoft(pe::builder::PeFile file, uint32_t offset) {
    return Plant(std::move(file), PAYLOAD_NULLSOFT, offset, kReportedHeader, kNullsoftHeader);
}

// For locators that look at known places or search chunks.
Made PlantScript(pe::builder::PeFile file, uint32_t offset, const base::Bytes &script = kAutoItScript) {
    return Plant(std::move(file), PAYLOAD_AUTOIT, offset, kReportedHeader, script);
}

// For locators that scan block by block from `start`: inside the first block that lies wholly after what is in use.
Made PlantScanned(pe::builder::PeFile file, uint32_t start, const base::Bytes &script = kAutoItScript) {
    const uint32_t end = std::max(start, file.size());
    const uint32_t offset = start + base::AlignUp(end - start, kBlock) + kIntoBlock;
    return Plant(std::move(file), PAYLOAD_AUTOIT, offset, kBlock, script);
}

// The same for a script inside the file's sections, at the start of the first block.
Made PlantAtStart(pe::builder::PeFile file, uint32_t start) {
    return Plant(std::move(file), PAYLOAD_AUTOIT, start + kIntoBlock, kBlock, kAutoItScript);
}

uint32_t ResourcesOf(const pe::builder::PeFile &file) {
    return file.SectionNamed(".rsrc").PointerToRawData;
}

// A resource of zeros, `offset` bytes after the start of the directory.
constexpr uint32_t kResourceOffset = 0x400;

pe::builder::Resource EmptyResource(uint16_t type, uint32_t size, uint16_t name = 1,
                                    uint32_t offset = kResourceOffset) {
    return {.type = type, .name = name, .data = base::Bytes(size), .offset = offset};
}

constexpr std::string_view kAdministratorManifest =
    "<assembly xmlns=\"urn:schemas-microsoft-com:asm.v1\" manifestVersion=\"1.0\">"
    "<trustInfo xmlns=\"urn:schemas-microsoft-com:asm.v3\"><security><requestedPrivileges>"
    "<requestedExecutionLevel level=\"requireAdministrator\" uiAccess=\"false\"/>"
    "</requestedPrivileges></security></trustInfo></assembly>";

constexpr std::string_view kWrapperManifest =
    "<assembly xmlns=\"urn:schemas-microsoft-com:asm.v1\" manifestVersion=\"1.0\">"
    "<assemblyIdentity version=\"3.0.0.0\" processorArchitecture=\"x86\" name=\"AutoIt3\" type=\"win32\"/></assembly>";

// The sections of installer stubs and of a later script wrapper.
const std::vector<std::string> kInstallerSections = {".text", ".rdata", ".data", ".ndata", ".rsrc"};
const std::vector<std::string> kInstallerSections6 = {".text", ".rdata", ".data", ".ndata", ".rsrc", ".reloc"};
const std::vector<std::string> kScriptSections5 = {".text", ".rdata", ".data", ".rsrc", ".reloc"};

constexpr Recipe kRecipes[] = {
    {0, "autoit-after-section-3", "script wrapper, altered marker right after the last section",
     [] {
         pe::builder::PeFile file = Stub(0);
         const uint32_t offset = file.RawEnd(3);
         return PlantScript(std::move(file), offset, kAlteredMarkerA);
     }},
    {1, "autoit-scan", "script wrapper, scanned from its first section",
     [] {
         pe::builder::PeFile file = Stub(1);
         const uint32_t start = file.sections[0].PointerToRawData;
         return PlantScanned(std::move(file), start);
     }},
    {2, "autoit-scan-packed", "packed script wrapper, scanned from a fixed offset",
     [] { return PlantScanned(Stub(2), 0x40000); }},
    {3, "autoit-scan-late-code", "script wrapper with its code in a late section, scanned from a fixed offset",
     [] { return PlantScanned(Stub(3), 0xC0000); }},
    {4, "autoit-scan-resources", "script wrapper, scanned from its last section, marker of an altered build",
     [] {
         pe::builder::PeFile file = Stub(4);
         const uint32_t start = file.sections.back().PointerToRawData;
         return PlantScanned(std::move(file), start, kAlteredMarkerC);
     }},
    {5, "autoit-fixed-offset", "script wrapper, altered marker at a fixed offset",
     [] { return PlantScript(Stub(5), 0xA7C1F, kAlteredMarkerB); }},
    {6, "autoit-scan-packed-sections", "packed script wrapper known by its packer's section names",
     [] { return PlantScanned(Stub(6, {.path = "1"}), 0x56000); }},
    {7, "nullsoft-after-section-4", "installer, header after the fifth section",
     [] {
         pe::builder::PeFile file = Stub(7, {.names = kInstallerSections6});
         const uint32_t offset = file.RawEnd(4) + 4;
         return PlantNullsoft(std::move(file), offset);
     }},
    {8, "nullsoft-far-after-section-4", "installer, header at a fixed distance after the fifth section",
     [] {
         pe::builder::PeFile file = Stub(8, {.names = kInstallerSections6});
         const uint32_t offset = file.RawEnd(4) + 0xF004;
         return PlantNullsoft(std::move(file), offset);
     }},
    {9, "nullsoft-before-end", "installer, header at a fixed distance before the end of the file",
     [] {
         constexpr uint32_t kBeforeEnd = 0x13359C;
         pe::builder::PeFile file = Stub(9, {.values = {{Field::BaseOfCode, 0x131000}}});
         const uint32_t offset = file.size();
         file.Plant(offset, kNullsoftHeader);
         file.GrowTo(offset + kBeforeEnd);
         return Made{std::move(file), LocatorResult{PAYLOAD_NULLSOFT, offset, kReportedHeader}};
     }},
    {10, "nullsoft-in-resources", "installer, header inside the resource section",
     [] {
         pe::builder::PeFile file = Stub(10, {.names = kInstallerSections});
         const uint32_t offset = ResourcesOf(file) + 0xA04;
         return PlantNullsoft(std::move(file), offset);
     }},
    {11, "nullsoft-near-resources", "installer, marker at a distance from the resource section",
     [] {
         pe::builder::PeFile file = Stub(11, {.names = kInstallerSections});
         const uint32_t offset = ResourcesOf(file) + 0x3500 + kIntoBlock;
         return PlantNullsoft(std::move(file), offset);
     }},
    {12, "autoit-three-offsets", "script wrapper, marker at the first of three fixed offsets",
     [] { return PlantScript(Stub(12), 0xF2000); }},
    {13, "autoit-chunks-resources", "script wrapper, marker searched in chunks from its resources",
     [] {
         pe::builder::PeFile file = Stub(
             13, {.path = "A1", .values = {{Field::ResourceSize, 0x1000}, {Field::FirstSectionVirtualSize, 0x59000}}});
         const uint32_t offset = file.size() + kIntoBlock;
         return PlantScript(std::move(file), offset);
     }},
    {14, "autoit-chunks-packed", "packed script wrapper, marker searched in chunks from a fixed offset",
     [] { return PlantScript(Stub(14), 0x49800 + kIntoBlock); }},
    {15, "autoit-chunks-first-section", "script wrapper, marker searched in chunks of the first section",
     [] {
         pe::builder::PeFile file = Stub(
             15, {.values = {{Field::FirstSectionVirtualSize, 0x66000}, {Field::FirstSectionSizeOfRawData, 0x66000}}});
         const uint32_t offset = file.sections[0].PointerToRawData + 0x20000;
         return PlantScript(std::move(file), offset);
     }},
    {16, "autoit-scan-headers", "script wrapper, scanned from after its headers",
     [] { return PlantScanned(Stub(16), 0x400); }},
    {17, "autoit-scan-overlay", "script wrapper, scanned from a fixed offset after its sections",
     [] { return PlantScanned(Stub(17), 0xBB000); }},
    {18, "autoit-scan-packed-overlay", "packed script wrapper, scanned from a fixed offset",
     [] { return PlantScanned(Stub(18, {.path = "A"}), 0xA0000); }},
    {19, "autoit-scan-packed-far", "packed script wrapper, scanned from a fixed offset several MiB into the file",
     [] {
         return PlantScanned(Stub(19, {.path = "1", .values = {{Field::BaseOfCode, 0x65000}}}), 0x6C7000);
     }},
    {20, "autoit-scan-packed-old", "script wrapper of an old packed build, scanned from a fixed offset",
     [] { return PlantScanned(Stub(20), 0x40000); }},
    {21, "autoit-scan-middle", "script wrapper, scanned from the middle of its code",
     [] {
         const FieldValues values = {{Field::AddressOfEntryPoint, 0x16310},
                                     {Field::BaseOfCode, 0x1000},
                                     {Field::FirstSectionCharacteristics, 0x60000020}};
         return PlantScanned(Stub(21, {.values = values}), 0x5B000);
     }},
    {22, "autoit-scan-rrdata", "small script wrapper with a section \".rrdata\", scanned from far after its start",
     [] {
         pe::builder::PeFile file = Stub(22, {.path = "C"});
         const uint32_t start = file.SectionNamed(".rrdata").PointerToRawData + 0x35000;
         return PlantScanned(std::move(file), start);
     }},
    {23, "autoit-in-section-4", "script wrapper, marker at a known place of the fifth section",
     [] {
         pe::builder::PeFile file = Stub(23, {.names = {".text", ".rdata", ".data", ".tls", ".rsrc"}});
         const uint32_t offset = file.sections[4].PointerToRawData + 0x14A00;
         return PlantScript(std::move(file), offset);
     }},
    {24, "autoit-scan-two-sections", "script wrapper of two sections, scanned from the first",
     [] {
         pe::builder::PeFile file = Stub(24, {.path = "2"});
         const uint32_t start = file.sections[0].PointerToRawData;
         return PlantScanned(std::move(file), start);
     }},
    {25, "autoit-after-administrator-manifest", "script wrapper, marker far after a manifest that asks for rights",
     [] {
         // For files of 3 MiB up to 0x3F0000 bytes.
         constexpr uint32_t kSize = 0x301000;
         constexpr uint32_t kDistance = 0x16B000;
         pe::builder::PeFile file = Stub(25, {.resources = {Manifest(kAdministratorManifest)}});
         const auto text = std::search(file.bytes.begin(), file.bytes.end(), kAdministratorManifest.begin(),
                                       kAdministratorManifest.end());
         const auto end =
             static_cast<uint32_t>(text - file.bytes.begin()) + static_cast<uint32_t>(kAdministratorManifest.size());
         file.GrowTo(kSize);
         return PlantScript(std::move(file), end + kDistance + kIntoBlock);
     }},
    {26, "autoit-after-wrapper-manifest", "script wrapper, marker after a manifest that names the wrapper",
     [] {
         pe::builder::PeFile file = Stub(26, {.resources = {Manifest(kWrapperManifest)}});
         const uint32_t offset = base::AlignUp(file.size(), kBlock);
         return PlantScript(std::move(file), offset);
     }},
    {28, "autoit-offset-table-penask", "script wrapper of a known build, marker at a known place of \".penask\"",
     [] {
         // The directory's address, like the sizes, is part of the build's key.
         const FieldValues values = {{Field::SizeOfCode, 0x65200},
                                     {Field::SizeOfInitializedData, 0xCEC00},
                                     {Field::ResourceVirtualAddress, 0x8F000}};
         pe::builder::PeFile file =
             Stub(28, {.path = "A2", .values = values, .names = {".text", ".rdata", ".data", ".rsrc", ".penask"}});
         const uint32_t offset = file.SectionNamed(".penask").PointerToRawData + 0x33000;
         return PlantScript(std::move(file), offset);
     }},
    {29, "autoit-offset-table-overlay", "script wrapper of a known build, marker at a known place after its sections",
     [] {
         const FieldValues values = {{Field::SizeOfCode, 0x7BE00},
                                     {Field::SizeOfInitializedData, 0x12800},
                                     {Field::ResourceVirtualAddress, 0xA5000}};
         pe::builder::PeFile file = Stub(29, {.path = "A2", .values = values});
         const uint32_t offset = file.RawEnd(file.sections.size() - 1) + 0x1000;
         return PlantScript(std::move(file), offset);
     }},
    {30, "autoit-scan-last-section", "script wrapper of three sections, scanned from the last",
     [] {
         pe::builder::PeFile file = Stub(30);
         const uint32_t start = file.sections.back().PointerToRawData;
         return PlantScanned(std::move(file), start);
     }},
    {31, "autoit-scan-resource-address", "script wrapper, scanned from the offset that equals its resources' address",
     [] {
         pe::builder::PeFile file = Stub(31);
         const uint32_t start = file.SectionNamed(".rsrc").VirtualAddress;
         return PlantScanned(std::move(file), start);
     }},
    {32, "autoit-script-raw-data", "script wrapper, script in a raw-data resource",
     [] {
         pe::builder::PeFile file =
             Stub(32, {.path = "A", .resources = {EmptyResource(pe::resource_type::kRcData, 0xBD00)}});
         const uint32_t start = ResourcesOf(file) + kResourceOffset;
         return PlantAtStart(std::move(file), start);
     }},
    {33, "autoit-script-packed", "packed script wrapper, script in a raw-data resource",
     [] {
         pe::builder::PeFile file = Stub(33, {.path = "A",
                                              .values = {{Field::BaseOfCode, 0xE4000}},
                                              .resources = {EmptyResource(pe::resource_type::kRcData, 0x300)}});
         const uint32_t start = ResourcesOf(file) + kResourceOffset;
         return PlantAtStart(std::move(file), start);
     }},
    {34, "autoit-altered-header", "script wrapper, altered header scanned for from its resources",
     [] {
         pe::builder::PeFile file = Stub(34);
         const uint32_t start = ResourcesOf(file);
         return PlantScanned(std::move(file), start, kAlteredHeader);
     }},
    {35, "nullsoft-three-sections", "installer of three sections, marker after them",
     [] {
         pe::builder::PeFile file = Stub(35, {.names = {".text", ".rdata", ".data"}});
         const uint32_t offset = file.RawEnd(2) + file.sections[2].SizeOfRawData + kIntoBlock;
         return PlantNullsoft(std::move(file), offset);
     }},
    {36, "nullsoft-after-data", "installer, marker at a distance after its third section",
     [] {
         pe::builder::PeFile file = Stub(36, {.names = kInstallerSections});
         const uint32_t offset = file.RawEnd(2) + file.sections.back().SizeOfRawData + 0x11000 + kIntoBlock;
         return PlantNullsoft(std::move(file), offset);
     }},
    {37, "autoit-script-resources", "script wrapper of the older generation, scanned from its resource section",
     [] {
         pe::builder::PeFile file = Stub(37, {.names = kScriptSections5});
         const uint32_t start = ResourcesOf(file);
         return PlantScanned(std::move(file), start, kAutoItScriptEA05);
     }},
    {38, "cabinet-resource", "self-extractor, cabinet in a raw-data resource",
     [] {
         pe::builder::PeFile file =
             Stub(38, {.path = "A", .resources = {EmptyResource(pe::resource_type::kRcData, 0x1000)}});
         const uint32_t offset = ResourcesOf(file) + kResourceOffset;
         return Plant(std::move(file), PAYLOAD_CABINET, offset, kBlock, kCabinet);
     }},
    {39, "rar-after-last-section", "self-extractor, archive after its sections",
     [] {
         pe::builder::PeFile file = Stub(39, {.path = "5"});
         const uint32_t offset = file.RawEnd(4);
         return Plant(std::move(file), PAYLOAD_RAR, offset, kBlock, kRarArchive);
     }},
    {40, "nullsoft-after-relocations", "installer, marker after its relocation section",
     [] {
         pe::builder::PeFile file = Stub(40, {.names = kInstallerSections6});
         const uint32_t offset = file.RawEnd(5) + 0x3000 + kIntoBlock;
         return PlantNullsoft(std::move(file), offset);
     }},
    {41, "nullsoft-in-relocations", "installer, marker in the last block of its relocation section",
     [] {
         pe::builder::PeFile file = Stub(41, {.names = kInstallerSections6});
         const uint32_t offset = file.RawEnd(5) - 0x1000 + kIntoBlock;
         return PlantNullsoft(std::move(file), offset);
     }},
    {42, "nullsoft-after-relocations", "installer, marker right after its relocation section",
     [] {
         pe::builder::PeFile file = Stub(42, {.names = kInstallerSections6});
         const uint32_t offset = file.RawEnd(4) + file.sections[5].SizeOfRawData + kIntoBlock;
         return PlantNullsoft(std::move(file), offset);
     }},
    {43, "autoit-script-from-resources", "script wrapper, script scanned for from its resources",
     [] {
         pe::builder::PeFile file = Stub(43);
         const uint32_t start = ResourcesOf(file);
         return PlantScanned(std::move(file), start);
     }},
    {44, "nullsoft-far-after-relocations", "installer, marker far after its relocation section",
     [] {
         pe::builder::PeFile file = Stub(44, {.names = kInstallerSections6});
         const uint32_t offset = file.RawEnd(5) + 0x1A000 + kIntoBlock;
         return PlantNullsoft(std::move(file), offset);
     }},
    {45, "autoit-header-after-version", "script wrapper, header scanned for from its version resource",
     [] {
         pe::builder::PeFile file = Stub(45, {.resources = {{.type = pe::resource_type::kVersion,
                                                             .data = pe::builder::VersionInfo{}.Lay(),
                                                             .offset = kResourceOffset}}});
         const uint32_t start = ResourcesOf(file) + kResourceOffset;
         return PlantScanned(std::move(file), start);
     }},
    {46, "autoit-header-after-resources", "script wrapper, header scanned for from the end of its resource directory",
     [] {
         pe::builder::PeFile file = Stub(46, {.resource_section_size = 0x15000});
         const uint32_t start = ResourcesOf(file) + 0x13000;
         return PlantAtStart(std::move(file), start);
     }},
    {47, "autoit-script-large", "large script wrapper, script in a raw-data resource",
     [] {
         pe::builder::PeFile file = Stub(47, {.resources = {EmptyResource(pe::resource_type::kRcData, 0x300)}});
         const uint32_t start = ResourcesOf(file) + kResourceOffset;
         return PlantAtStart(std::move(file), start);
     }},
    {48, "autoit-header-message-table", "script wrapper, script in the first of two message-table resources",
     [] {
         pe::builder::PeFile file =
             Stub(48, {.resources = {EmptyResource(pe::resource_type::kMessageTable, 0x1000),
                                     EmptyResource(pe::resource_type::kMessageTable, 0x6000, 2, 0x2000)}});
         const uint32_t start = ResourcesOf(file) + kResourceOffset;
         return PlantAtStart(std::move(file), start);
     }},
    {49, "autoit-header-first-large", "script wrapper, script in the first large resource",
     [] {
         pe::builder::PeFile file = Stub(49, {.resources = {EmptyResource(pe::resource_type::kRcData, 0x26000)}});
         const uint32_t start = ResourcesOf(file) + kResourceOffset;
         return PlantAtStart(std::move(file), start);
     }},
};

} // namespace

std::span<const Recipe> Recipes() {
    return kRecipes;
}

} // namespace tavrik::samples
