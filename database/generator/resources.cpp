#include "database/generator/resources.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "database/generator/names.h"
#include "pe/format.h"
#include "rules/names.h"
#include "rules/numbers.h"
#include "rules/regions.h"

namespace tavrik::generator {
namespace {

using pe::builder::ResourceId;
using rules::RegionKind;
using rules::SectionRole;

using pe::builder::kEnglish;

constexpr uint16_t kLanguages[] = {kEnglish, kEnglish, kEnglish, kEnglish, kEnglish, kEnglish, 0x804, 0x419};

namespace resource_type = pe::resource_type;
using pe::kStringsOfBlock;

namespace resource_key = rules::resource_key;

std::u16string Wide(std::string_view text) {
    return std::u16string(text.begin(), text.end());
}

class Resources {
public:
    Resources(const RulePlan &plan, const std::string &family, Random &random)
        : plan_(plan), family_(family), random_(random), language_(random.Pick(kLanguages)) {}

    PlannedResources Make() {
        AddEntries();
        AddTypes();
        AddStrings();
        if (plan_.number_resource || (NeedsSome() && planned_.table.resources.empty()))
            AddIcons();
        return std::move(planned_);
    }

private:
    bool NeedsSome() {
        constexpr auto kIsOfResources = [](rules::CodedRegion region) {
            return region.kind == RegionKind::ResourceData || region.role == SectionRole::Resource;
        };
        return std::ranges::any_of(plan_.string_kinds, kIsOfResources, rules::RegionOfString) ||
               std::ranges::any_of(plan_.measure_regions, kIsOfResources, rules::RegionOfMeasure) || random_.Chance(60);
    }

    bool Add(const ResourceId &type, const ResourceId &name, uint16_t language, base::Bytes data) {
        if (!used_.emplace(type, name, language).second)
            return false;
        planned_.table.resources.push_back({type, name, language, std::move(data)});
        return true;
    }

    base::Bytes Data(uint32_t least, uint32_t most) {
        base::Bytes data(random_.Between(least, most));
        for (uint8_t &byte : data)
            byte = random_.Chance(50) ? random_.NextByte() : 0;
        data.front() = static_cast<uint8_t>(data.front() | 1);
        data.back() = static_cast<uint8_t>(data.back() | 1);
        return data;
    }

    void AddIcons() {
        for (uint16_t i = 1; i <= 2; ++i)
            Add(resource_type::kIcon, i, language_, Data(0x60, 0x128));
        Add(resource_type::kGroupIcon, uint16_t{101}, language_, Data(0x14, 0x22));
    }

    void AddEntries() {
        for (const uint16_t type : plan_.resource_types) {
            const bool is_named = type == resource_type::kRcData ? random_.Chance(40) : random_.Chance(6);
            auto number = static_cast<uint16_t>(
                type == resource_type::kIcon ? 1 : random_.Pick(std::initializer_list<uint16_t>{1, 100, 101, 128}));
            ResourceId name = number;
            if (is_named)
                name = Wide(random_.Pick(ResourceNames()));
            const base::Bytes data = Data(0x18, 0x60);
            while (!Add(type, name, language_, data))
                name = ++number;
        }
    }

    // A type or entry by number, or by name; some named ones are required to be absent.
    void AddTypes() {
        for (const uint32_t wanted : plan_.resource_numbers) {
            rules::ResourceTypeEntry entry;
            entry.number = wanted;
            entry.level = random_.Chance(60) ? rules::kResourceTypeLevel : rules::kResourceEntryLevel;
            entry.language = random_.Chance(40) ? language_ : uint16_t{0};
            ResourceId id = static_cast<uint16_t>(wanted);
            if (wanted == rules::kAnyResource) {
                entry.absent = random_.Chance(20) ? 1 : 0;
                entry.name =
                    random_.Pick(entry.level == rules::kResourceTypeLevel ? ResourceTypeNames() : ResourceNames());
                if (entry.absent != 0) {
                    entry.name = "NO" + SmallWord(random_);
                    entry.language = 0;
                }
            }
            const bool repeated = std::ranges::any_of(planned_.types, [&](const rules::ResourceTypeEntry &other) {
                return other.number == entry.number && other.name == entry.name && other.level == entry.level;
            });
            if (repeated && wanted != rules::kAnyResource)
                entry.level = 3 - entry.level;
            else if (repeated)
                entry.name += std::to_string(planned_.types.size());
            if (!entry.name.empty())
                id = Wide(entry.name);
            if (entry.absent == 0) {
                if (entry.level == rules::kResourceTypeLevel)
                    Add(id, uint16_t{1}, language_, Data(0x18, 0x50));
                else
                    Add(resource_type::kRcData, id, language_, Data(0x18, 0x50));
            }
            planned_.types.push_back(std::move(entry));
        }
    }

    // Words and numbers are drawn one after the other: the operands of + have no order.
    std::string TwoWords() {
        std::string text = FamilyWord(random_.Next());
        text += " " + SmallWord(random_);
        return text;
    }

    std::string VersionText(uint32_t key) {
        std::string text;
        switch (key) {
        case 4:
        case 11:
        case resource_key::kAssemblyVersion:
            for (const uint32_t limit : {9U, 20U, 999U})
                text += (text.empty() ? "" : ".") + std::to_string(random_.Below(limit));
            return text;
        case 5:
            return SmallWord(random_);
        case 8:
            return SmallWord(random_) + ".exe";
        case 6:
            text = "Copyright (C) " + std::to_string(random_.Between(1999, 2013)) + " ";
            text += FamilyWord(random_.Next());
            return text;
        default:
            text = FamilyWord(random_.Next()) + " ";
            text += random_.Chance(50) ? family_ : FamilyWord(random_.Next());
            return text;
        }
    }

    static std::string Dotted(const uint16_t (&version)[4]) {
        std::string text;
        for (const uint16_t part : version)
            text += (text.empty() ? "" : ".") + std::to_string(part);
        return text;
    }

    void AddStrings() {
        pe::builder::VersionInfo version;
        version.language = language_;
        bool has_version = plan_.string_keys.empty() && random_.Chance(30);
        bool has_manifest = false;
        for (uint16_t *part : {&version.file_version[0], &version.file_version[2], &version.product_version[1]})
            *part = static_cast<uint16_t>(random_.Below(40U));
        std::map<std::string, std::string> manifest = {
            {"name", family_ + "." + SmallWord(random_)},
            {"version", "1.0." + std::to_string(random_.Below(90U)) + ".0"},
            {"description", TwoWords()},
            {"level", random_.Chance(50) ? "asInvoker" : "requireAdministrator"}};
        std::map<uint32_t, std::string> table;
        for (const StringKey &wanted : plan_.string_keys) {
            rules::ResourceString text;
            text.type = wanted.type;
            text.key = wanted.key;
            text.language = random_.Chance(60) ? language_ : uint16_t{0};
            if (wanted.type == resource_type::kVersion) {
                has_version = true;
                text.id = random_.Chance(70) ? 1 : rules::kAnyResource;
                if (wanted.key == resource_key::kFixedFileVersion)
                    text.text = Dotted(version.file_version);
                else if (wanted.key == resource_key::kFixedProductVersion)
                    text.text = Dotted(version.product_version);
                else if (wanted.key == 0 && !version.strings.empty())
                    text.text =
                        std::string(version.strings.front().second.begin(), version.strings.front().second.end());
                else
                    text.text = AddVersionString(version, wanted.key == 0 ? 3 : wanted.key);
            } else if (wanted.type == resource_type::kManifest) {
                has_manifest = true;
                text.id = random_.Chance(70) ? 1 : rules::kAnyResource;
                text.text = ManifestText(manifest, wanted.key);
            } else {
                text.id = random_.Chance(50) ? wanted.key / kStringsOfBlock + 1 : rules::kAnyResource;
                text.text = TwoWords() + " " + std::to_string(wanted.key);
                table[wanted.key] = text.text;
            }
            planned_.strings.push_back(std::move(text));
        }
        if (has_version) {
            if (version.strings.empty())
                AddVersionString(version, 3);
            Add(resource_type::kVersion, uint16_t{1}, language_, version.Lay());
        }
        if (has_manifest)
            Add(resource_type::kManifest, uint16_t{1}, language_, LayManifest(manifest));
        AddStringTable(table);
    }

    std::string AddVersionString(pe::builder::VersionInfo &version, uint32_t key) {
        std::string text = VersionText(key);
        version.strings.emplace_back(Wide(rules::VersionKeyText(key)), Wide(text));
        return text;
    }

    static std::string ManifestText(const std::map<std::string, std::string> &manifest, uint32_t key) {
        switch (key) {
        case 31:
            return manifest.at("version");
        case 32:
            return "X86";
        case 33:
            return manifest.at("description");
        case 34:
            return manifest.at("level");
        case 35:
            return "Microsoft.Windows.Common-Controls";
        default:
            return manifest.at("name");
        }
    }

    static base::Bytes LayManifest(const std::map<std::string, std::string> &manifest) {
        const std::string text =
            "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\r\n"
            "<assembly xmlns=\"urn:schemas-microsoft-com:asm.v1\" manifestVersion=\"1.0\">\r\n"
            "<assemblyIdentity version=\"" +
            manifest.at("version") + "\" processorArchitecture=\"X86\" name=\"" + manifest.at("name") +
            "\" type=\"win32\"/>\r\n<description>" + manifest.at("description") +
            "</description>\r\n<dependency><dependentAssembly><assemblyIdentity type=\"win32\" "
            "name=\"Microsoft.Windows.Common-Controls\" version=\"6.0.0.0\" processorArchitecture=\"X86\"/>"
            "</dependentAssembly></dependency>\r\n<requestedExecutionLevel level=\"" +
            manifest.at("level") + "\" uiAccess=\"false\"/>\r\n</assembly>\r\n";
        return base::Bytes(text.begin(), text.end());
    }

    // Blocks of 16 strings, each with its length before it.
    void AddStringTable(const std::map<uint32_t, std::string> &table) {
        std::map<uint32_t, std::map<uint32_t, std::string>> blocks;
        for (const auto &[number, text] : table)
            blocks[number / kStringsOfBlock][number % kStringsOfBlock] = text;
        for (auto &[block, texts] : blocks) {
            base::ByteWriter writer;
            for (uint32_t i = 0; i < kStringsOfBlock; ++i) {
                const std::u16string text = Wide(texts[i]);
                writer.U16(static_cast<uint32_t>(text.size()));
                writer.Utf16(text);
            }
            Add(resource_type::kString, static_cast<uint16_t>(block + 1), language_, writer.Take());
        }
    }

    const RulePlan &plan_;
    const std::string &family_;
    Random &random_;
    uint16_t language_;
    PlannedResources planned_;
    std::set<std::tuple<ResourceId, ResourceId, uint16_t>> used_;
};

} // namespace

PlannedResources MakeResources(const RulePlan &plan, const std::string &family, Random &random) {
    return Resources(plan, family, random).Make();
}

} // namespace tavrik::generator
