/* The structures of a Visual Basic program. */
#ifndef TAVRIK_EVALUATION_VB_PROJECT_H
#define TAVRIK_EVALUATION_VB_PROJECT_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pe/image.h"
#include "rules/names.h"

namespace tavrik::evaluation {

/** The project that a 32-bit image's entry point, or a library's exported functions, lead to. In other files everything
 * is absent. */
class VbProject {
public:
    static constexpr uint32_t kMostObjects = 1024;
    static constexpr uint32_t kMostMethods = 1024; // of one object

    /** Looks for the project header; `image` must outlive the object. */
    explicit VbProject(const pe::Image &image);

    /** The file offset of the project header. */
    std::optional<uint64_t> header() const { return header_; }

    /** From the project header to the end of its section's raw data. */
    base::Region region() const { return region_; }

    /** The value of a field of the project's structures. */
    std::optional<uint32_t> Value(const rules::Field &field);

    /** The objects that count. */
    uint32_t ObjectCount();

    /** The value of a field of one object. */
    std::optional<uint32_t> ObjectValue(uint32_t object, const rules::Field &field);

    std::optional<std::string> ObjectName(uint32_t object);

    /** The names of an object's methods that have one; nothing when there is no such object. */
    std::optional<std::vector<std::string>> MethodNames(uint32_t object);

private:
    static constexpr std::size_t kStructures = 7; // those that exist once: Origin::VbHeader to VbExternals

    struct Place {
        bool is_known = false;
        std::optional<uint64_t> offset;
    };

    bool IsHeaderAt(std::optional<uint32_t> address);
    std::optional<uint32_t> PushedByEntryPoint() const;
    std::optional<uint32_t> PushedFirst(uint32_t function) const;
    std::optional<uint64_t> PlaceOf(rules::Origin origin);
    std::optional<uint64_t> FindStructure(rules::Origin origin);
    std::optional<uint64_t> WholeAt(std::optional<uint64_t> offset, std::size_t size) const;
    std::optional<uint64_t> OffsetOf(std::optional<uint32_t> address) const;
    std::optional<uint32_t> Number(std::optional<uint64_t> structure, uint16_t offset, uint8_t width) const;
    std::optional<uint64_t> ObjectAt(uint32_t object);

    const pe::Image &image_;
    std::optional<uint64_t> header_;
    base::Region region_;
    std::array<Place, kStructures> places_ = {};
};

} // namespace tavrik::evaluation

#endif
