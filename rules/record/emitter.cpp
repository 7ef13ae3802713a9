#include "rules/record/emitter.h"

#include <algorithm>
#include <array>
#include <map>
#include <span>
#include <string_view>
#include <type_traits>

#include "base/cpp_literal.h"
#include "rules/record/encoding.h"

namespace tavrik::rules::record {

namespace {

constexpr std::string_view kNotice = "// Generated from the rules; changes are lost at the next build.\n\n";
constexpr std::string_view kOpen = "namespace tavrik2 {\n\n";
constexpr std::string_view kClose = "\n} // namespace tavrik2\n";

std::string Number(uint64_t value) {
    return std::to_string(value);
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

    // With its size, since for some compilers an address in an array of unknown size is not a constant. Complete when
    // all texts are in the pool.
    std::string Declaration() const {
        constexpr std::size_t kEnd = 1; // of the last literal
        return "extern const char kRuleTexts[" + Number(size_ + kEnd) + "];\n\n";
    }

    std::string Source() const {
        std::string out(kNotice);
        out.append("#include \"tavrik2/rules/generated.h\"\n\n").append(kOpen).append(Declaration());
        out += "// Texts, each followed by a NUL; the numbers are their offsets.\n";
        out += "constinit const char kRuleTexts[] =\n";
        for (const std::string *text : order_)
            out += "    /* " + Number(offsets_.at(*text)) + " */ \"" + base::CppEscaped(*text) + "\\000\"\n";
        return out.append("    \"\";\n").append(kClose);
    }

private:
    std::map<std::string, std::size_t> offsets_;
    std::vector<const std::string *> order_; // map nodes stay where they are
    std::size_t size_ = 0;
};

// The name of a constant: "header_conditions" becomes "kHeaderConditions".
std::string ConstantName(std::string_view member) {
    std::string name = "k";
    for (std::size_t i = 0; i < member.size(); ++i) {
        const bool is_first = i == 0 || member[i - 1] == '_';
        if (member[i] != '_')
            name += is_first ? static_cast<char>(member[i] - 'a' + 'A') : member[i];
    }
    return name;
}

// One list's elements of all rules of a file, one after the other.
struct ListPool {
    std::string rows;
    std::size_t count = 0;
};

// One rule file: the elements and strings of its rules.
struct FilePools {
    TextPool &texts;
    std::string bytes_name;
    std::string bytes; // of the feature strings, in stored form
    std::size_t byte_count = 0;
    std::array<ListPool, kItemCount> lists; // those of items that are lists
};

std::string ByteList(std::span<const uint8_t> bytes) {
    std::string out = "{";
    for (const uint8_t byte : bytes)
        out += (out.size() == 1 ? "" : ", ") + Number(byte);
    return out + "}";
}

// Writes the initialiser of a rule or an element, one value after the other.
class SourceWriter {
public:
    explicit SourceWriter(FilePools &pools) : pools_(pools) {}

    // What is between the braces.
    template <typename Model>
    static std::string Write(FilePools &pools, const Model &model) {
        SourceWriter writer(pools);
        Code(writer, model);
        return writer.out_;
    }

    template <typename... Value>
    void Values(const Value &...values) {
        (AddValue(values), ...);
    }

    template <std::size_t kWidth>
    void FixedText(std::string_view text) {
        CheckWidth(text, kWidth);
        Add(base::CppLiteral(text));
    }

    template <std::size_t kWidth>
    void Zeros() {
        Add(kWidth == 1 ? "0" : "{}");
    }

    void Text(const std::string &text) { Add(pools_.texts.Pointer(text)); }

    void ValueBytes(uint64_t bits) {
        uint8_t value[8];
        for (std::size_t byte = 0; byte < sizeof value; ++byte)
            value[byte] = static_cast<uint8_t>(bits >> (8 * byte));
        Add(ByteList(value));
    }

    void MaskedBytes(const std::bitset<kMaxStringLength> &mask, std::string_view bytes) {
        uint8_t packed[kMaskBytes] = {};
        PackMask(mask, bytes.size(), packed);
        Add(mask.any() ? ByteList(packed) : "{}");
        Add(pools_.bytes_name + " + " + Number(pools_.byte_count));
        Add(Number(bytes.size()));
        pools_.bytes += "   ";
        for (const char c : bytes)
            pools_.bytes += " " + Number(static_cast<uint8_t>(static_cast<uint8_t>(c) + kStoredShift)) + ",";
        pools_.bytes += "\n";
        pools_.byte_count += bytes.size();
    }

    void SectionText(std::string_view name, std::string_view tail) {
        Add(name.empty() ? "nullptr" : pools_.texts.Pointer(SectionBytes(name, tail)));
        Add(Number(name.size()));
    }

    void FeatureFlags(const Rule &rule) { Add(Number(rule.stored_flags)); }

    template <Item kItem, typename Element>
    void List(ListTag<kItem> tag, const std::vector<Element> &list) {
        if (list.empty())
            return Add("{nullptr, 0}");
        ListPool &pool = pools_.lists[static_cast<std::size_t>(kItem)];
        Add("{" + ConstantName(tag.kName) + " + " + Number(pool.count) + ", " + Number(list.size()) + "}");
        for (const Element &element : list)
            pool.rows.append("    {").append(Write(pools_, element)).append("},\n");
        pool.count += list.size();
    }

private:
    template <typename Value>
    void AddValue(const Value &value) {
        if constexpr (std::is_enum_v<Value>)
            Add(Number(static_cast<uint64_t>(value)));
        else // what takes all 64 bits is unsigned
            Add(std::to_string(value) + (sizeof(Value) == sizeof(uint64_t) ? "u" : ""));
    }

    void Add(const std::string &value) {
        constexpr std::size_t kFullLine = 100; // characters
        if (out_.size() - line_ >= kFullLine) {
            out_ += ",\n     ";
            line_ = out_.size();
        } else if (!out_.empty()) {
            out_ += ", ";
        }
        out_ += value;
    }

    FilePools &pools_;
    std::string out_;
    std::size_t line_ = 0; // where the last line begins
};

// Makes one rule file.
class FileEmitter {
public:
    FileEmitter(std::size_t number, TextPool &texts)
        : number_(number), pools_{texts, "g_bytes_" + Number(number), "", 0, {}} {}

    void Add(const Rule &rule) {
        rules_ += "    {{" + SourceWriter::Write(pools_, rule) + "}},\n";
        ++rule_count_;
    }

    std::string Source() const {
        std::string out(kNotice);
        out.append("#include \"tavrik2/rules/generated.h\"\n\n").append(kOpen);
        out += pools_.texts.Declaration() + "namespace {\n\n";
        if (pools_.byte_count > 0)
            out += "// Feature strings, each byte plus 3; brought into their true form in place.\nconstinit uint8_t " +
                   pools_.bytes_name + "[] = {\n" + pools_.bytes + "};\n\n";
        const auto add_list = [&](auto tag) {
            const ListPool &pool = pools_.lists[static_cast<std::size_t>(tag.kItem)];
            if (pool.count != 0)
                out.append("constinit const ").append(tag.kElement).append(" ") +=
                    ConstantName(tag.kName) + "[] = {\n" + pool.rows + "};\n\n";
        };
        EachList(add_list);
        out += "} // namespace\n";
        if (rule_count_ > 0)
            out += "\nconstinit RuleSlot " + RulesName() + "[] = {\n" + rules_ + "};\n";
        return out.append(kClose);
    }

    std::string RulesName() const { return "g_rules_" + Number(number_); }
    std::size_t rule_count() const { return rule_count_; }

private:
    std::size_t number_;
    FilePools pools_;
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
