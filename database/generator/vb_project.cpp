#include "database/generator/vb_project.h"

#include <algorithm>
#include <cstring>

#include "database/generator/names.h"

namespace tavrik::generator {
namespace {

constexpr uint32_t kSignature = 0x21354256;
constexpr uint32_t kEnglish = 0x409;
constexpr uint32_t kOtherLanguages[] = {0x804, 0x419, 0x416, 0x407, 0x40C, 0x41F};

constexpr uint32_t kHeaderSize = 0x68;
constexpr uint32_t kProjectSize = 0x23C;
constexpr uint32_t kObjectTableSize = 0x54;
constexpr uint32_t kComDataSize = 0x2C;
constexpr uint32_t kProject2Size = 0x28;
constexpr uint32_t kFormSize = 0x50;
constexpr uint32_t kExternalSize = 8;
constexpr uint32_t kObjectSize = 0x30;
constexpr uint32_t kObjectInfoSize = 56;
constexpr uint32_t kObjectOptionalSize = 64;

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

    void Word(uint32_t structure, uint32_t offset, uint32_t value) {
        Put(structure + offset, static_cast<uint16_t>(value));
    }
    void Long(uint32_t structure, uint32_t offset, uint32_t value) { Put(structure + offset, value); }

    void Uuid(uint32_t structure, uint32_t offset) {
        for (uint32_t i = 0; i < 16; i += 4)
            Long(structure, offset + i, random_.Next32());
    }

    // Some address in the project's own code or data.
    uint32_t Somewhere() { return address_ + random_.Below(0x2000U); }

private:
    template <typename Value>
    void Put(uint32_t address, Value value) {
        std::memcpy(content_.bytes.data() + (address - address_), &value, sizeof value);
    }

    Content &content_;
    uint32_t address_;
    Random &random_;
};

std::vector<VbObject> ChooseObjects(const RulePlan &plan, Random &random) {
    const uint32_t wanted = std::max(plan.counts[kObjectNames], plan.counts[kSecondaryConditions] / 30 + 1);
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

} // namespace

VbProject MakeVbProject(const RulePlan &plan, const std::string &family, uint32_t address, Random &random) {
    const uint32_t thunks = random.Between(6, 24);
    VbProject project;
    Content &content = project.content;
    Layout layout(content, address, random);
    project.objects = ChooseObjects(plan, random);
    const auto object_count = static_cast<uint32_t>(project.objects.size());
    const auto forms = static_cast<uint32_t>(std::ranges::count_if(project.objects, &VbObject::is_form));
    const uint32_t externals = random.Chance(25) ? random.Between(24, kMostExternals) : random.Below(9U);
    const bool is_native = (plan.traits & 128) != 0 || random.Chance(50);

    // Jumps to the runtime, then the entry: push the header's address, call the runtime.
    for (uint32_t i = 0; i < thunks; ++i) {
        content.bytes.insert(content.bytes.end(), {0xFF, 0x25});
        const uint32_t thunk = address + 4 * i;
        for (uint32_t shift = 0; shift < 32; shift += 8)
            content.bytes.push_back(static_cast<uint8_t>(thunk >> shift));
    }
    const uint32_t entry = layout.Reserve(16);
    project.entry = entry - address;

    const uint32_t header = layout.Reserve(kHeaderSize);
    const uint32_t info = layout.Reserve(kProjectSize);
    const uint32_t table = layout.Reserve(kObjectTableSize);
    const uint32_t com = layout.Reserve(kComDataSize);
    const uint32_t project2 = layout.Reserve(kProject2Size);
    const uint32_t form_table = layout.Reserve(kFormSize * forms);
    const uint32_t external_table = layout.Reserve(kExternalSize * std::max(externals, 1U));
    const uint32_t objects = layout.Reserve(kObjectSize * object_count);
    const uint32_t language = random.Chance(85) ? kEnglish : random.Pick(kOtherLanguages);

    content.bytes[project.entry] = 0x68;
    layout.Long(entry, 1, header);
    content.bytes[project.entry + 5] = 0xE8;
    layout.Long(entry, 6, 0 - (project.entry + 10)); // to the first jump

    layout.Long(header, 0, kSignature);
    layout.Word(header, 4, 0x1000 + random.Below(0x600U));
    content.bytes[header - address + 6] = '*'; // no language library
    layout.Word(header, 0x22, random.Below(16U));
    layout.Long(header, 0x24, language);
    layout.Long(header, 0x28, random.Chance(70) ? 0 : kEnglish);
    layout.Long(header, 0x2C, random.Chance(50) ? layout.Somewhere() : 0);
    layout.Long(header, 0x30, info);
    layout.Long(header, 0x34, 0x30F000 | random.Below(0x1000U));
    layout.Long(header, 0x38, 0xFFFFFF00);
    layout.Long(header, 0x3C, 8);
    layout.Long(header, 0x40, plan.vb_thread_count == CountedTest::Other ? random.Between(2, 6) : 1);
    layout.Word(header, 0x44, forms);
    layout.Word(header, 0x46, externals);
    layout.Long(header, 0x48, random.Between(0xE0, 0x1F0));
    layout.Long(header, 0x4C, form_table);
    layout.Long(header, 0x50, external_table);
    layout.Long(header, 0x54, com);
    constexpr uint32_t kDescription = 0x78; // into the header, as the runtime writes it
    layout.Long(header, 0x58, kDescription);
    layout.Long(header, 0x5C, kDescription + random.Between(6, 20));
    layout.Long(header, 0x60, kDescription + random.Between(21, 40));
    layout.Long(header, 0x64, kDescription + random.Between(41, 60));

    layout.Long(info, 0, plan.vb_version == CountedTest::Other ? random.Between(501, 504) : 500);
    layout.Long(info, 4, table);
    layout.Long(info, 0xC, address + random.Below(0x800U));
    layout.Long(info, 0x10, address + 0x800 + random.Below(0x1800U));
    layout.Long(info, 0x14, random.Between(4, 0x200) * 4);
    layout.Long(info, 0x18, layout.Somewhere());
    layout.Long(info, 0x1C, layout.Somewhere());
    layout.Long(info, 0x20, is_native ? layout.Somewhere() : 0);
    layout.Long(info, 0x234, external_table);
    layout.Long(info, 0x238, externals);

    layout.Long(table, 4, layout.Somewhere());
    layout.Long(table, 8, project2);
    layout.Long(table, 0xC, 0xFFFFFFFF);
    layout.Long(table, 0x14, layout.Somewhere());
    layout.Uuid(table, 0x18);
    layout.Word(table, 0x28, random.Between(2, 0x33));
    layout.Word(table, 0x2A, object_count);
    layout.Word(table, 0x2C, object_count);
    layout.Word(table, 0x2E, object_count);
    layout.Long(table, 0x30, objects);
    layout.Long(table, 0x40, layout.Text(family + SmallWord(random)));
    layout.Long(table, 0x44, language);
    layout.Long(table, 0x48, language);
    layout.Long(table, 0x50, random.Between(1, 4));

    layout.Long(com, 0, random.Chance(50) ? 0 : 0x30);
    layout.Long(com, 4, 0x30 + random.Below(0x20U));
    layout.Long(com, 8, 0x50 + random.Below(0x20U));
    layout.Uuid(com, 0x10);
    layout.Long(com, 0x20, language);
    layout.Word(com, 0x24, random.Below(3U));
    layout.Word(com, 0x26, random.Between(1, 9));
    layout.Word(com, 0x28, random.Below(10U));

    layout.Long(project2, 4, table);
    layout.Long(project2, 8, 0xFFFFFFFF);
    layout.Long(project2, 0x10, layout.Somewhere());
    layout.Long(project2, 0x18, layout.Somewhere());
    layout.Long(project2, 0x1C, layout.Somewhere());
    layout.Long(project2, 0x20, 0xFFFFFFFF);
    layout.Long(project2, 0x24, random.Below(5U));

    for (uint32_t i = 0; i < forms; ++i) {
        const uint32_t form = form_table + kFormSize * i;
        layout.Long(form, 0, kFormSize);
        layout.Uuid(form, 4);
        layout.Long(form, 0x24, i + 1);
        layout.Long(form, 0x2C, 0x10000 | random.Below(0x1000U));
        layout.Uuid(form, 0x30);
        layout.Long(form, 0x44, random.Between(0x90, 0x400));
        layout.Long(form, 0x48, layout.Somewhere());
        layout.Long(form, 0x4C, random.Between(0x4C, 0x120));
    }

    for (uint32_t i = 0; i < externals; ++i) {
        constexpr uint32_t kDeclaredFunction = 7;
        constexpr uint32_t kTypeLibrary = 6;
        layout.Long(external_table, kExternalSize * i, random.Chance(90) ? kDeclaredFunction : kTypeLibrary);
        const uint32_t descriptor = layout.Reserve(8);
        layout.Long(external_table, kExternalSize * i + 4, descriptor);
        const ModuleFunctions &module = Modules()[i % 5];
        const uint32_t module_name = layout.Text(module.name);
        layout.Long(descriptor, 0, module_name);
        layout.Long(descriptor, 4, layout.Text(random.Pick(module.functions)));
    }

    for (uint32_t i = 0; i < object_count; ++i) {
        const VbObject &object = project.objects[i];
        const uint32_t descriptor = objects + kObjectSize * i;
        const uint32_t object_info = layout.Reserve(kObjectInfoSize + (object.is_form ? kObjectOptionalSize : 0));
        const auto methods = static_cast<uint32_t>(object.methods.size());
        const uint32_t method_names = layout.Reserve(4 * methods);

        layout.Long(descriptor, 0, object_info);
        layout.Long(descriptor, 4, 0xFFFFFFFF);
        layout.Long(descriptor, 8, layout.Somewhere());
        layout.Long(descriptor, 0xC, random.Chance(50) ? 0 : layout.Somewhere());
        layout.Long(descriptor, 0x10, layout.Somewhere());
        layout.Long(descriptor, 0x14, random.Chance(50) ? 0 : layout.Somewhere());
        layout.Long(descriptor, 0x18, layout.Text(object.name));
        layout.Long(descriptor, 0x1C, methods);
        layout.Long(descriptor, 0x20, method_names);
        layout.Long(descriptor, 0x24, random.Below(0x80U));
        layout.Long(descriptor, 0x28, object.is_form ? kFormType : kModuleType);
        for (uint32_t k = 0; k < methods; ++k)
            layout.Long(method_names, 4 * k, layout.Text(object.methods[k]));

        layout.Word(object_info, 0, 1);
        layout.Word(object_info, 2, i);
        layout.Long(object_info, 4, table);
        layout.Long(object_info, 0xC, random.Chance(50) ? 0xFFFFFFFF : layout.Somewhere());
        layout.Long(object_info, 0x10, 0xFFFFFFFF);
        layout.Long(object_info, 0x18, descriptor);
        layout.Long(object_info, 0x1C, layout.Somewhere());
        layout.Word(object_info, 0x20, methods);
        layout.Word(object_info, 0x22, methods);
        layout.Long(object_info, 0x24, layout.Somewhere());
        layout.Word(object_info, 0x28, random.Between(3, 60));
        layout.Word(object_info, 0x2A, random.Between(60, 90));
        layout.Long(object_info, 0x34, layout.Somewhere());
        if (!object.is_form)
            continue;
        const uint32_t optional = object_info + kObjectInfoSize;
        layout.Long(optional, 0, random.Between(1, 3));
        layout.Long(optional, 4, layout.Somewhere());
        layout.Long(optional, 0xC, layout.Somewhere());
        layout.Long(optional, 0x10, random.Between(1, 3));
        layout.Long(optional, 0x14, layout.Somewhere());
        layout.Long(optional, 0x1C, layout.Somewhere());
        layout.Long(optional, 0x20, random.Between(1, 12));
        layout.Long(optional, 0x24, layout.Somewhere());
        layout.Word(optional, 0x28, random.Below(8U));
        layout.Word(optional, 0x2A, is_native ? 0 : methods);
        layout.Word(optional, 0x2C, random.Below(0x60U));
        layout.Word(optional, 0x2E, random.Below(0x60U));
        layout.Long(optional, 0x30, layout.Somewhere());
    }
    return project;
}

} // namespace tavrik::generator
