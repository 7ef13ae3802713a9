#include "database/generator/vb_project.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "database/generator/names.h"
#include "pe/builder/tables.h"
#include "rules/names.h"
#include "rules/numbers.h"
#include "rules/vb_format.h"

namespace tavrik::generator {
namespace {

namespace vb = rules::vb;

constexpr uint32_t kOtherLanguages[] = {0x804, 0x419, 0x416, 0x407, 0x40C, 0x41F};

// Two structures extend beyond the last field that rules can ask for.
constexpr uint32_t kWholeComDataSize = 0x2C;
constexpr uint32_t kWholeOptionalInfoSize = 64;

constexpr uint32_t kEntrySize = 16; // room for the entry code

constexpr uint32_t kReserved = 0xFFFFFFFF;
constexpr uint32_t kFormType = 0x18083; // has optional information
constexpr uint32_t kModuleType = 0x18001;
constexpr uint32_t kMostObjects = 40;
constexpr uint32_t kMostExternals = 26;
constexpr uint32_t kMostMethods = 18;

// Reserves room in the content and fills it field by field; everything is known by its virtual address.
class Layout {
public:
    Layout(Content &content, uint32_t address, Random &random)
        : content_(content), address_(address), random_(random) {}

    uint32_t Reserve(uint32_t size) {
        content_.PadTo(4);
        const uint32_t address = address_ + content_.size();
        content_.bytes.resize(content_.bytes.size() + size);
        return address;
    }

    uint32_t Text(std::string_view text) {
        content_.AddText(text, false);
        return address_ + content_.marks.back().offset;
    }

    // Writes a field of the structure at `structure`, by its name in the header conditions or in the object fields.
    void Set(uint32_t structure, std::string_view name, uint32_t value) {
        SetField(structure, rules::FindField(rules::HeaderFields(), name), value);
    }
    void SetOfObject(uint32_t structure, std::string_view name, uint32_t value) {
        SetField(structure, rules::FindField(rules::ObjectFields(), name), value);
    }

    // The four words of an identifier: `name` and an index.
    void SetUuid(uint32_t structure, const std::string &name) {
        for (uint32_t i = 0; i < 4; ++i)
            Set(structure, name + '[' + std::to_string(i) + ']', random_.Next32());
    }

    // What no condition can ask for.
    void SetLong(uint32_t address, uint32_t value) { Put(address, value, sizeof value); }
    void SetByte(uint32_t address, uint8_t value) { Put(address, value, sizeof value); }

    // Some address in the project's own code or data.
    uint32_t Somewhere() { return address_ + random_.Below(0x2000U); }

private:
    void SetField(uint32_t structure, const rules::Field *field, uint32_t value) {
        Put(structure + field->offset, value, field->width);
    }

    void Put(uint32_t address, uint32_t value, std::size_t width) {
        for (std::size_t i = 0; i < width; ++i)
            content_.bytes.at(address - address_ + i) = static_cast<uint8_t>(value >> 8 * i);
    }

    Content &content_;
    uint32_t address_;
    Random &random_;
};

std::vector<VbObject> ChooseObjects(const RulePlan &plan, Random &random) {
    const uint32_t wanted = std::max(plan.counts[kObjectNames], plan.counts[kObjectFields] / 30 + 1);
    const uint32_t count = plan.many_objects ? kMostObjects : random.Between(wanted, wanted + 4);
    std::vector<VbObject> objects;
    for (uint32_t i = 0; i < count; ++i) {
        VbObject object;
        object.is_form = i == 0 || random.Chance(35);
        object.name = random.Pick(object.is_form ? FormNames() : ModuleNames());
        const auto is_taken = [&](const VbObject &other) { return other.name == object.name; };
        if (std::ranges::any_of(objects, is_taken))
            object.name = (object.is_form ? "frm" : "mod") + SmallWord(random) + std::to_string(i);
        const uint32_t methods = i == 0 && plan.counts[kMemberNames] != 0 ? kMostMethods : random.Between(1, 9);
        for (uint32_t k = 0; k < methods; ++k) {
            std::string method(random.Pick(MethodNames()));
            if (std::ranges::find(object.methods, method) == object.methods.end())
                object.methods.push_back(std::move(method));
        }
        while (object.methods.size() < methods)
            object.methods.push_back(SmallWord(random) + std::to_string(object.methods.size()));
        objects.push_back(std::move(object));
    }
    return objects;
}

class Maker {
public:
    Maker(const RulePlan &plan, const std::string &family, uint32_t address, Random &random)
        : plan_(plan), family_(family), address_(address), random_(random), layout_(project_.content, address, random) {
    }

    VbProject Make() {
        const uint32_t thunks = random_.Between(6, 24);
        project_.objects = ChooseObjects(plan_, random_);
        object_count_ = static_cast<uint32_t>(project_.objects.size());
        forms_ = static_cast<uint32_t>(std::ranges::count_if(project_.objects, &VbObject::is_form));
        externals_ = random_.Chance(25) ? random_.Between(24, kMostExternals) : random_.Below(9U);
        is_native_ = (plan_.traits & rules::trait::kNativeCode) != 0 || random_.Chance(50);
        WriteJumps(thunks);
        const uint32_t entry = layout_.Reserve(kEntrySize);
        ReserveStructures();
        language_ = random_.Chance(85) ? pe::builder::kEnglish : random_.Pick(kOtherLanguages);
        WriteEntry(entry);
        WriteHeader();
        WriteProject();
        WriteObjectTable();
        WriteComData();
        WriteProject2();
        for (uint32_t i = 0; i < forms_; ++i)
            WriteForm(form_table_ + vb::kFormSize * i, i);
        for (uint32_t i = 0; i < externals_; ++i)
            WriteExternal(i);
        for (uint32_t i = 0; i < object_count_; ++i)
            WriteObject(i);
        return std::move(project_);
    }

private:
    // Jumps to the runtime, through the import addresses at the section's start.
    void WriteJumps(uint32_t count) {
        Bytes &bytes = project_.content.bytes;
        for (uint32_t i = 0; i < count; ++i) {
            bytes.insert(bytes.end(), {0xFF, 0x25});
            const uint32_t thunk = address_ + 4 * i;
            for (uint32_t shift = 0; shift < 32; shift += 8)
                bytes.push_back(static_cast<uint8_t>(thunk >> shift));
        }
    }

    void ReserveStructures() {
        header_ = layout_.Reserve(vb::kHeaderSize);
        info_ = layout_.Reserve(vb::kProjectSize);
        table_ = layout_.Reserve(vb::kObjectTableSize);
        com_ = layout_.Reserve(kWholeComDataSize);
        project2_ = layout_.Reserve(vb::kProject2Size);
        form_table_ = layout_.Reserve(vb::kFormSize * forms_);
        external_table_ = layout_.Reserve(vb::kExternalSize * std::max(externals_, 1U));
        objects_ = layout_.Reserve(vb::kObjectSize * object_count_);
    }

    // Push the header's address, call the runtime by the first jump.
    void WriteEntry(uint32_t entry) {
        constexpr uint8_t kPush = 0x68;
        constexpr uint8_t kCall = 0xE8;
        constexpr uint32_t kEnd = 10; // of both instructions
        project_.entry = entry - address_;
        layout_.SetByte(entry, kPush);
        layout_.SetLong(entry + 1, header_);
        layout_.SetByte(entry + 5, kCall);
        layout_.SetLong(entry + 6, 0 - (project_.entry + kEnd));
    }

    void WriteHeader() {
        constexpr uint32_t kLanguageLibrary = 6; // offset of a text: "*" for none
        layout_.Set(header_, "VB.Signature", vb::kSignature);
        layout_.Set(header_, "VB.RuntimeBuild", 0x1000 + random_.Below(0x600U));
        layout_.SetByte(header_ + kLanguageLibrary, '*');
        layout_.Set(header_, "VB.RuntimeRevision", random_.Below(16U));
        layout_.Set(header_, "VB.LCID", language_);
        layout_.Set(header_, "VB.SecondLCID", random_.Chance(70) ? 0U : pe::builder::kEnglish);
        layout_.Set(header_, "VB.SubMain", random_.Chance(50) ? layout_.Somewhere() : 0);
        layout_.Set(header_, "VB.ProjectData", info_);
        layout_.Set(header_, "VB.IntrinsicControls", 0x30F000 | random_.Below(0x1000U));
        layout_.Set(header_, "VB.IntrinsicControls2", 0xFFFFFF00);
        layout_.Set(header_, "VB.ThreadFlags", 8);
        layout_.Set(header_, "VB.ThreadCount", plan_.vb_thread_count == CountedTest::Other ? random_.Between(2, 6) : 1);
        layout_.Set(header_, "VB.FormCount", forms_);
        layout_.Set(header_, "VB.ExternalCount", externals_);
        layout_.Set(header_, "VB.ThunkCount", random_.Between(0xE0, 0x1F0));
        layout_.Set(header_, "VB.FormTable", form_table_);
        layout_.Set(header_, "VB.ExternalTable", external_table_);
        layout_.Set(header_, "VB.ComRegisterData", com_);
        constexpr uint32_t kDescription = 0x78; // into the header, as the runtime writes it
        layout_.Set(header_, "VB.ProjectDescription", kDescription);
        layout_.Set(header_, "VB.ProjectExeName", kDescription + random_.Between(6, 20));
        layout_.Set(header_, "VB.ProjectHelpFile", kDescription + random_.Between(21, 40));
        layout_.Set(header_, "VB.ProjectName", kDescription + random_.Between(41, 60));
    }

    void WriteProject() {
        layout_.Set(info_, "VB.Project.Version",
                    plan_.vb_version == CountedTest::Other ? random_.Between(501, 504) : 500);
        layout_.Set(info_, "VB.Project.ObjectTable", table_);
        layout_.Set(info_, "VB.Project.CodeStart", address_ + random_.Below(0x800U));
        layout_.Set(info_, "VB.Project.CodeEnd", address_ + 0x800 + random_.Below(0x1800U));
        layout_.Set(info_, "VB.Project.DataSize", random_.Between(4, 0x200) * 4);
        layout_.Set(info_, "VB.Project.ThreadSpace", layout_.Somewhere());
        layout_.Set(info_, "VB.Project.ExceptionHandler", layout_.Somewhere());
        layout_.Set(info_, "VB.Project.NativeCode", is_native_ ? layout_.Somewhere() : 0);
        layout_.Set(info_, "VB.Project.ExternalTable", external_table_);
        layout_.Set(info_, "VB.Project.ExternalCount", externals_);
    }

    void WriteObjectTable() {
        layout_.Set(table_, "VB.ObjectTable.ExecProject", layout_.Somewhere());
        layout_.Set(table_, "VB.ObjectTable.Project2", project2_);
        layout_.Set(table_, "VB.ObjectTable.Reserved", kReserved);
        layout_.Set(table_, "VB.ObjectTable.ProjectObject", layout_.Somewhere());
        layout_.SetUuid(table_, "VB.ObjectTable.Uuid");
        layout_.Set(table_, "VB.ObjectTable.CompileState", random_.Between(2, 0x33));
        layout_.Set(table_, "VB.ObjectTable.TotalObjects", object_count_);
        layout_.Set(table_, "VB.ObjectTable.CompiledObjects", object_count_);
        layout_.Set(table_, "VB.ObjectTable.ObjectsInUse", object_count_);
        layout_.Set(table_, "VB.ObjectTable.ObjectArray", objects_);
        layout_.Set(table_, "VB.ObjectTable.ProjectName", layout_.Text(family_ + SmallWord(random_)));
        layout_.Set(table_, "VB.ObjectTable.LCID", language_);
        layout_.Set(table_, "VB.ObjectTable.SecondLCID", language_);
        layout_.Set(table_, "VB.ObjectTable.Identifier", random_.Between(1, 4));
    }

    void WriteComData() {
        layout_.Set(com_, "VB.Com.RegInfo", random_.Chance(50) ? 0 : 0x30);
        layout_.Set(com_, "VB.Com.ProjectName", 0x30 + random_.Below(0x20U));
        layout_.Set(com_, "VB.Com.HelpDirectory", 0x50 + random_.Below(0x20U));
        layout_.SetUuid(com_, "VB.Com.Uuid");
        layout_.Set(com_, "VB.Com.TypeLibLCID", language_);
        layout_.Set(com_, "VB.Com.Unknown", random_.Below(3U));
        layout_.Set(com_, "VB.Com.TypeLibMajor", random_.Between(1, 9));
        layout_.Set(com_, "VB.Com.TypeLibMinor", random_.Below(10U));
    }

    void WriteProject2() {
        layout_.Set(project2_, "VB.Project2.ObjectTable", table_);
        layout_.Set(project2_, "VB.Project2.Reserved", kReserved);
        layout_.Set(project2_, "VB.Project2.ObjectList", layout_.Somewhere());
        layout_.Set(project2_, "VB.Project2.ProjectDescription", layout_.Somewhere());
        layout_.Set(project2_, "VB.Project2.ProjectHelpFile", layout_.Somewhere());
        layout_.Set(project2_, "VB.Project2.Reserved2", kReserved);
        layout_.Set(project2_, "VB.Project2.HelpContextId", random_.Below(5U));
    }

    void WriteForm(uint32_t form, uint32_t index) {
        layout_.Set(form, "VB.Form.StructureSize", vb::kFormSize);
        layout_.SetUuid(form, "VB.Form.ObjectUuid");
        layout_.Set(form, "VB.Form.ObjectId", index + 1);
        layout_.Set(form, "VB.Form.OleMisc", 0x10000 | random_.Below(0x1000U));
        layout_.SetUuid(form, "VB.Form.Uuid");
        layout_.Set(form, "VB.Form.Unknown[6]", random_.Between(0x90, 0x400));
        layout_.Set(form, "VB.Form.FormPointer", layout_.Somewhere());
        layout_.Set(form, "VB.Form.Unknown[7]", random_.Between(0x4C, 0x120));
    }

    // An entry of the table, and its descriptor: the addresses of a module's and a function's name.
    void WriteExternal(uint32_t index) {
        constexpr uint32_t kDeclaredFunction = 7;
        constexpr uint32_t kTypeLibrary = 6;
        constexpr uint32_t kCommonModules = 5;
        const uint32_t entry =
            external_table_ + vb::kExternalSize * index; // the fields' names end before the table may
        layout_.Set(entry, "VB.External[0].Kind", random_.Chance(90) ? kDeclaredFunction : kTypeLibrary);
        const uint32_t descriptor = layout_.Reserve(8);
        layout_.Set(entry, "VB.External[0].Descriptor", descriptor);
        const ModuleFunctions &module = Modules()[index % kCommonModules];
        layout_.SetLong(descriptor, layout_.Text(module.name));
        layout_.SetLong(descriptor + 4, layout_.Text(random_.Pick(module.functions)));
    }

    void WriteObject(uint32_t index) {
        const VbObject &object = project_.objects[index];
        const uint32_t descriptor = objects_ + vb::kObjectSize * index;
        const uint32_t info = layout_.Reserve(vb::kObjectInfoSize + (object.is_form ? kWholeOptionalInfoSize : 0));
        const auto methods = static_cast<uint32_t>(object.methods.size());
        const uint32_t method_names = layout_.Reserve(4 * methods);

        layout_.SetOfObject(descriptor, "ObjectInfo", info);
        layout_.SetOfObject(descriptor, "Reserved", kReserved);
        layout_.SetOfObject(descriptor, "PublicBytes", layout_.Somewhere());
        layout_.SetOfObject(descriptor, "StaticBytes", random_.Chance(50) ? 0 : layout_.Somewhere());
        layout_.SetOfObject(descriptor, "ModulePublic", layout_.Somewhere());
        layout_.SetOfObject(descriptor, "ModuleStatic", random_.Chance(50) ? 0 : layout_.Somewhere());
        layout_.SetOfObject(descriptor, "ObjectName", layout_.Text(object.name));
        layout_.SetOfObject(descriptor, "MethodCount", methods);
        layout_.SetOfObject(descriptor, "MethodNames", method_names);
        layout_.SetOfObject(descriptor, "StaticVars", random_.Below(0x80U));
        layout_.SetOfObject(descriptor, "ObjectType", object.is_form ? kFormType : kModuleType);
        for (uint32_t k = 0; k < methods; ++k)
            layout_.SetLong(method_names + 4 * k, layout_.Text(object.methods[k]));
        WriteObjectInfo(info, index, descriptor, methods);
        if (object.is_form)
            WriteOptionalInfo(info + vb::kObjectInfoSize, methods);
    }

    void WriteObjectInfo(uint32_t info, uint32_t index, uint32_t descriptor, uint32_t methods) {
        layout_.SetOfObject(info, "Info.RefCount", 1);
        layout_.SetOfObject(info, "Info.ObjectIndex", index);
        layout_.SetOfObject(info, "Info.ObjectTable", table_);
        layout_.SetOfObject(info, "Info.PrivateObject", random_.Chance(50) ? kReserved : layout_.Somewhere());
        layout_.SetOfObject(info, "Info.Reserved", kReserved);
        layout_.SetOfObject(info, "Info.Object", descriptor);
        layout_.SetOfObject(info, "Info.ProjectData", layout_.Somewhere());
        layout_.SetOfObject(info, "Info.MethodCount", methods);
        layout_.SetOfObject(info, "Info.MethodCount2", methods);
        layout_.SetOfObject(info, "Info.Methods", layout_.Somewhere());
        layout_.SetOfObject(info, "Info.Constants", random_.Between(3, 60));
        layout_.SetOfObject(info, "Info.MaxConstants", random_.Between(60, 90));
        layout_.SetOfObject(info, "Info.ConstantPool", layout_.Somewhere());
    }

    void WriteOptionalInfo(uint32_t optional, uint32_t methods) {
        layout_.SetOfObject(optional, "Optional.GuidCount", random_.Between(1, 3));
        layout_.SetOfObject(optional, "Optional.ObjectClsid", layout_.Somewhere());
        layout_.SetOfObject(optional, "Optional.GuidTypes", layout_.Somewhere());
        layout_.SetOfObject(optional, "Optional.GuidTypeCount", random_.Between(1, 3));
        layout_.SetOfObject(optional, "Optional.Controls2", layout_.Somewhere());
        layout_.SetOfObject(optional, "Optional.ObjectGuid2", layout_.Somewhere());
        layout_.SetOfObject(optional, "Optional.ControlCount", random_.Between(1, 12));
        layout_.SetOfObject(optional, "Optional.Controls", layout_.Somewhere());
        layout_.SetOfObject(optional, "Optional.EventCount", random_.Below(8U));
        layout_.SetOfObject(optional, "Optional.PCodeCount", is_native_ ? 0 : methods);
        layout_.SetOfObject(optional, "Optional.InitializeEvent", random_.Below(0x60U));
        layout_.SetOfObject(optional, "Optional.TerminateEvent", random_.Below(0x60U));
        layout_.SetOfObject(optional, "Optional.EventLinks", layout_.Somewhere());
    }

    const RulePlan &plan_;
    const std::string &family_;
    uint32_t address_; // of the section
    Random &random_;
    VbProject project_;
    Layout layout_;
    uint32_t object_count_ = 0;
    uint32_t forms_ = 0;
    uint32_t externals_ = 0;
    bool is_native_ = false;
    uint32_t language_ = 0;
    // Virtual addresses of the structures.
    uint32_t header_ = 0;
    uint32_t info_ = 0;
    uint32_t table_ = 0;
    uint32_t com_ = 0;
    uint32_t project2_ = 0;
    uint32_t form_table_ = 0;
    uint32_t external_table_ = 0;
    uint32_t objects_ = 0;
};

} // namespace

VbProject MakeVbProject(const RulePlan &plan, const std::string &family, uint32_t address, Random &random) {
    return Maker(plan, family, address, random).Make();
}

} // namespace tavrik::generator
