/* One rule as a YARA condition. */
#ifndef TAVRIK_RULES_YARA_RULE_WRITER_H
#define TAVRIK_RULES_YARA_RULE_WRITER_H

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pe/format.h"
#include "rules/model.h"
#include "rules/yara/conditions.h"
#include "rules/yara/tables.h"

namespace tavrik::rules::yara {

using pe::kMagicPe32;
using pe::kMagicPe32Plus;

/** The order of conditions: what is cheap and rarely met comes first. */
enum Rank { kRareHeader, kWideHeader, kHeader, kPlainString, kFixedSection, kLoop, kRich, kDirectory, kMeasure };

/** What the optional header of a file must contain for certain fields to be present. */
struct Need {
    unsigned end_pe32 = 0; // bytes of the optional header
    unsigned end_pe32_plus = 0;
    unsigned directories = 0;

    void Add(const Need &other) {
        end_pe32 = std::max(end_pe32, other.end_pe32);
        end_pe32_plus = std::max(end_pe32_plus, other.end_pe32_plus);
        directories = std::max(directories, other.directories);
    }

    bool Covers(const Need &other) const {
        return end_pe32 >= other.end_pe32 && end_pe32_plus >= other.end_pe32_plus && directories >= other.directories;
    }
};

/** Where a condition is asked: a section, or a part of the file whose offset has to be computed. */
struct Place {
    enum Kind : uint8_t { kNowhere, kFixed, kRole, kNamed, kEntryCode, kOverlay };
    Kind kind = kNowhere;
    uint16_t number = 0; // section or role
    std::string name;

    auto operator<=>(const Place &) const = default;
};

/** Writes a condition, given the place's span, and, where the place is a section, its header and index. */
struct Scene {
    Span span;
    std::string header;
    std::string index;
};
using Body = std::function<std::string(const Scene &)>;

/** Writes one rule. Throws NotExpressible for a rule that YARA cannot express exactly. */
class RuleWriter {
public:
    /** `granted` is what all conditions together need, as an earlier pass over the same rule found it. */
    RuleWriter(const Rule &rule, const Need &granted) : rule_(rule), granted_(granted) { Write(); }

    /** What the conditions that were written need together. */
    const Need &need() const { return need_; }
    /** Definitions of its strings. */
    const Parts &strings() const { return strings_; }
    /** The condition, on lines of its own. */
    std::string Condition() const;
    /** The private rule that says whether SizeOfHeaders is there. */
    std::string RuleOfHeadersSize() const;
    /** The private rules of a table that the rules in `text` make use of. */
    std::string RulesOf(const Table &table, std::string_view text) const {
        return TableRules(table, Guard(NeedOf(table.field)), Value(table.field), text);
    }

private:
    struct Item {
        Rank rank;
        bool in_table; // uses t and n
        std::string text;
    };

    void Write();
    void RefuseLists() const;
    void FlushGroups();
    void Add(Rank rank, bool in_table, std::string text) { items_.push_back({rank, in_table, std::move(text)}); }
    void AddAt(const Place &place, Rank rank, Body body) { groups_[place].push_back({rank, std::move(body)}); }

    // structure.cpp
    void WriteHeader();
    void WriteHeaderRun(uint16_t number, const Test &test);
    void WriteOptionalField(uint16_t number, const Test &test, Rank rank);
    void WriteDerived(uint16_t number, const Test &test, Rank rank);
    void WriteRich(uint16_t number, const Test &test);
    void WriteImportModuleCount(const Test &test);
    void WriteExportNameCount(const Test &test);
    void WriteSections();
    void WriteSectionNames();
    void WriteTraits();
    void WriteImportTable();

    // imports.cpp
    void AddAtTable(const Table &table, const std::string &body, Rank rank, bool is_not = false);
    void WriteImportNames();
    std::string ImportsFunction(const ImportFunction &function) const;
    std::string HasFunction(const std::string &thunks, const std::string &name) const;
    std::string ThunkSize() const;
    void WriteImportFunctionCount(const Test &test);
    std::string HasFunctions(uint64_t count) const;
    void WriteExportNames();

    // resources.cpp
    void WriteResources();
    void WriteResourceCount(const Test &test);

    // content.cpp
    void WriteStrings();
    void WriteMeasures();
    std::string Present(std::size_t string, bool is_required);
    std::string Expression(std::string_view &text, bool is_required);

    // places.cpp: values of the optional header
    Need NeedOf(uint16_t field) const;
    std::string Offset(uint16_t field) const;
    std::string Value(uint16_t field) const;
    std::string Required(uint16_t field);
    std::string Guard(const Need &need) const;

    // places.cpp: places
    std::string RoleRva(uint16_t role, Need &need) const;
    std::string AtOffsetOf(const std::string &rva, const Need &need, const Body &body, bool has_loops = false) const;
    std::string AtPlace(const Place &place, const Body &body, Need &need) const;
    std::string OverlayAtLeast(const std::string &bound) const;
    std::string AtOverlay(const Body &body) const;
    std::string HeadersSize() const;

    const Rule &rule_;
    Need granted_;
    Need need_;
    uint32_t magic_ = 0; // where only one is possible
    bool asks_magic_ = false;
    std::vector<Item> items_;
    std::map<Place, std::vector<std::pair<Rank, Body>>> groups_;
    Parts strings_;
};

} // namespace tavrik::rules::yara

#endif
