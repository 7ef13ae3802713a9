/* Makes a specimen step by step. The steps draw from the rule's random sequences, so their order is part of the
 * database.
 */
#ifndef TAVRIK_DATABASE_GENERATOR_SPECIMEN_MAKER_H
#define TAVRIK_DATABASE_GENERATOR_SPECIMEN_MAKER_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "database/generator/names.h"
#include "database/generator/random.h"
#include "database/generator/resources.h"
#include "database/generator/specimen.h"
#include "pe/builder/builder.h"
#include "rules/regions.h"

namespace tavrik::generator {

/** The address of the first section. */
inline constexpr uint32_t kFirstAddress = 0x1000;

/** What fills a section. */
enum class Fill : uint8_t {
    Code,
    ReadOnly, // constants, texts, the imports and exports
    Data,     // texts and numbers
    Hole,     // nothing in the file
    Tls,
    Imports,
    Resources,
    Relocations,
    Packed,
    Loader, // packed data, the unpacking code and the imports
    Basic,  // a Visual Basic project
    Managed,
};

/** A section as its toolchain makes it. */
struct Shape {
    std::string_view name;
    uint32_t Characteristics;
    Fill fill;
};

/** Makes one specimen. */
class SpecimenMaker {
public:
    /** The plan is borrowed. */
    explicit SpecimenMaker(const RulePlan &plan)
        : plan_(plan), archetype_(*plan.archetype), family_random_(Mix(plan.family) ^ 0x66616D), random_(plan.seed),
          word_(FamilyWord(Mix(plan.family) ^ 0x776F7264)) {}

    /** The specimen. To be called once. */
    Specimen Make();

private:
    struct SectionMarks {
        std::size_t section;
        std::vector<Mark> marks;
    };

    bool Has(uint32_t bits) const { return (plan_.traits & bits) != 0; }

    // Whether the rule measures the section with a role, or another region.
    bool Measures(rules::SectionRole role) const { return Measures(rules::MeasureCodeOf(role)); }
    bool Measures(rules::MeasureRegion region) const { return Measures(rules::CodeOf(region)); }
    bool Measures(uint8_t code) const {
        return std::ranges::find(plan_.measure_regions, code) != plan_.measure_regions.end();
    }

    // Whether the rule has a string in a region, whatever end its position counts from.
    bool ReadsStrings(rules::StringKind kind) const {
        return std::ranges::any_of(plan_.string_kinds,
                                   [&](uint8_t other) { return rules::ForwardKind(other) == rules::CodeOf(kind); });
    }

    // Headers, overlay, and what the builder leaves open (specimen.cpp).
    void ChooseLinker();
    void WriteStub();
    void AddOverlay();
    void SetDirectory(uint32_t directory, uint32_t rva, uint32_t size);
    void Finish(const pe::builder::PeFile &file);
    void CutShort();
    void SetTls(const pe::builder::PeFile &file);
    void ShrinkSections(const pe::builder::PeFile &file);
    template <typename Value>
    void Patch(std::size_t offset, Value value) {
        std::memcpy(specimen_.image.data() + offset, &value, sizeof value);
    }

    // Sections and their contents (specimen_sections.cpp).
    void ChooseShapes();
    void RenamePacker();
    void AddOddSections();
    void MoveLoaderToEnd();
    std::size_t EntrySection() const;
    std::size_t ImportSection() const;
    void AddTexts(Content &content, uint32_t least, uint32_t most);
    void AddSection(const Shape &shape);
    void AddFarText(Content &content);
    void AddBasicProject(Content &content);
    void AddClrHeader(Content &content);
    void ChooseEntry(Fill fill, const Content &content);
    Content ContentOf(const Shape &shape, pe::builder::Section &section);
    void AddPieces(Fill fill, Bytes bytes, pe::builder::Section &section);
    void AdvanceAddress();
    void Take(std::span<const Shape> shapes) { shapes_.assign(shapes.begin(), shapes.end()); }

    // Imports and exports (specimen_tables.cpp).
    void AddTables(pe::builder::Section &section);
    pe::builder::ImportTable MakeImports();
    std::string SpellModule(const ModuleFunctions &module);
    pe::builder::ExportTable MakeExports();

    const RulePlan &plan_;
    const Archetype &archetype_;
    Random family_random_; // the same for all rules of a family
    Random random_;        // this rule's own
    std::string word_;     // of the family
    std::vector<Shape> shapes_;
    PlannedResources resources_;
    pe::builder::PeImage image_;
    uint32_t image_base_ = 0;
    uint32_t next_address_ = kFirstAddress;
    uint32_t loader_code_ = 0;  // into the loader's section
    uint32_t entry_offset_ = 0; // into the entry point's section
    uint32_t clr_header_ = 0;   // RVA
    std::vector<SectionMarks> marks_;
    Content overlay_;
    Specimen specimen_;
};

} // namespace tavrik::generator

#endif
