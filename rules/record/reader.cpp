#include "rules/record/reader.h"

#include <algorithm>
#include <cstring>

#include "rules/record/encoding.h"

namespace tavrik::rules::record {

namespace {

// Fills a rule or an element from the bytes of its record, one value after the other.
class MemoryReader {
public:
    MemoryReader(const void *record, RecordForm form) : place_(static_cast<const char *>(record)), form_(form) {}

    template <typename... Value>
    void Values(Value &...values) {
        (Take(values), ...);
    }

    template <std::size_t kWidth>
    void FixedText(std::string &text) {
        text.assign(place_, strnlen(place_, kWidth));
        place_ += kWidth;
    }

    template <std::size_t kWidth>
    void Zeros() {
        place_ += kWidth;
    }

    void Text(std::string &text) { text = TakeAs<const char *>(); }
    void ValueBytes(uint64_t &bits) { Take(bits); }

    void MaskedBytes(std::bitset<kMaxStringLength> &mask, std::string &bytes) {
        const char *const packed = place_;
        place_ += kMaskBytes;
        const auto *source = TakeAs<const uint8_t *>();
        const std::size_t length = TakeAs<uint8_t>();
        for (std::size_t i = 0; i < length; ++i) {
            const uint8_t byte = source[i];
            bytes += static_cast<char>(form_ == RecordForm::Stored ? byte - kStoredShift : byte);
            mask.set(i, (packed[i / 8] >> (i % 8) & 1) != 0);
        }
    }

    void SectionText(std::string &name, std::string &tail) {
        const auto *bytes = TakeAs<const char *>();
        const std::size_t length = std::min<std::size_t>(TakeAs<uint8_t>(), kSectionTextBytes);
        if (bytes == nullptr)
            return;
        name.assign(bytes, length);
        tail.assign(bytes + length, kSectionTextBytes - length);
        while (tail.ends_with('\0'))
            tail.pop_back();
    }

    void FeatureFlags(Rule &rule) { Take(rule.stored_flags); }

    template <Item kItem, typename Element>
    void List(ListTag<kItem>, std::vector<Element> &list) {
        const auto *elements = TakeAs<const typename RecordElement<kItem>::Type *>();
        list.resize(TakeAs<uint32_t>());
        for (Element &element : list) {
            MemoryReader reader(elements++, form_);
            Code(reader, element);
        }
    }

private:
    template <typename Value>
    void Take(Value &value) {
        std::memcpy(&value, place_, sizeof(value));
        place_ += sizeof(value);
    }

    template <typename Value>
    Value TakeAs() {
        Value value;
        Take(value);
        return value;
    }

    const char *place_;
    RecordForm form_;
};

} // namespace

Rule ReadRule(const HeuristicRule &record, RecordForm form) {
    Rule rule;
    MemoryReader reader(&record, form);
    Code(reader, rule);
    return rule;
}

RuleSet ReadRules(std::span<HeuristicRule *const> table, RecordForm form) {
    RuleSet set;
    set.rules.reserve(table.size());
    for (const HeuristicRule *record : table)
        set.rules.push_back(ReadRule(*record, form));
    return set;
}

} // namespace tavrik::rules::record
