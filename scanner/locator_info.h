/* The locator table in words. */
#ifndef TAVRIK_SCANNER_LOCATOR_INFO_H
#define TAVRIK_SCANNER_LOCATOR_INFO_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "tavrik2/payload_locator.h"

namespace tavrik::scanner {

/** What one entry of the table recognises. */
struct LocatorInfo {
    PayloadKind kind;             // of its findings
    std::string_view description; // one line: the program, and where its payload is
};

/** The entries in the table's order. Entry 27 finds nothing; its kind has no meaning. */
extern const std::array<LocatorInfo, LOCATOR_COUNT> kLocatorInfo;

/** The entry that declines every file. */
inline constexpr uint32_t kDecliningEntry = 27;

/** A payload kind in words, such as "Nullsoft installer"; a kind that this host does not know by its number. */
std::string KindName(uint32_t kind);

} // namespace tavrik::scanner

#endif
