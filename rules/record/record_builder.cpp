#include "rules/record/record_builder.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "rules/record/encoding.h"

namespace tavrik::rules::record {

namespace {

using Blocks = std::vector<std::unique_ptr<std::byte[]>>;

// Writes a rule or an element into the zeroed bytes of its record, one value after the other.
class MemoryWriter {
public:
    MemoryWriter(Blocks &blocks, void *record) : blocks_(blocks), place_(static_cast<std::byte *>(record)) {}

    // Writes all of a record.
    template <typename Record, typename Model>
    static void Write(Blocks &blocks, Record &record, const Model &model) {
        static_assert(alignof(Record) == 1);
        MemoryWriter writer(blocks, &record);
        Code(writer, model);
        if (writer.place_ != reinterpret_cast<std::byte *>(&record + 1))
            throw std::logic_error("an encoding does not have its record's size");
    }

    template <typename... Value>
    void Values(const Value &...values) {
        (Put(values), ...);
    }

    template <std::size_t kWidth>
    void FixedText(std::string_view text) {
        CheckWidth(text, kWidth);
        std::memcpy(place_, text.data(), text.size());
        place_ += kWidth;
    }

    template <std::size_t kWidth>
    void Zeros() {
        place_ += kWidth;
    }

    void Text(std::string_view text) { Put(Keep(text)); }
    void ValueBytes(uint64_t bits) { Put(bits); }

    void MaskedBytes(const std::bitset<kMaxStringLength> &mask, std::string_view bytes) {
        uint8_t packed[kMaskBytes] = {};
        PackMask(mask, bytes.size(), packed);
        Put(packed);
        Put(Keep(bytes));
        Put(static_cast<uint8_t>(bytes.size()));
    }

    void SectionText(std::string_view name, std::string_view tail) {
        Put(name.empty() ? nullptr : Keep(SectionBytes(name, tail)));
        Put(static_cast<uint8_t>(name.size()));
    }

    void FeatureFlags(const Rule &rule) { Put(ComputeFeatureFlags(rule)); }

    template <Item kItem, typename Element>
    void List(ListTag<kItem>, const std::vector<Element> &list) {
        using Record = typename RecordElement<kItem>::Type;
        auto *records = list.empty() ? nullptr : reinterpret_cast<Record *>(Allocate(list.size() * sizeof(Record)));
        Put(records);
        Put(static_cast<uint32_t>(list.size()));
        for (const Element &element : list)
            Write(blocks_, *records++, element);
    }

private:
    // All bytes are 0.
    std::byte *Allocate(std::size_t size) {
        blocks_.push_back(std::make_unique<std::byte[]>(size));
        return blocks_.back().get();
    }

    char *Keep(std::string_view text) {
        auto *kept = reinterpret_cast<char *>(Allocate(text.size() + 1));
        std::ranges::copy(text, kept);
        return kept;
    }

    template <typename Value>
    void Put(const Value &value) {
        std::memcpy(place_, &value, sizeof(value));
        place_ += sizeof(value);
    }

    Blocks &blocks_;
    std::byte *place_;
};

} // namespace

RecordSet::RecordSet(const RuleSet &set) : records_(set.rules.size()) {
    for (std::size_t i = 0; i < records_.size(); ++i) {
        MemoryWriter::Write(blocks_, records_[i], set.rules[i]);
        table_.push_back(&records_[i]);
    }
}

} // namespace tavrik::rules::record
