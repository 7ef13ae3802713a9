/* A file's map as text for a terminal. */
#ifndef TAVRIK_SCANNER_MAP_TERMINAL_MAP_H
#define TAVRIK_SCANNER_MAP_TERMINAL_MAP_H

#include <cstddef>
#include <string>

#include "scanner/map/file_map.h"

namespace tavrik::scanner::map {

/** What the terminal can show. */
struct TerminalLook {
    std::size_t columns = 80;
    bool in_colour = false; // by escape sequences of 256 colours
};

/** Narrower terminals than this are drawn to as if they had so many columns. */
inline constexpr std::size_t kLeastColumns = 40;

/** The picture, to scale, and below it a table of the segments and marks; lines, each with its line feed. Names from
 * the file are made printable. */
std::string TerminalText(const FileMap &map, TerminalLook look);

} // namespace tavrik::scanner::map

#endif
