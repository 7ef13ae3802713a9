/* What a rule can ask of a finished image, read back from its bytes: the generator takes every value from here, so that
 * a rule matches what its specimen contains.
 *
 * This is on purpose a second reading besides that of pe/ and evaluation/: every value of the database comes from here
 * and is checked against the evaluator by the tests, so a fault in one of the two readings shows as a rule that does
 * not match its own specimen. It shares the numbers of pe/format.h and parses on its own. */
#ifndef TAVRIK_DATABASE_GENERATOR_IMAGE_FACTS_H
#define TAVRIK_DATABASE_GENERATOR_IMAGE_FACTS_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "rules/names.h"
#include "rules/regions.h"
#include "tavrik2/section_header.h"

namespace tavrik::generator {

/** A range of the file: offset and length in bytes. */
struct Stretch {
    uint32_t offset = 0;
    uint32_t size = 0;
};

struct ImportFacts {
    uint32_t descriptor = 0; // file offset
    std::string module;
    std::vector<std::string> functions; // names, or "#" and the ordinal
};

/** A type's or entry's number (0xFFFFFFFF with a name) and name. */
struct ResourceId {
    uint32_t number = rules::kAnyResource;
    std::string name;
};

struct ResourceFacts {
    ResourceId type;
    ResourceId entry;
    uint16_t language = 0;
    Stretch data;
};

/** Reads an image that the generator has built; it is taken to be well formed. The bytes are borrowed. */
class ImageFacts {
public:
    explicit ImageFacts(std::span<const uint8_t> file);

    /** The value of a header field; nothing when the file does not have it. */
    std::optional<uint32_t> Header(uint32_t field) const;

    std::span<const SectionHeader> Sections() const { return sections_; }

    /** The position of the section that a selector names. */
    std::optional<uint32_t> SectionOf(uint16_t selector) const;

    /** The value of a section header's field, 1 to 9. */
    uint32_t SectionValue(uint32_t section, uint8_t field) const;

    /** A section's name, up to its first NUL. */
    std::string SectionName(uint32_t section) const;

    /** Raw data of a section, cut at the end of the file; empty when there is none. */
    Stretch RawData(uint32_t section) const;

    /** The region of a string kind or of a measure; empty when the file does not have it. `index` is the number of the
     * section or resource, `name` that of the section. */
    Stretch StringRegion(uint8_t kind, uint32_t index, const std::string &name) const;
    Stretch MeasureRegion(uint8_t code, uint32_t index) const;

    const std::vector<ImportFacts> &Imports() const { return imports_; }
    const std::vector<ResourceFacts> &Resources() const { return resources_; }

    /** The number of Visual Basic objects, and a field of one of them. */
    uint32_t ObjectCount() const;
    std::optional<uint32_t> ObjectField(uint32_t object, uint32_t field) const;

    /** `width` little-endian bytes at a file offset; nothing when they do not lie wholly in the file. */
    std::optional<uint32_t> Read(uint64_t offset, uint32_t width) const;

    std::optional<uint32_t> OffsetOfRva(uint32_t rva) const;
    std::span<const uint8_t> Bytes(Stretch stretch) const { return file_.subspan(stretch.offset, stretch.size); }

private:
    std::optional<uint32_t> Derived(uint32_t field) const;
    std::optional<uint32_t> RichValue(uint32_t field) const;
    std::optional<uint32_t> VisualBasicBase(rules::Origin origin) const;
    std::optional<uint32_t> OffsetOfAddress(std::optional<uint32_t> address) const;
    std::optional<uint32_t> OptionalField(const rules::Field &field) const;
    std::optional<uint32_t> SectionHolding(std::optional<uint32_t> rva) const;
    uint32_t OverlayOffset() const;
    Stretch RegionAt(rules::CodedRegion region, uint32_t index, const std::string &name) const;
    Stretch VisualBasicRegion() const;
    std::string TextAt(uint32_t offset) const;
    void ReadImports();
    void ReadResources();
    void ReadResourceLevel(uint32_t root, uint32_t directory, uint32_t level, ResourceFacts &path);

    std::span<const uint8_t> file_;
    uint32_t headers_ = 0; // e_lfanew
    bool is_plus_ = false;
    std::vector<SectionHeader> sections_;
    std::vector<ImportFacts> imports_;
    std::vector<ResourceFacts> resources_;
    uint32_t vb_header_ = 0; // file offset; 0: none
};

/** The Shannon entropy of the bytes in thousandths of a bit per byte, by integer arithmetic; exact to one unit. */
uint32_t EntropyInThousandths(std::span<const uint8_t> bytes);

} // namespace tavrik::generator

#endif
