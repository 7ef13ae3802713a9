#include "store/tokens.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/characters.h"
#include "rules/model.h"
#include "rules/numbers.h"

namespace tavrik::store {

namespace {

// What a token's name is a name of. Part of the format.
enum class Kind : uint8_t {
    Module = 1,     // an imported module, in lower case
    Function,       // an imported function, or "#" and its ordinal
    ExportModule,   // the module's own name, in lower case
    ExportFunction, // an exported name
    ResourceType,   // a number
    ResourceTypeName,
    ResourceEntry,     // a number
    ResourceEntryName, // in lower case
    ResourcePair,      // the numbers of a type and an entry
    ResourceLanguage,  // a number
    VersionText,       // a key and a text of version resources
    ManifestText,      // a key and a text of manifests
    Object,            // a Visual Basic object, in lower case
    Member,            // a method of one, in lower case
};

constexpr auto kEqualOperator = static_cast<uint8_t>(rules::Operator::Equal);

// Keys of manifests whose texts are compared as a whole.
constexpr uint32_t kFirstManifestKey = 30;
constexpr uint32_t kLastManifestKey = 35;

// More than all version resources or manifests of a file can have.
constexpr std::size_t kMostTexts = 65536;

// FNV-1a with a finishing mix, of which the high half is taken. Part of the format.
Token HashOf(Kind kind, std::string_view text) {
    uint64_t hash = 0xCBF29CE484222325;
    const auto add = [&hash](uint8_t byte) { hash = (hash ^ byte) * 0x100000001B3; };
    add(static_cast<uint8_t>(kind));
    for (const char c : text)
        add(static_cast<uint8_t>(c));
    hash = (hash ^ hash >> 33) * 0xFF51AFD7ED558CCD;
    hash = (hash ^ hash >> 33) * 0xC4CEB9FE1A85EC53;
    return static_cast<Token>((hash ^ hash >> 33) >> 32);
}

// A number before a text; the numbers are as they are in memory, little-endian.
template <typename... Numbers>
std::string Bytes(Numbers... numbers) {
    std::string bytes;
    (bytes.append(reinterpret_cast<const char *>(&numbers), sizeof(numbers)), ...);
    return bytes;
}

Token NumberToken(Kind kind, uint32_t number) {
    return HashOf(kind, Bytes(number));
}

Token TextToken(Kind kind, uint32_t key, std::string_view text) {
    return HashOf(kind, Bytes(key).append(text));
}

Token LowerToken(Kind kind, std::string_view name) {
    return HashOf(kind, base::LowerAscii(name));
}

class Collector {
public:
    void Add(Token token) { tokens_.push_back(token); }

    FileTokens Take() {
        std::ranges::sort(tokens_);
        tokens_.erase(std::unique(tokens_.begin(), tokens_.end()), tokens_.end());
        if (tokens_.size() > kMostTokens)
            return {{}, false};
        return {std::move(tokens_), true};
    }

private:
    std::vector<Token> tokens_;
};

// ---- Files ---------------------------------------------------------------------------------------------------------

void AddLinks(Collector &to, evaluation::Features &features) {
    pe::ImportTable &imports = features.Imports();
    for (std::size_t i = 0; i < imports.descriptors().size(); ++i) {
        if (const std::optional<std::string> &module = imports.descriptors()[i].module)
            to.Add(LowerToken(Kind::Module, *module));
        for (const std::string &function : imports.FunctionsOf(i))
            to.Add(HashOf(Kind::Function, function));
    }
    pe::ExportTable &exports = features.Exports();
    if (exports.module())
        to.Add(LowerToken(Kind::ExportModule, *exports.module()));
    for (const std::string &name : exports.Names())
        to.Add(HashOf(Kind::ExportFunction, name));
}

// The bytes of a resource's name; nothing when rules, which have bytes, cannot ask for it.
std::optional<std::string> NarrowName(const std::u16string &name) {
    std::string bytes;
    for (const char16_t unit : name) {
        if (unit >= 0x100)
            return std::nullopt;
        bytes += static_cast<char>(unit);
    }
    return bytes;
}

void AddLabel(Collector &to, const pe::ResourceLabel &label, Kind number, Kind name) {
    to.Add(NumberToken(number, label.number));
    if (label.name.empty())
        return;
    if (const std::optional<std::string> bytes = NarrowName(label.name))
        to.Add(LowerToken(name, *bytes));
}

void AddResources(Collector &to, evaluation::Features &features) {
    for (const pe::Resource &resource : features.Resources().resources) {
        AddLabel(to, resource.type, Kind::ResourceType, Kind::ResourceTypeName);
        AddLabel(to, resource.entry, Kind::ResourceEntry, Kind::ResourceEntryName);
        to.Add(HashOf(Kind::ResourcePair, Bytes(resource.type.number, resource.entry.number)));
        to.Add(NumberToken(Kind::ResourceLanguage, resource.language));
    }
}

void AddTexts(Collector &to, evaluation::Features &features) {
    const auto add = [&](uint32_t type, Kind kind, uint32_t key) {
        ResourceString all = {};
        all.type = type;
        all.id = rules::kAnyResource;
        all.key = key;
        all.text = "";
        for (const std::string &text : features.Strings().Candidates(all, kMostTexts))
            to.Add(TextToken(kind, key, text));
    };
    for (uint32_t key = rules::resource_key::kAny; key <= rules::resource_key::kFixedProductVersion; ++key)
        add(rules::kVersionResource, Kind::VersionText, key);
    for (uint32_t key = kFirstManifestKey; key <= kLastManifestKey; ++key)
        add(rules::kManifestResource, Kind::ManifestText, key);
}

void AddObjects(Collector &to, evaluation::Features &features) {
    evaluation::VbProject &vb = features.Vb();
    const uint32_t objects = vb.ObjectCount();
    for (uint32_t object = 0; object < objects; ++object) {
        if (const std::optional<std::string> name = vb.ObjectName(object))
            to.Add(LowerToken(Kind::Object, *name));
        if (const auto methods = vb.MethodNames(object))
            for (const std::string &method : *methods)
                to.Add(LowerToken(Kind::Member, method));
    }
}

// ---- Rules ---------------------------------------------------------------------------------------------------------

template <typename List>
auto ElementsIn(const List &list) {
    return std::span(list.elements, list.count);
}

template <std::size_t size>
std::string_view NameIn(const char (&name)[size]) {
    return {name, strnlen(name, size)};
}

bool AsksForWholeName(uint8_t op, uint8_t option) {
    return op == kEqualOperator && (option & rules::kNamePrefix) == 0;
}

void NeedLinks(Collector &to, const HeuristicRule &rule) {
    for (const ImportModule &e : ElementsIn(rule.import_modules))
        if (AsksForWholeName(e.op, e.option))
            to.Add(LowerToken(Kind::Module, e.name));
    for (const ImportFunction &e : ElementsIn(rule.import_functions))
        if (e.op == kEqualOperator)
            to.Add(HashOf(Kind::Function, e.name));
    for (const ExportName &e : ElementsIn(rule.export_module_names))
        if (e.op == kEqualOperator)
            to.Add(LowerToken(Kind::ExportModule, e.name));
    for (const ExportName &e : ElementsIn(rule.export_functions))
        if (e.op == kEqualOperator)
            to.Add(HashOf(Kind::ExportFunction, e.name));
    for (const ObjectName &e : ElementsIn(rule.object_names))
        if (AsksForWholeName(e.op, e.option))
            to.Add(LowerToken(Kind::Object, e.name));
    for (const MemberName &e : ElementsIn(rule.member_names))
        if (AsksForWholeName(e.op, e.option))
            to.Add(LowerToken(Kind::Member, e.name));
}

// Of an element that selects resources by type, entry and language, as two of the lists have them.
template <typename Element>
void NeedResource(Collector &to, const Element &e) {
    if (e.type != rules::kAnyResource && e.id != rules::kAnyResource)
        to.Add(HashOf(Kind::ResourcePair, Bytes(uint32_t{e.type}, uint32_t{e.id})));
    else if (e.type != rules::kAnyResource)
        to.Add(NumberToken(Kind::ResourceType, e.type));
    else if (e.id != rules::kAnyResource)
        to.Add(NumberToken(Kind::ResourceEntry, e.id));
    if (e.name[0] != '\0')
        to.Add(LowerToken(Kind::ResourceEntryName, NameIn(e.name)));
    if (e.language != 0)
        to.Add(NumberToken(Kind::ResourceLanguage, e.language));
}

void NeedResources(Collector &to, const HeuristicRule &rule) {
    for (const ResourceEntry &e : ElementsIn(rule.resource_entries))
        NeedResource(to, e);
    for (const ResourceTypeEntry &e : ElementsIn(rule.resource_type_entries)) {
        const bool is_type = e.param_a == rules::kResourceTypeLevel;
        if (e.param_b != 0)
            continue;
        if (e.type != rules::kAnyResource)
            to.Add(NumberToken(is_type ? Kind::ResourceType : Kind::ResourceEntry, e.type));
        if (e.name[0] != '\0')
            to.Add(LowerToken(is_type ? Kind::ResourceTypeName : Kind::ResourceEntryName, NameIn(e.name)));
        if (e.language != 0)
            to.Add(NumberToken(Kind::ResourceLanguage, e.language));
    }
    for (const ResourceString &e : ElementsIn(rule.resource_strings)) {
        NeedResource(to, e);
        if (e.type == rules::kVersionResource && e.key <= rules::resource_key::kFixedProductVersion)
            to.Add(TextToken(Kind::VersionText, e.key, e.text));
        if (e.type == rules::kManifestResource && e.key >= kFirstManifestKey && e.key <= kLastManifestKey)
            to.Add(TextToken(Kind::ManifestText, e.key, e.text));
    }
}

} // namespace

FileTokens TokensOf(evaluation::Features &features) {
    Collector collector;
    AddLinks(collector, features);
    AddResources(collector, features);
    AddTexts(collector, features);
    AddObjects(collector, features);
    return collector.Take();
}

std::vector<Token> NeededTokens(const HeuristicRule &rule) {
    Collector collector;
    NeedLinks(collector, rule);
    NeedResources(collector, rule);
    return collector.Take().tokens; // no rule has so many
}

} // namespace tavrik::store
