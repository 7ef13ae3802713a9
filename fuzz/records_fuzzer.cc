// Records with any numbers in them, as a module with a damaged database would hand them out: reading, writing and
// reading them again must give the same rules, whatever the numbers mean.

#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <stdexcept>

#include "rules/record/encoding.h"
#include "rules/record/reader.h"
#include "rules/record/record_builder.h"

namespace {

using namespace tavrik::rules;

// Fills a rule or an element as the record's encoding goes through it.
class Filler {
public:
    explicit Filler(FuzzedDataProvider &input) : input_(input) {}

    template <typename... Value>
    void Values(Value &...values) {
        (Take(values), ...);
    }
    template <std::size_t kWidth>
    void FixedText(std::string &text) {
        text = Words(kWidth - 1);
    }
    template <std::size_t kWidth>
    void Zeros() {}
    void Text(std::string &text) { text = Words(40); }
    void ValueBytes(uint64_t &bits) { Take(bits); }
    void MaskedBytes(std::bitset<kMaxStringLength> &mask, std::string &bytes) {
        bytes = input_.ConsumeRandomLengthString(kMaxStringLength);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            mask[i] = input_.ConsumeBool();
    }
    void SectionText(std::string &name, std::string &tail) {
        name = Words(record::kSectionTextBytes);
        if (!name.empty() && name.size() < record::kSectionTextBytes)
            tail = Words(record::kSectionTextBytes - name.size());
    }
    void FeatureFlags(Rule &rule) { Take(rule.stored_flags); }
    template <Item kItem, typename Element>
    void List(ListTag<kItem>, std::vector<Element> &list) {
        list.resize(input_.ConsumeIntegralInRange<std::size_t>(0, 3));
        for (Element &element : list)
            record::Code(*this, element);
    }

private:
    // A text without the byte that ends it in a record.
    std::string Words(std::size_t longest) {
        std::string text = input_.ConsumeRandomLengthString(longest);
        return text.substr(0, text.find('\0'));
    }
    template <typename Value>
    void Take(Value &value) {
        if constexpr (std::is_enum_v<Value>)
            value = static_cast<Value>(input_.ConsumeIntegral<std::underlying_type_t<Value>>());
        else if constexpr (std::is_same_v<Value, bool>)
            value = input_.ConsumeBool();
        else
            value = input_.ConsumeIntegral<Value>();
    }

    FuzzedDataProvider &input_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    RuleSet set;
    set.rules.resize(input.ConsumeIntegralInRange<std::size_t>(0, 3));
    for (Rule &rule : set.rules) {
        Filler filler(input);
        record::Code(filler, rule);
    }
    const record::RecordSet records(set);
    RuleSet read = record::ReadRules(records.rules(), record::RecordForm::Working);
    if (read.rules.size() != set.rules.size())
        std::abort();
    for (std::size_t i = 0; i < set.rules.size(); ++i) {
        if (read.rules[i].stored_flags != ComputeFeatureFlags(set.rules[i]))
            std::abort();
        read.rules[i].stored_flags = set.rules[i].stored_flags;
    }
    if (read != set)
        std::abort();
    return 0;
}
