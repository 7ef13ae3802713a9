/* Texts of conditions on values, and of the places of values in a section table.
 *
 * Names in the text that is written: t is the offset of the section table, n the number of sections in it, i a section
 * that a condition is about, j one that it is compared with, e the file offset of an address, d a descriptor of the
 * import table. */
#ifndef TAVRIK_RULES_YARA_CONDITIONS_H
#define TAVRIK_RULES_YARA_CONDITIONS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "rules/model.h"

namespace tavrik::rules::yara {

/** Thrown for the first reason why a rule has no counterpart. */
struct NotExpressible {
    std::string reason;
};

[[noreturn]] void Refuse(std::string reason);

using Parts = std::vector<std::string>;

/** The parts joined by "and". */
std::string All(const Parts &parts);
/** The parts joined by "or", in parentheses where there are several. */
std::string Any(const Parts &parts);

/** The comparison of an expression with a number. */
std::string Compared(std::string_view value, Operator op, uint32_t wanted);

/** A test of one value: an operator and values, of which there are several only with Operator::Equal. */
struct Test {
    Operator op;
    std::vector<uint32_t> values;

    /** The test as text; `value` is an expression. */
    std::string On(std::string_view value) const;
    bool Accepts(uint32_t value) const;
    /** Whether `value` is all that it accepts. */
    bool Asks(uint32_t value) const { return op == Operator::Equal && values.size() == 1 && values[0] == value; }
};

/** The test of a value that can only be compared by "at least": `at_least` writes that comparison with a number. */
std::string TestByBounds(const Test &test, const std::function<std::string(uint64_t)> &at_least);

/** Calls action(first, count) for each run of alternatives in a list: conditions with Operator::Equal of which `same`
 * says that they are about the same value. */
template <typename List, typename Same, typename Action>
void ForRuns(const List &list, Same same, Action action) {
    for (std::size_t first = 0, count = 1; first < list.size(); first += count) {
        count = 1;
        while (first + count < list.size() && list[first].op == Operator::Equal &&
               list[first + count].op == Operator::Equal && same(list[first], list[first + count]))
            ++count;
        action(first, count);
    }
}

/** The test that a run makes. */
template <typename List>
Test TestOf(const List &list, std::size_t first, std::size_t count) {
    Test test{list[first].op, {}};
    for (std::size_t i = first; i < first + count; ++i)
        test.values.push_back(list[i].value);
    return test;
}

/** A part of the file: offsets as expressions. `cut_end` is `end` cut at the end of the file; strings do without, as
 * they cannot extend beyond the file. */
struct Span {
    std::string begin;
    std::string end;
    std::string cut_end;
};

Span SpanOf(std::string begin, std::string end);

// Fields of a section header, by their offsets.
inline constexpr unsigned kVirtualSize = 8;
inline constexpr unsigned kVirtualAddress = 12;
inline constexpr unsigned kSizeOfRawData = 16;
inline constexpr unsigned kPointerToRawData = 20;
inline constexpr unsigned kCharacteristics = 36;

/** The offset of the section header with an index. */
std::string HeaderOf(std::string_view index);
/** The field at `offset` of the section whose header is at `header`. */
std::string SectionField(std::string_view header, unsigned offset);
/** That the section has this name. */
std::string Named(std::string_view header, std::string_view name);
/** That the section holds an RVA, be it in its memory or in its raw data. */
std::string Holds(std::string_view header, std::string_view rva);
Span RawData(std::string_view header);

/** That the import table at an offset has at least `count` descriptors, 1 or more. */
std::string HasDescriptors(std::string_view offset, uint64_t count);

} // namespace tavrik::rules::yara

#endif
