// Visual Basic projects at several image bases, as a program and as a library starts them, and broken ones.
#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "database/generator/image_facts.h"
#include "evaluation/features.h"
#include "rules/names.h"
#include "rules/numbers.h"
#include "tests/support/rule_check.h"
#include "tests/support/vb_image.h"

namespace tavrik::tests {
namespace {

using base::Bytes;

struct Project {
    explicit Project(Bytes file) : bytes(std::move(file)) {}

    std::optional<uint32_t> Header(const std::string &name) {
        return features.Header(rules::FindField(rules::HeaderFields(), name)->number);
    }
    std::optional<uint32_t> Object(uint32_t object, std::string_view name) {
        return features.Vb().ObjectValue(object, *rules::FindField(rules::ObjectFields(), name));
    }

    Bytes bytes;
    base::MemorySource source{bytes};
    evaluation::Features features{source};
};

constexpr uint32_t kBases[] = {0x400000, 0x11000000, 0x00A1B000, 0x7FFE0000, 0x12340000};

TEST(VbProject, IsReadAtAnyImageBase) {
    for (uint64_t seed = 0; const uint32_t base : kBases) {
        SCOPED_TRACE(base);
        const VbImage vb({.image_base = base, .seed = ++seed, .many_objects = seed == 2, .traits = 128});
        Project file(vb.image.Build().bytes);
        const auto &objects = vb.project.objects;
        const auto forms = static_cast<uint32_t>(std::ranges::count_if(objects, &generator::VbObject::is_form));
        EXPECT_EQ(file.features.Vb().header(), VbImage::kHeaders + vb.header);
        EXPECT_EQ(file.Header("VB.HeaderOffset"), VbImage::kHeaders + vb.header);
        EXPECT_EQ(file.Header("VB.Signature"), 0x21354256u);
        EXPECT_EQ(file.Header("VB.FormCount"), forms);
        EXPECT_EQ(file.Header("VB.ThreadCount"), 1u);
        EXPECT_EQ(file.Header("VB.Project.Version"), 500u);
        EXPECT_NE(file.Header("VB.Project.NativeCode"), 0u);
        EXPECT_EQ(file.Header("VB.Form.StructureSize"), 0x50u);
        EXPECT_EQ(file.Header("VB.Form.ObjectId"), 1u);
        EXPECT_EQ(file.Header("VB.ObjectTable.Reserved"), 0xFFFFFFFFu);
        EXPECT_EQ(file.Header("VB.ObjectTable.TotalObjects"), objects.size());
        EXPECT_EQ(file.Header("VB.Project2.ObjectTable"), file.Header("VB.Project.ObjectTable"));
        EXPECT_EQ(file.Header("VB.Com.TypeLibLCID"), file.Header("VB.LCID"));
        EXPECT_EQ(file.Header("VB.Project.ExternalTable"), file.Header("VB.ExternalTable"));
        EXPECT_EQ(file.Header("VB.Project.ExternalCount"), file.Header("VB.ExternalCount"));
        for (uint32_t i = 0; i < 24; ++i) {
            const auto kind = file.Header("VB.External[" + std::to_string(i) + "].Kind");
            EXPECT_EQ(kind.has_value(), i < *file.Header("VB.ExternalCount")) << i;
            EXPECT_TRUE(!kind || *kind == 6 || *kind == 7) << i;
        }
        ASSERT_EQ(file.features.Vb().ObjectCount(), objects.size());
        for (uint32_t i = 0; i < objects.size(); ++i) {
            EXPECT_EQ(file.features.Vb().ObjectName(i), objects[i].name);
            EXPECT_EQ(file.features.Vb().MethodNames(i), objects[i].methods);
            EXPECT_EQ(file.Object(i, "MethodCount"), objects[i].methods.size());
            EXPECT_EQ(file.Object(i, "Info.ObjectIndex"), i);
            EXPECT_EQ(file.Object(i, "Info.ObjectTable"), file.Header("VB.Project.ObjectTable"));
            EXPECT_EQ(file.Object(i, "Info.MethodCount"), objects[i].methods.size());
            EXPECT_EQ(file.Object(i, "Optional.EventCount").has_value(), objects[i].is_form);
        }
        const auto after = static_cast<uint32_t>(objects.size());
        EXPECT_FALSE(file.features.Vb().ObjectName(after) || file.features.Vb().MethodNames(after) ||
                     file.Object(after, "MethodCount") || file.Object(after, "Info.RefCount"));
        // All addresses lead into the section, and those of the header to where its structures begin.
        for (const char *name : {"VB.ProjectData", "VB.FormTable", "VB.ExternalTable", "VB.ComRegisterData",
                                 "VB.Project.ObjectTable", "VB.Project.CodeStart", "VB.Project.ThreadSpace",
                                 "VB.ObjectTable.Project2", "VB.ObjectTable.ObjectArray", "VB.ObjectTable.ProjectName"})
            EXPECT_LT(*file.Header(name) - base - VbImage::kAddress, 0x10000u) << name;
        // The call of the entry code goes to the first jump, whose address is the section's start.
        const Bytes &content = vb.project.content.bytes;
        EXPECT_EQ(content[vb.project.entry], 0x68);
        EXPECT_EQ(content[vb.project.entry + 5], 0xE8);
        uint32_t distance = 0;
        std::memcpy(&distance, &content[vb.project.entry + 6], sizeof(distance));
        EXPECT_EQ(vb.project.entry + 10 + distance, 0u);
        for (uint32_t jump = 0; jump < 6; ++jump) {
            uint32_t thunk = 0;
            std::memcpy(&thunk, &content[6 * jump + 2], sizeof(thunk));
            EXPECT_EQ(thunk, base + VbImage::kAddress + 4 * jump);
            EXPECT_EQ(content[6 * jump] << 8 | content[6 * jump + 1], 0xFF25);
        }
    }
}

/** A file with other bytes in its section. */
Bytes Patched(const VbImage &vb, uint32_t offset, const Bytes &bytes) {
    Bytes file = vb.image.Build().bytes;
    std::copy(bytes.begin(), bytes.end(), file.begin() + VbImage::kHeaders + offset);
    return file;
}

Bytes Number(uint32_t value) {
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value >> 16),
            static_cast<uint8_t>(value >> 24)};
}

TEST(VbProject, BeginsAsProgramsAndLibrariesDo) {
    const VbImage vb({.image_base = 0x12340000});
    const uint32_t entry = vb.project.entry;
    const uint32_t address = 0x12340000 + VbImage::kAddress + vb.header;
    const Bytes to = Number(address);
    const Bytes library = {0x5A, 0x68, to[0], to[1], to[2], to[3], 0x68};
    EXPECT_TRUE(Project(Patched(vb, entry, library)).features.Vb().header());
    const auto is_found = [&](uint32_t offset, const Bytes &bytes) {
        return Project(Patched(vb, offset, bytes)).features.Vb().header().has_value();
    };
    EXPECT_TRUE(is_found(entry, {0x68}));
    for (const uint32_t bit : {0u, 3u, 7u}) {
        const auto flip = [bit](uint8_t byte) { return static_cast<uint8_t>(byte ^ 1u << bit); };
        EXPECT_FALSE(is_found(entry, {flip(0x68)}));
        EXPECT_FALSE(is_found(entry + 5, {flip(0xE8)}));
        for (uint32_t place : {0u, 1u, 6u}) {
            Bytes other = library;
            other[place] = flip(other[place]);
            EXPECT_FALSE(is_found(entry, other)) << place;
        }
        for (uint32_t byte = 0; byte < 4; ++byte) {
            EXPECT_FALSE(is_found(entry + 1 + byte, {flip(to[byte])})) << "of the address, " << byte;
            EXPECT_FALSE(is_found(vb.header + byte, {flip(static_cast<uint8_t>("VB5!"[byte]))}))
                << "of the signature, " << byte;
        }
    }
    pe::builder::PeImage plus = vb.image;
    plus.is_pe32_plus = true;
    EXPECT_FALSE(Project(plus.Build().bytes).features.Vb().header());
    plus = vb.image;
    plus.headers.AddressOfEntryPoint = 0;
    EXPECT_FALSE(Project(plus.Build().bytes).features.Vb().header());
    // A header that the file's end cuts, and one that it just has.
    Bytes cut = vb.image.Build().bytes;
    cut.resize(VbImage::kHeaders + vb.header + 0x68);
    EXPECT_TRUE(Project(cut).features.Vb().header());
    EXPECT_EQ(Project(cut).features.Vb().region().length, 0x68u);
    EXPECT_FALSE(Project(cut).Header("VB.Project.Version") || Project(cut).Header("VB.Com.RegInfo"));
    cut.pop_back();
    EXPECT_FALSE(Project(cut).features.Vb().header());
}

TEST(VbProject, OfALibraryIsWhatItsExportedFunctionsPushFirst) {
    constexpr uint32_t kCode = 0x20000;
    const VbImage vb({.image_base = 0x11000000});
    const Bytes to = Number(0x11000000 + VbImage::kAddress + vb.header);
    const Bytes push = {0x68, to[0], to[1], to[2], to[3], 0x68};
    const Bytes pop_push = {0x58, 0x68, to[0], to[1], to[2], to[3], 0x50};
    // The entry point is the runtime's: it pushes other addresses.
    const auto library = [&](const Bytes &code, const std::string &name, std::size_t others = 0) {
        pe::builder::PeImage image = vb.image;
        image.entry_code = {0x5A, 0x68, 0x10, 0x10, 0, 0x11, 0x68, 0x20, 0x10, 0, 0x11, 0x52, 0xE9};
        image.sections.push_back({.name = "code", .VirtualAddress = kCode, .pieces = {{code}}});
        pe::builder::ExportTable exports = {"a.dll", {}};
        for (std::size_t i = 0; i < others; ++i)
            exports.functions.push_back({"A" + std::to_string(i), kCode});
        exports.functions.push_back({"DllCanUnloadNow", VbImage::kAddress});
        exports.functions.push_back({name, kCode});
        image.sections.push_back({.name = ".edata", .VirtualAddress = 0x21000, .pieces = {{exports}}});
        return Project(image.Build().bytes);
    };
    struct Case {
        Bytes code;
        const char *name;
        std::size_t others;
        bool is_found;
    };
    Bytes wrong = push;
    wrong[1] ^= 4;
    const Case cases[] = {{push, "DllRegisterServer", 0, true},
                          {pop_push, "DllGetClassObject", 0, true},
                          {push, "DllX", 62, true},
                          {push, "DllX", 63, false},
                          {push, "RegisterServer", 0, false},
                          {push, "dllRegisterServer", 0, false},
                          {wrong, "DllRegisterServer", 0, false},
                          {{0x90, 0x68}, "DllRegisterServer", 0, false},
                          {{0x50, 0x68, to[0], to[1], to[2], to[3]}, "DllRegisterServer", 0, false}};
    for (const Case &each : cases)
        EXPECT_EQ(library(each.code, each.name, each.others).features.Vb().header().has_value(), each.is_found)
            << each.name << each.others;
    Project found = library(pop_push, "DllRegisterServer");
    EXPECT_EQ(found.Header("VB.HeaderOffset"), Project(vb.image.Build().bytes).Header("VB.HeaderOffset"));
    EXPECT_EQ(found.features.Vb().ObjectCount(), vb.project.objects.size());
}

TEST(VbProject, HasWhatItsStructuresHave) {
    const VbImage vb({.image_base = 0x11000000, .many_objects = true});
    const uint32_t start = 0x11000000 + VbImage::kAddress;
    Project whole(vb.image.Build().bytes);
    const auto with = [&](uint32_t offset, const Bytes &bytes) { return Project(Patched(vb, offset, bytes)); };
    const uint32_t project = *whole.Header("VB.ProjectData") - start;
    const uint32_t table = *whole.Header("VB.Project.ObjectTable") - start;
    const uint32_t array = *whole.Header("VB.ObjectTable.ObjectArray") - start;
    // No forms: the address of their table means nothing.
    EXPECT_FALSE(with(vb.header + 0x44, {0, 0}).Header("VB.Form.StructureSize"));
    EXPECT_EQ(with(vb.header + 0x44, {1, 0}).Header("VB.Form.StructureSize"), 0x50u);
    // Addresses below the image base and beyond the file.
    for (const uint32_t address : {0u, start - 0x2000, start + 0x100000}) {
        EXPECT_FALSE(with(vb.header + 0x30, Number(address)).Header("VB.Project.Version"));
        EXPECT_FALSE(with(vb.header + 0x54, Number(address)).Header("VB.Com.TypeLibLCID"));
        EXPECT_FALSE(with(vb.header + 0x4C, Number(address)).Header("VB.Form.ObjectId"));
        EXPECT_FALSE(with(project + 4, Number(address)).Header("VB.ObjectTable.Identifier"));
        EXPECT_FALSE(with(table + 8, Number(address)).Header("VB.Project2.Reserved"));
        EXPECT_EQ(with(table + 0x30, Number(address)).features.Vb().MethodNames(0), std::nullopt);
        EXPECT_FALSE(with(array, Number(address)).Object(0, "Info.RefCount"));
        EXPECT_FALSE(with(array + 0x18, Number(address)).features.Vb().ObjectName(0));
        EXPECT_EQ(with(array + 0x20, Number(address)).features.Vb().MethodNames(0), std::vector<std::string>{});
    }
    EXPECT_TRUE(whole.Header("VB.Project2.Reserved") && whole.Object(0, "Info.RefCount"));
    // The optional information is there by a bit of the object's type; the first object is a form.
    EXPECT_TRUE(whole.Object(0, "Optional.GuidCount"));
    EXPECT_FALSE(with(array + 0x28, Number(0x18083 & ~2u)).Object(0, "Optional.GuidCount"));
    EXPECT_TRUE(with(array + 0x28, Number(2)).Object(0, "Optional.GuidCount"));
    // Objects and methods up to the bounds.
    EXPECT_EQ(with(table + 0x2A, {0xFF, 0xFF}).features.Vb().ObjectCount(), 1024u);
    EXPECT_EQ(with(table + 0x2A, {3, 0}).features.Vb().ObjectCount(), 3u);
    EXPECT_FALSE(with(table + 0x2A, {3, 0}).features.Vb().ObjectName(3));
    EXPECT_LE(with(array + 0x1C, Number(0xFFFFFFFF)).features.Vb().MethodNames(0)->size(), 1024u);
    EXPECT_EQ(with(array + 0x1C, Number(2)).features.Vb().MethodNames(0)->size(), 2u);
    EXPECT_EQ(with(project + 0x238, Number(1)).Header("VB.External[1].Kind"), std::nullopt);
}

TEST(VbProject, AnswersConditions) {
    const VbImage vb({.image_base = 0x00A1B000, .many_objects = true});
    const auto &objects = vb.project.objects;
    const std::string name = objects[1].name;
    const std::string method = objects[1].methods.front();
    const auto member = [&](const std::string &row) {
        return "object_names { [1] \"" + name + "\" } member_names { " + row + " }";
    };
    Check(vb.image.Build().bytes, {{"object_names { [1] \"" + name + "\" }", true},
                                   {"object_names { [1] != \"" + name + "\" }", false},
                                   {"object_names { [1] \"" + name.substr(0, 2) + "\" }", false},
                                   {"object_names { [1] \"" + name.substr(0, 2) + "\" prefix }", true},
                                   {"object_names { [200] != \"x\" }", false},
                                   {member("#0 \"" + method + "\""), true},
                                   {member("#0 \"" + method + "x\""), false},
                                   {member("#0 != \"" + method + "\""), false},
                                   {member("#0 != \"no such method\""), true},
                                   {"object_fields { [1].Info.ObjectIndex == 1 }", true},
                                   {"object_fields { [1].Info.ObjectIndex == 7 | 1 }", true},
                                   {"object_fields { [1].Info.ObjectIndex == 1; [2].Info.ObjectIndex == 1 }", false},
                                   {"object_fields { [1].Info.ObjectIndex == 2; [2].Info.ObjectIndex == 2 }", false},
                                   {"object_fields { [1].Info.ObjectIndex == 1; [1].Info.RefCount == 9 }", false},
                                   {"object_fields { [200].Info.RefCount >= 0 }", false},
                                   {"traits visual_basic", true}});
}

} // namespace
} // namespace tavrik::tests
