/* What the entries of the locator table ask for, in words. */
#ifndef TAVRIK_ENGINE_GATE_TEXT_H
#define TAVRIK_ENGINE_GATE_TEXT_H

#include <cstdint>
#include <string>

namespace tavrik::engine {

struct LocatorTexts {
    std::string kind;        // of its findings; "" for the entry that declines every file
    std::string description; // one line
    std::string gate;        // its conditions, a line each; alternatives indented below a heading
};

/** The texts of an entry below LOCATOR_COUNT, made once for the process. */
const LocatorTexts &TextsOf(uint32_t entry);

} // namespace tavrik::engine

#endif
