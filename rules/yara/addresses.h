/* Texts that lead from addresses in memory to file offsets and to the names there, without t and n (conditions.h),
 * since loops nest four deep at most.
 *
 * A place is where the offset of an RVA can be found: 0 is the headers, a higher number the section before it in the
 * table. So one loop, which may run over several numbers at once, serves both. */
#ifndef TAVRIK_RULES_YARA_ADDRESSES_H
#define TAVRIK_RULES_YARA_ADDRESSES_H

#include <string>
#include <string_view>

namespace tavrik::rules::yara {

/** The last place, and a number of places, all of which that count are below it. */
inline constexpr std::string_view kLastPlace = "math.min(uint16(uint32(0x3C) + 6), 512)";
inline constexpr std::string_view kPlaces = "(uint16(uint32(0x3C) + 6) + 1)";

/** That the RVA is to be looked for in this place; true of one place at most. Nests one loop, over j. */
std::string IsMapped(std::string_view rva, std::string_view place);

/** The file offset of an RVA that is mapped in this place; it may lie outside the file. */
std::string MappedOffset(std::string_view rva, std::string_view place);

/** That there is an offset of the RVA. Nests two loops, over p and j. */
std::string HasOffset(std::string_view rva);

/** How names are compared. */
struct NameTest {
    bool is_cased = true;
    bool is_prefix = false; // the file's name may go on
};

/** That at this offset there is a name, ended by NUL and not longer than names may be. Nests one loop, over z. */
std::string IsName(std::string_view offset);

/** That it is `name`. Nests one loop, over o and z. */
std::string IsNamed(std::string_view offset, std::string_view name, NameTest test = {});

} // namespace tavrik::rules::yara

#endif
