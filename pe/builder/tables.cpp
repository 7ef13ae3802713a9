#include "pe/builder/tables.h"

#include <algorithm>
#include <map>
#include <stdexcept>

#include "pe/format.h"

namespace tavrik::pe::builder {
namespace {

using namespace resource_directory;

constexpr uint32_t kDataAlignment = 4;

// Texts sort before numbers.
struct IdOrder {
    bool operator()(const ResourceId &left, const ResourceId &right) const {
        if (left.index() != right.index())
            return left.index() > right.index();
        return left < right;
    }
};

template <typename Value>
using ById = std::map<ResourceId, Value, IdOrder>;
using Languages = std::map<uint16_t, std::size_t>; // to the index of the resource
using Names = ById<Languages>;
using Types = ById<Names>;

Types Sort(const ResourceTable &table) {
    Types types;
    for (std::size_t index = 0; index < table.resources.size(); ++index) {
        const Resource &resource = table.resources[index];
        if (!types[resource.type][resource.name].emplace(resource.language, index).second)
            throw std::invalid_argument("two resources have the same type, name and language");
    }
    return types;
}

template <typename Map>
uint32_t DirectoryLength(const Map &entries) {
    return kHeaderSize + kEntrySize * static_cast<uint32_t>(entries.size());
}

// Where the texts are; equal ones are stored once.
class NamePool {
public:
    void Add(const ResourceId &id) {
        if (const auto *text = std::get_if<std::u16string>(&id))
            places_.emplace(*text, 0);
    }

    // Gives each text its place from `offset` on and returns the offset after them.
    uint32_t Place(uint32_t offset) {
        for (auto &[text, place] : places_) {
            place = offset;
            offset += 2 + 2 * static_cast<uint32_t>(text.size());
        }
        return offset;
    }

    void Write(base::ByteWriter &writer) const {
        for (const auto &[text, place] : places_) {
            writer.U16(static_cast<uint32_t>(text.size()));
            writer.Utf16(text);
        }
    }

    uint32_t Reference(const ResourceId &id) const {
        if (const auto *text = std::get_if<std::u16string>(&id))
            return kFlag | places_.at(*text);
        return std::get<uint16_t>(id);
    }

private:
    std::map<std::u16string, uint32_t> places_;
};

template <typename Map>
uint32_t CountTexts(const Map &entries) {
    return static_cast<uint32_t>(std::count_if(entries.begin(), entries.end(), [](const auto &entry) {
        return std::holds_alternative<std::u16string>(entry.first);
    }));
}

void WriteDirectoryHeader(base::ByteWriter &writer, uint32_t texts, std::size_t entries) {
    writer.U32(0); // Characteristics
    writer.U32(0); // TimeDateStamp
    writer.U32(0); // MajorVersion, MinorVersion
    writer.U16(texts);
    writer.U16(static_cast<uint32_t>(entries) - texts);
}

// A version resource's block: its length in front, then what `write_value` appends, all on 32-bit boundaries.
template <typename WriteValue>
void WriteVersionBlock(base::ByteWriter &writer, std::u16string_view key, uint32_t value_length, bool is_text,
                       WriteValue write_value) {
    writer.Align(4);
    const uint32_t start = writer.size();
    writer.U16(0);
    writer.U16(value_length);
    writer.U16(is_text ? 1 : 0);
    writer.Utf16(key);
    writer.U16(0);
    writer.Align(4);
    write_value();
    writer.SetU16(start, writer.size() - start);
}

std::u16string HexDigits(uint32_t value, int digits) {
    std::u16string text;
    for (int digit = digits - 1; digit >= 0; --digit)
        text += u"0123456789ABCDEF"[(value >> (4 * digit)) & 0xF];
    return text;
}

// The directories of the three levels. `data_entries` is the offset of the first data entry.
void WriteDirectories(base::ByteWriter &writer, const Types &types, const NamePool &names, uint32_t data_entries) {
    uint32_t target = DirectoryLength(types);
    WriteDirectoryHeader(writer, CountTexts(types), types.size());
    for (const auto &[type, type_names] : types) {
        writer.U32(names.Reference(type));
        writer.U32(kFlag | target);
        target += DirectoryLength(type_names);
    }
    for (const auto &[type, type_names] : types) {
        WriteDirectoryHeader(writer, CountTexts(type_names), type_names.size());
        for (const auto &[name, languages] : type_names) {
            writer.U32(names.Reference(name));
            writer.U32(kFlag | target);
            target += DirectoryLength(languages);
        }
    }
    for (const auto &[type, type_names] : types) {
        for (const auto &[name, languages] : type_names) {
            WriteDirectoryHeader(writer, 0, languages.size());
            for (const auto &[language, index] : languages) {
                writer.U32(language);
                writer.U32(data_entries + kDataEntrySize * static_cast<uint32_t>(index));
            }
        }
    }
}

// The offset of each resource's data, from `end` of the directory on.
std::vector<uint32_t> PlaceData(const ResourceTable &table, uint32_t end) {
    std::vector<uint32_t> places;
    for (const Resource &resource : table.resources) {
        const uint32_t place = resource.offset.value_or(base::AlignUp(end, kDataAlignment));
        if (place < end)
            throw std::invalid_argument("a resource's data is placed upon the directory or the resource before it");
        places.push_back(place);
        end = base::InFile(uint64_t{place} + resource.data.size());
    }
    return places;
}

} // namespace

LaidTable LayOut(const ResourceTable &table, uint32_t rva) {
    const Types types = Sort(table);

    // The levels follow each other, then the texts, the data entries and the data.
    NamePool names;
    uint32_t texts_start = DirectoryLength(types);
    for (const auto &[type, type_names] : types) {
        names.Add(type);
        texts_start += DirectoryLength(type_names);
        for (const auto &[name, languages] : type_names) {
            names.Add(name);
            texts_start += DirectoryLength(languages);
        }
    }
    const uint32_t data_entries = base::AlignUp(names.Place(texts_start), kDataAlignment);
    const std::vector<uint32_t> places =
        PlaceData(table, data_entries + kDataEntrySize * static_cast<uint32_t>(table.resources.size()));

    base::ByteWriter writer;
    WriteDirectories(writer, types, names, data_entries);
    names.Write(writer);
    writer.FillTo(data_entries);
    for (std::size_t index = 0; index < places.size(); ++index) {
        writer.U32(rva + places[index]);
        writer.U32(static_cast<uint32_t>(table.resources[index].data.size()));
        writer.U32(table.resources[index].CodePage);
        writer.U32(0); // Reserved
    }
    for (std::size_t index = 0; index < places.size(); ++index) {
        writer.FillTo(places[index]);
        writer.Append(table.resources[index].data);
    }
    const uint32_t size = writer.size();
    return {writer.Take(), {0, size}, std::nullopt};
}

LaidTable LayOut(const ImportTable &table, uint32_t rva, bool is_pe32_plus) {
    const uint32_t thunk_size = ThunkSize(is_pe32_plus);
    const uint64_t by_ordinal = uint64_t{1} << (8 * thunk_size - 1);

    const auto descriptors_size = import_descriptor::kSize * (static_cast<uint32_t>(table.modules.size()) + 1);
    const uint32_t lookup_start = base::AlignUp(descriptors_size, 8);
    uint32_t thunks_size = 0;
    for (const ImportedModule &module : table.modules)
        thunks_size += thunk_size * (static_cast<uint32_t>(module.functions.size()) + 1);
    const uint32_t address_start = lookup_start + thunks_size;

    // The texts come last; the two equal thunk arrays refer to them.
    base::ByteWriter texts;
    const uint32_t texts_rva = rva + address_start + thunks_size;
    base::ByteWriter descriptors;
    base::ByteWriter thunks;
    const auto put_thunk = [&](uint64_t value) {
        is_pe32_plus ? thunks.U64(value) : thunks.U32(static_cast<uint32_t>(value));
    };
    for (const ImportedModule &module : table.modules) {
        descriptors.U32(rva + lookup_start + thunks.size());
        descriptors.U32(0); // TimeDateStamp
        descriptors.U32(0); // ForwarderChain
        descriptors.U32(texts_rva + texts.size());
        descriptors.U32(rva + address_start + thunks.size());
        texts.Text(module.name);
        for (const ImportedFunction &function : module.functions) {
            if (function.name.empty()) {
                put_thunk(by_ordinal | function.ordinal);
                continue;
            }
            texts.Align(2);
            put_thunk(texts_rva + texts.size());
            texts.U16(function.ordinal);
            texts.Text(function.name);
        }
        put_thunk(0);
    }
    descriptors.FillTo(lookup_start);

    LaidTable laid{descriptors.Take(), {0, descriptors_size}, LaidTable::Place{address_start, thunks_size}};
    const base::Bytes thunk_bytes = thunks.Take();
    for (const base::Bytes &part : {thunk_bytes, thunk_bytes, texts.Take()})
        laid.bytes.insert(laid.bytes.end(), part.begin(), part.end());
    return laid;
}

LaidTable LayOut(const ExportTable &table, uint32_t rva) {
    std::map<std::string, uint32_t> named; // sorted, as the loader searches them
    for (std::size_t index = 0; index < table.functions.size(); ++index) {
        if (!table.functions[index].name.empty())
            named.emplace(table.functions[index].name, static_cast<uint32_t>(index));
    }
    const auto function_count = static_cast<uint32_t>(table.functions.size());
    const auto name_count = static_cast<uint32_t>(named.size());
    const uint32_t addresses = export_directory::kSize;
    const uint32_t name_pointers = addresses + 4 * function_count;
    const uint32_t ordinals = name_pointers + 4 * name_count;
    const uint32_t texts_rva = rva + ordinals + 2 * name_count;

    base::ByteWriter texts;
    base::ByteWriter writer;
    writer.U32(0); // Characteristics
    writer.U32(0); // TimeDateStamp
    writer.U32(0); // MajorVersion, MinorVersion
    writer.U32(texts_rva);
    texts.Text(table.module_name);
    writer.U32(table.ordinal_base);
    writer.U32(function_count);
    writer.U32(name_count);
    writer.U32(rva + addresses);
    writer.U32(rva + name_pointers);
    writer.U32(rva + ordinals);
    for (const ExportedFunction &function : table.functions) {
        writer.U32(function.forwarder.empty() ? function.rva : texts_rva + texts.size());
        if (!function.forwarder.empty())
            texts.Text(function.forwarder);
    }
    for (const auto &[name, index] : named) {
        writer.U32(texts_rva + texts.size());
        texts.Text(name);
    }
    for (const auto &[name, index] : named)
        writer.U16(index);
    writer.Append(texts.Take());
    const uint32_t size = writer.size();
    return {writer.Take(), {0, size}, std::nullopt};
}

base::Bytes VersionInfo::Lay() const {
    using namespace version_resource;
    constexpr uint32_t kFixedInfoVersion = 0x10000;
    constexpr uint32_t kFlagsMask = 0x3F;
    constexpr uint32_t kWindows32 = 0x40004;
    constexpr uint32_t kApplication = 1;

    base::ByteWriter writer;
    const auto put_version = [&](const uint16_t(&version)[4]) {
        writer.U32(uint32_t{version[0]} << 16 | version[1]);
        writer.U32(uint32_t{version[2]} << 16 | version[3]);
    };
    WriteVersionBlock(writer, u"VS_VERSION_INFO", kFixedInfoSize, false, [&] {
        writer.U32(kFixedInfoSignature);
        writer.U32(kFixedInfoVersion);
        put_version(file_version);
        put_version(product_version);
        writer.U32(kFlagsMask);
        writer.U32(0); // no flags
        writer.U32(kWindows32);
        writer.U32(kApplication);
        writer.U32(0); // subtype
        writer.U64(0); // date
        WriteVersionBlock(writer, kStringFileInfo, 0, true, [&] {
            const std::u16string table = HexDigits(language, 4) + HexDigits(code_page, 4);
            WriteVersionBlock(writer, table, 0, true, [&] {
                for (const auto &string : strings) {
                    const auto units = static_cast<uint32_t>(string.second.size()) + 1;
                    WriteVersionBlock(writer, string.first, units, true, [&] {
                        writer.Utf16(string.second);
                        writer.U16(0);
                    });
                }
            });
        });
        WriteVersionBlock(writer, u"VarFileInfo", 0, true, [&] {
            WriteVersionBlock(writer, u"Translation", 4, false, [&] {
                writer.U16(language);
                writer.U16(code_page);
            });
        });
    });
    return writer.Take();
}

} // namespace tavrik::pe::builder
