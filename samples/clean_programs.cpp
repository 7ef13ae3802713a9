// Programs without a payload, small and ordinary.

#include <string>
#include <string_view>

#include "samples/recipes.h"

namespace tavrik::samples {
namespace {

pe::builder::Resource Version(const pe::builder::VersionInfo &info) {
    return {.type = pe::resource_type::kVersion, .data = info.Lay()};
}

constexpr std::string_view kPlainManifest =
    "<assembly xmlns=\"urn:schemas-microsoft-com:asm.v1\" manifestVersion=\"1.0\">"
    "<trustInfo xmlns=\"urn:schemas-microsoft-com:asm.v3\"><security><requestedPrivileges>"
    "<requestedExecutionLevel level=\"asInvoker\" uiAccess=\"false\"/>"
    "</requestedPrivileges></security></trustInfo></assembly>";

const base::Bytes kReturnZero = {0x33, 0xC0, 0xC3}; // xor eax, eax; ret

base::Bytes ReturnNumber(uint8_t number) {
    return {0xB8, number, 0, 0, 0, 0xC3}; // mov eax, number; ret
}

pe::builder::PeImage MinimalProgram() {
    pe::builder::PeImage image;
    image.sections = {
        {.name = ".text", .Characteristics = pe::builder::kCodeSection, .pieces = {{.content = kReturnZero}}}};
    image.headers.Subsystem = 3;
    image.entry_code = kReturnZero;
    return image;
}

pe::builder::PeImage Library64() {
    pe::builder::PeImage image;
    image.is_pe32_plus = true;
    image.headers.Characteristics = 0x2022;
    image.headers.ImageBase = 0x180000000;
    image.headers.DllCharacteristics = 0x160;
    constexpr uint32_t kCode = 0x1000;
    constexpr uint32_t kAnswer = 0x10; // into the code
    image.sections = {
        {.name = ".text",
         .Characteristics = pe::builder::kCodeSection,
         .VirtualAddress = kCode,
         .pieces = {{.content = ReturnNumber(42), .offset = kAnswer}}},
        {.name = ".rdata",
         .pieces = {{.content = pe::builder::ExportTable{"library.dll", {{.name = "Answer", .rva = kCode + kAnswer}}}},
                    {.content = pe::builder::ImportTable{{{"KERNEL32.dll", {"GetTickCount", "Sleep"}}}}}}},
        {.name = ".rsrc",
         .pieces = {{.content =
                         pe::builder::ResourceTable{{Version({.strings = {{u"FileDescription", u"A library"}}})}}}}},
    };
    image.entry_code = ReturnNumber(1); // a library that loads
    return image;
}

pe::builder::PeImage WindowsProgram() {
    pe::builder::PeImage image;
    const pe::builder::VersionInfo version{.file_version = {2, 1, 0, 7},
                                           .strings = {{u"CompanyName", u"Example"},
                                                       {u"FileDescription", u"A program that ends at once"},
                                                       {u"FileVersion", u"2.1.0.7"}}};
    const pe::builder::Resource named{
        .type = std::u16string(u"CONFIGURATION"), .name = std::u16string(u"DEFAULT"), .data = base::Bytes(64, '#')};
    const pe::builder::ImportTable imports{{{"KERNEL32.dll", {"GetModuleHandleW", "ExitProcess"}},
                                            {"USER32.dll", {"MessageBoxW", "LoadStringW"}},
                                            {"COMCTL32.dll", {uint16_t{17}}}}};
    image.sections = {
        {.name = ".text",
         .Characteristics = pe::builder::kCodeSection,
         .pieces = {{.content = base::Bytes(0x1800, 0xCC)}}},
        {.name = ".rdata", .pieces = {{.content = imports}}},
        {.name = ".data",
         .Characteristics = pe::builder::kWritableSection,
         .pieces = {{.content = base::Bytes(0x200)}}},
        {.name = ".rsrc",
         .pieces = {{.content = pe::builder::ResourceTable{{Version(version), Manifest(kPlainManifest), named}}}}},
    };
    image.headers.DllCharacteristics = 0x8140;
    image.entry_code = kReturnZero;
    return image;
}

constexpr CleanProgram kPrograms[] = {
    {"clean-minimal.exe", "the smallest program: one section", MinimalProgram},
    {"clean-library64.dll", "a 64-bit library with an export, imports and a version resource", Library64},
    {"clean-windows.exe", "a Windows program with imports, version, manifest and a named resource", WindowsProgram},
};

} // namespace

std::span<const CleanProgram> CleanPrograms() {
    return kPrograms;
}

} // namespace tavrik::samples
