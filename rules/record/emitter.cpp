#include "rules/record/emitter.h"

#include <algorithm>
#include <map>
#include <span>
#include <stdexcept>
#include <string_view>

namespace tavrik::rules::record {

namespace {

constexpr uint8_t kStoredShift = 3; // added to every byte of a feature string
constexpr std::size_t kMaskBytes = 16;
constexpr std::size_t kSectionNameBytes = 8;

constexpr std::string_view kNotice = "// Generated from the rules; changes are lost at the next build.\n\n";
constexpr std::string_view kOpen = "namespace tavrik2 {\n\n";
constexpr std::string_view kClose = "\n} // namespace tavrik2\n";

std::string Number(uint64_t value) {
    return std::to_string(value);
}

// The inside of a C++ string literal. A question mark is escaped because of trigraphs; octal escapes have three digits,
// so that no digit behind one joins it.
std::string Escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<uint8_t>(c);
        if (c == '"' || c == '\\' || c == '?') {
            out.append({'\\', c});
        } else if (byte >= 0x20 && byte <= 0x7E) {
            out += c;
        } else {
            out += '\\';
            for (const int shift : {6, 3, 0})
                out += static_cast<char>('0' + (byte >> shift & 7));
        }
    }
    return out;
}

std::string Literal(std::string_view text, std::size_t room) {
    if (text.size() >= room)
        throw std::invalid_argument("the text '" + std::string(text) + "' has more than " + Number(room - 1) +
                                    " characters");
    return "\"" + Escaped(text) + "\"";
}

// Every text that the records point to, once. A text's place is its offset in one array.
class TextPool {
public:
    // The expression of a pointer to `text`, which may hold NULs; a NUL follows it.
    std::string Pointer(const std::string &text) {
        const auto [found, added] = offsets_.try_emplace(text, size_);
        if (added) {
            order_.push_back(&found->first);
            size_ += text.size() + 1;
        }
        return "kRuleTexts + " + Number(found->second);
    }

    // With its size: some compilers take no address in an array of unknown size for a constant. Known when all texts
    // are in the pool.
    std::string Declaration() const {
        constexpr std::size_t kEnd = 1; // of the last literal
        return "extern const char kRuleTexts[" + Number(size_ + kEnd) + "];\n\n";
    }

    std::string Source() const {
        std::string out(kNotice);
        out.append("#include \"tavrik2/rules/generated.h\"\n\n").append(kOpen).append(Declaration());
        out += "// Texts, each with a NUL behind it; the numbers are their places.\n";
        out += "constinit const char kRuleTexts[] =\n";
        for (const std::string *text : order_)
            out += "    /* " + Number(offsets_.at(*text)) + " */ \"" + Escaped(*text) + "\\000\"\n";
        return out.append("    \"\";\n").append(kClose);
    }

private:
    std::map<std::string, std::size_t> offsets_;
    std::vector<const std::string *> order_; // map nodes stay where they are
    std::size_t size_ = 0;
};

// One list's elements of all rules of a file, one after the other.
class ListPool {
public:
    ListPool(std::string_view type, std::string name) : type_(type), name_(std::move(name)) {}

    // The initialiser of a list field.
    std::string Add(const std::vector<std::string> &elements) {
        if (elements.empty())
            return "{nullptr, 0}";
        std::string field = "{" + name_ + " + " + Number(count_) + ", " + Number(elements.size()) + "}";
        for (const std::string &element : elements)
            rows_.append("    {").append(element).append("},\n");
        count_ += elements.size();
        return field;
    }

    std::string Source() const {
        return count_ == 0 ? "" : "constinit const " + type_ + " " + name_ + "[] = {\n" + rows_ + "};\n\n";
    }

private:
    std::string type_;
    std::string name_;
    std::string rows_;
    std::size_t count_ = 0;
};

template <typename... Parts>
std::string Join(const Parts &...parts) {
    std::string out;
    ((out += (out.empty() ? "" : ", ") + parts), ...);
    return out;
}

std::string Op(Operator op) {
    return Number(static_cast<uint8_t>(op));
}

std::string Bytes(std::span<const uint8_t> bytes) {
    std::string out = "{";
    for (const uint8_t byte : bytes)
        out += (out.size() == 1 ? "" : ", ") + Number(byte);
    return out + "}";
}

// Makes one rule file.
class FileEmitter {
public:
    FileEmitter(std::size_t number, TextPool &texts) : number_(number), texts_(texts) {}

    void Add(const Rule &rule) {
        const auto list = [](ListPool &pool, const auto &elements, auto fields) {
            std::vector<std::string> rows;
            for (const auto &element : elements)
                rows.push_back(fields(element));
            return pool.Add(rows);
        };
        const auto condition = [](const auto &e) {
            return Join(Number(e.index), Number(e.field), Op(e.op), Number(e.value));
        };
        const auto export_name = [&](const ExportName &e) { return Join(Op(e.op), Name(e.name)); };

        std::string fields = Join(
            list(header_, rule.header_conditions,
                 [](const auto &e) { return Join(Number(e.field), Op(e.op), Number(e.value)); }),
            list(sections_, rule.section_conditions,
                 [](const auto &e) { return Join(Number(e.section), Number(e.field), Op(e.op), Number(e.value)); }),
            list(section_names_, rule.section_names,
                 [](const auto &e) { return Join(Number(e.section), Op(e.op), Literal(e.name, kMaxSectionName + 1)); }),
            list(strings_, rule.strings, [&](const auto &e) { return StringFields(e); }), Name(rule.expression),
            Number(rule.rule_id), Literal(rule.detection_name, kMaxDetectionName + 1), Number(rule.stored_flags),
            Number(rule.attribute_a), Number(rule.attribute_b),
            list(import_table_, rule.indexed_conditions, condition));
        fields += ",\n     ";
        fields +=
            Join(list(import_modules_, rule.import_modules,
                      [&](const auto &e) {
                          return Join(std::to_string(e.index), Number(e.option), Op(e.op), Name(e.name));
                      }),
                 list(import_functions_, rule.import_functions,
                      [&](const auto &e) { return Join(Number(e.index), Op(e.op), Name(e.name)); }),
                 list(export_names_, rule.export_module_names, export_name),
                 list(export_names_, rule.export_functions, export_name),
                 list(resources_, rule.resource_entries,
                      [](const auto &e) {
                          return Join(Number(e.type), Number(e.id), Literal(e.name, kMaxResourceName + 1),
                                      Number(e.language), std::string("{}"), Number(e.crc32));
                      }),
                 list(resource_types_, rule.resource_type_entries,
                      [](const auto &e) {
                          return Join(Number(e.number), Literal(e.name, kMaxResourceName + 1), Number(e.language),
                                      std::string("{}"), Number(e.level), Number(e.absent));
                      }),
                 list(resource_strings_, rule.resource_strings,
                      [&](const auto &e) {
                          return Join(Number(e.type), Number(e.id), Literal(e.name, kMaxResourceName + 1),
                                      Number(e.language), std::string("{}"), Number(e.key), Name(e.text));
                      }),
                 list(measures_, rule.measure_conditions, [](const auto &e) { return MeasureFields(e); }),
                 list(object_fields_, rule.secondary_conditions, condition),
                 list(object_names_, rule.object_names,
                      [&](const auto &e) { return Join(Number(e.index), Number(e.option), Op(e.op), Name(e.name)); }),
                 list(member_names_, rule.member_names,
                      [&](const auto &e) { return Join(Number(e.index), Number(e.option), Op(e.op), Name(e.name)); }),
                 Number(rule.reserved) + "u"); // it takes all 64 bits
        rules_ += "    {{" + fields + "}},\n";
        ++rule_count_;
    }

    std::string Source() const {
        std::string out(kNotice);
        out.append("#include \"tavrik2/rules/generated.h\"\n\n").append(kOpen);
        out += texts_.Declaration() + "namespace {\n\n";
        if (byte_count_ > 0)
            out += "// Feature strings, each byte plus 3; brought into their true form in place.\nconstinit uint8_t " +
                   BytesName() + "[] = {\n" + bytes_ + "};\n\n";
        for (const ListPool *pool : {&header_, &sections_, &section_names_, &strings_, &import_table_, &import_modules_,
                                     &import_functions_, &export_names_, &resources_, &resource_types_,
                                     &resource_strings_, &measures_, &object_fields_, &object_names_, &member_names_})
            out += pool->Source();
        out += "} // namespace\n";
        if (rule_count_ > 0)
            out += "\nconstinit RuleSlot " + RulesName() + "[] = {\n" + rules_ + "};\n";
        return out.append(kClose);
    }

    std::string RulesName() const { return "g_rules_" + Number(number_); }
    std::size_t rule_count() const { return rule_count_; }

private:
    std::string BytesName() const { return "g_bytes_" + Number(number_); }

    std::string Name(const std::string &text) { return texts_.Pointer(text); }

    std::string StringFields(const StringFeature &e) {
        uint8_t mask[kMaskBytes] = {};
        for (std::size_t position = 0; position < e.bytes.size(); ++position) {
            if (e.mask[position])
                mask[position / 8] = static_cast<uint8_t>(mask[position / 8] | 1 << (position % 8));
        }
        std::string section = "nullptr";
        if (!e.section_name.empty()) {
            std::string bytes = e.section_name + e.section_tail;
            bytes.resize(kSectionNameBytes, '\0');
            section = Name(bytes);
        }
        std::string fields =
            Join(e.mask.any() ? Bytes(mask) : std::string("{}"), BytesName() + " + " + Number(byte_count_),
                 Number(e.bytes.size()), Number(e.anchor), Number(e.window_start), Number(e.window_length),
                 Number(e.kind), Number(e.index), std::string("0"), section, Number(e.section_name.size()),
                 Number(e.options), std::string("0"), Number(e.drift));
        bytes_ += "   ";
        for (const char c : e.bytes)
            bytes_ += " " + Number(static_cast<uint8_t>(static_cast<uint8_t>(c) + kStoredShift)) + ",";
        bytes_ += "\n";
        byte_count_ += e.bytes.size();
        return fields;
    }

    static std::string MeasureFields(const MeasureCondition &e) {
        uint8_t value[8];
        for (std::size_t byte = 0; byte < sizeof value; ++byte)
            value[byte] = static_cast<uint8_t>(e.bits >> (8 * byte));
        return Join(Number(e.region), Number(static_cast<uint8_t>(e.measure)), Number(e.length), Number(e.index),
                    Op(e.op), Bytes(value));
    }

    std::size_t number_;
    TextPool &texts_;
    ListPool header_{"HeaderCondition", "kHeaderConditions"};
    ListPool sections_{"SectionCondition", "kSectionConditions"};
    ListPool section_names_{"SectionNameCondition", "kSectionNames"};
    ListPool strings_{"StringFeature", "kStrings"};
    ListPool import_table_{"IndexedCondition", "kIndexedConditions"};
    ListPool import_modules_{"ImportModule", "kImportModules"};
    ListPool import_functions_{"ImportFunction", "kImportFunctions"};
    ListPool export_names_{"ExportName", "kExportNames"};
    ListPool resources_{"ResourceEntry", "kResourceEntries"};
    ListPool resource_types_{"ResourceTypeEntry", "kResourceTypeEntries"};
    ListPool resource_strings_{"ResourceString", "kResourceStrings"};
    ListPool measures_{"MeasureCondition", "kMeasureConditions"};
    ListPool object_fields_{"SecondaryCondition", "kSecondaryConditions"};
    ListPool object_names_{"ObjectName", "kObjectNames"};
    ListPool member_names_{"MemberName", "kMemberNames"};
    std::string bytes_;
    std::size_t byte_count_ = 0;
    std::string rules_;
    std::size_t rule_count_ = 0;
};

std::string TableSource(const std::vector<FileEmitter> &files) {
    std::string out(kNotice);
    out.append("#include \"tavrik2/rules/generated.h\"\n\n").append(kOpen);
    std::string rows;
    std::size_t count = 0;
    for (const FileEmitter &file : files) {
        if (file.rule_count() == 0)
            continue;
        out += "extern RuleSlot " + file.RulesName() + "[" + Number(file.rule_count()) + "];\n";
        for (std::size_t index = 0; index < file.rule_count(); ++index)
            rows += "    &" + file.RulesName() + "[" + Number(index) + "].rule,\n";
        count += file.rule_count();
    }
    // An array has at least one element.
    out += "\nextern \"C\" {\n\nconstinit HeuristicRule *const RuleTable[] = {\n" +
           (rows.empty() ? "    nullptr,\n" : rows) + "};\n" +
           "constinit const uint32_t RuleTableCount = " + Number(count) + ";\n\n} // extern \"C\"\n";
    return out.append(kClose);
}

std::string RuleFileName(std::size_t number) {
    return "rules_" + Number(number) + ".cpp";
}

constexpr std::string_view kTableFileName = "rule_table.cpp";
constexpr std::string_view kTextsFileName = "rule_texts.cpp";

} // namespace

std::vector<std::string> DatabaseFileNames() {
    std::vector<std::string> names;
    for (std::size_t number = 0; number < kRuleFileCount; ++number)
        names.push_back(RuleFileName(number));
    names.emplace_back(kTableFileName);
    names.emplace_back(kTextsFileName);
    return names;
}

std::vector<GeneratedFile> EmitDatabase(const RuleSet &set) {
    TextPool texts;
    std::vector<FileEmitter> emitters;
    const std::size_t share = (set.rules.size() + kRuleFileCount - 1) / kRuleFileCount;
    for (std::size_t number = 0; number < kRuleFileCount; ++number) {
        FileEmitter &emitter = emitters.emplace_back(number, texts);
        const std::size_t end = std::min(set.rules.size(), (number + 1) * share);
        for (std::size_t index = number * share; index < end; ++index)
            emitter.Add(set.rules[index]);
    }
    std::vector<GeneratedFile> files;
    for (std::size_t number = 0; number < kRuleFileCount; ++number)
        files.push_back({RuleFileName(number), emitters[number].Source()});
    files.push_back({std::string(kTableFileName), TableSource(emitters)});
    files.push_back({std::string(kTextsFileName), texts.Source()});
    return files;
}

} // namespace tavrik::rules::record
