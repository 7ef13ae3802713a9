/* Rules drawn from everything that the rule language can write. */
#ifndef TAVRIK_TESTS_SUPPORT_RANDOM_RULE_H
#define TAVRIK_TESTS_SUPPORT_RANDOM_RULE_H

#include <limits>
#include <random>

#include "rules/lists.h"
#include "rules/model.h"

namespace tavrik::tests {

/** Makes the same rule for the same seed on every system. */
class RandomRule {
public:
    explicit RandomRule(uint64_t seed) : random_(seed) {}

    rules::Rule Make() {
        using rules::Item;
        rules::Rule rule;
        rule.rule_id = Any<uint32_t>();
        rule.detection_name = Text(rules::kMaxDetectionName);
        rule.stored_flags = Any<uint8_t>();
        rule.attribute_a = Any<uint32_t>();
        rule.attribute_b = Any<uint32_t>();
        rule.reserved = Any<uint64_t>();
        const auto fill = [&](auto tag, auto &list) {
            constexpr std::size_t kUsual = 6;
            const std::size_t most = tag.kItem == Item::Strings        ? rules::kMaxStrings
                                     : tag.kItem == Item::ExportModule ? rules::kMaxExportModuleNames
                                                                       : kUsual;
            if ((tag.kItem == Item::MemberNames && rule.object_names.empty()) ||
                (tag.kItem == Item::ImportFunctions && rule.import_modules.empty()))
                return;
            list.resize(Below(2) == 0 ? 0 : Below(most + 1));
            for (auto &element : list)
                FillIn(element, rule);
        };
        rules::EachList(fill, rule);
        rule.header_conditions.push_back({}); // no rule asks nothing
        if (!rule.strings.empty() && Below(4) != 0)
            rule.expression = Blanks() + Expression(1 + Below(rule.strings.size())) + Blanks();
        return rule;
    }

private:
    std::size_t Below(std::size_t end) { return random_() % end; }

    // The ends of the range more often than the values between them.
    template <typename Integer>
    Integer Any() {
        constexpr Integer kLast = std::numeric_limits<Integer>::max();
        const Integer choices[] = {0, 1, kLast, static_cast<Integer>(Below(24)), static_cast<Integer>(random_())};
        return choices[Below(std::size(choices))];
    }

    // Small numbers more often than others: they have names, and two often meet.
    template <typename Integer>
    Integer Small() {
        return Below(5) == 0 ? Any<Integer>() : static_cast<Integer>(Below(Below(2) == 0 ? 4 : 300));
    }

    rules::Operator Op() {
        constexpr int kLikely[] = {1, 1, 6, 5, 1, 2, 3, 4, 5, 6, 7};
        return static_cast<rules::Operator>(kLikely[Below(std::size(kLikely))]);
    }

    std::string Bytes(std::size_t length) {
        std::string bytes;
        const bool printable = Below(2) == 0;
        while (bytes.size() < length)
            bytes += static_cast<char>(printable ? 0x20 + Below(95) : Below(256));
        return bytes;
    }

    std::string Text(std::size_t longest) {
        std::string text = Bytes(Below(4) == 0 ? longest : Below(longest + 1));
        for (char &c : text)
            c = c == '\0' ? '\t' : c;
        return text;
    }

    std::string Blanks() { return std::string(Below(4) == 0 ? 1 + Below(3) : 0, ' '); }

    // Over the letters A to the `count`th, in order.
    std::string Expression(std::size_t count, char first = 'A') {
        if (count == 1)
            return std::string(1, first);
        const std::size_t left = 1 + Below(count - 1);
        return "(" + Blanks() + Expression(left, first) + Blanks() + (Below(2) == 0 ? "&" : "|") + Blanks() +
               Expression(count - left, static_cast<char>(first + static_cast<int>(left))) + Blanks() + ")";
    }

    // A type, id, key or mode of resources.
    uint32_t Number() { return Below(2) == 0 ? Small<uint32_t>() : Any<uint32_t>(); }

    void FillIn(rules::HeaderCondition &e, const rules::Rule &) { e = {Small<uint16_t>(), Op(), Any<uint32_t>()}; }

    void FillIn(rules::SectionCondition &e, const rules::Rule &) {
        const auto role = static_cast<uint16_t>(600 + Below(20));
        e = {Below(2) == 0 ? role : Small<uint16_t>(), Small<uint8_t>(), Op(), Any<uint32_t>()};
    }

    void FillIn(rules::SectionNameCondition &e, const rules::Rule &) {
        e = {static_cast<uint16_t>((Below(2) == 0 ? 504 : 600) + Below(6)), Op(), Text(rules::kMaxSectionName)};
    }

    void FillIn(rules::StringFeature &e, const rules::Rule &) {
        e.bytes = Bytes(Below(3) == 0 ? rules::kMaxStringLength - Below(2) : 1 + Below(40));
        for (std::size_t i = Below(2) == 0 ? 0 : e.bytes.size(); i < e.bytes.size(); ++i) {
            e.mask[i] = Below(3) == 0;
            if (e.mask[i] && Below(2) == 0)
                e.bytes[i] = '\0';
        }
        e.anchor = Below(2) == 0 ? rules::DefaultAnchor(e) : static_cast<uint8_t>(Below(e.bytes.size()));
        e.window_start = Any<uint16_t>();
        e.window_length = Any<uint16_t>();
        e.kind = static_cast<uint8_t>(1 + Below(rules::kMaxStringKind));
        e.index = Any<uint8_t>();
        if (rules::ForwardKind(e.kind) == static_cast<uint8_t>(rules::StringKind::NamedSection)) {
            e.section_name = Bytes(1 + Below(rules::kMaxSectionName));
            e.section_tail = Bytes(Below(rules::kMaxSectionName - e.section_name.size() + 1));
            while (e.section_tail.ends_with('\0'))
                e.section_tail.pop_back();
        }
        e.options = static_cast<uint8_t>(Below(4));
        e.drift = Any<uint16_t>();
    }

    // Import descriptors and objects.
    template <typename Condition>
    void FillIn(Condition &e, const rules::Rule &) {
        e = {Small<uint8_t>(), Small<uint8_t>(), Op(), Any<uint32_t>()};
    }

    void FillIn(rules::ImportModule &e, const rules::Rule &) {
        const int position = static_cast<int>(Any<uint16_t>() % 0x8001) - 1;
        e = {static_cast<int16_t>(position), Any<uint8_t>(), Op(), Text(40)};
    }

    void FillIn(rules::ImportFunction &e, const rules::Rule &rule) {
        e = {static_cast<uint16_t>(Below(rule.import_modules.size() + 1)), Op(), Text(40)};
    }
    void FillIn(rules::ExportName &e, const rules::Rule &) { e = {Op(), Text(40)}; }

    void FillIn(rules::ResourceEntry &e, const rules::Rule &) {
        e = {Number(), Number(), Text(rules::kMaxResourceName), Any<uint16_t>(), Any<uint32_t>()};
    }

    void FillIn(rules::ResourceTypeEntry &e, const rules::Rule &) {
        e = {Number(), Text(rules::kMaxResourceName), Any<uint16_t>(), Number(), Number()};
    }

    void FillIn(rules::ResourceString &e, const rules::Rule &) {
        const uint32_t type = Below(2) == 0 ? 16 + 8 * static_cast<uint32_t>(Below(2)) : Number();
        e = {type, Number(), Text(rules::kMaxResourceName), Any<uint16_t>(), Number(), Text(60)};
    }

    void FillIn(rules::MeasureCondition &e, const rules::Rule &) {
        e.region = static_cast<uint8_t>(Below(2) == 0 ? 59 + Below(21) : Any<uint8_t>());
        e.length = Any<uint32_t>();
        e.index = Any<uint8_t>();
        e.op = Op();
        e.measure = Below(2) == 0 ? rules::Measure::Crc32 : rules::Measure::Entropy;
        constexpr uint64_t kExponent = uint64_t{0x7FF} << 52;
        e.bits = e.measure == rules::Measure::Crc32 ? Any<uint32_t>() : random_();
        if (e.measure == rules::Measure::Entropy && (e.bits & kExponent) == kExponent)
            e.bits = rules::MeasureBits(7.25); // neither infinity nor NaN can be written
    }

    void FillIn(rules::ObjectName &e, const rules::Rule &) { e = {Any<uint16_t>(), Any<uint8_t>(), Op(), Text(40)}; }

    void FillIn(rules::MemberName &e, const rules::Rule &rule) {
        e = {static_cast<uint16_t>(Below(rule.object_names.size())), Any<uint8_t>(), Op(), Text(40)};
    }

    std::mt19937_64 random_;
};

} // namespace tavrik::tests

#endif
