/* A file's map as a picture of scalable vector graphics. */
#ifndef TAVRIK_SCANNER_MAP_SVG_MAP_H
#define TAVRIK_SCANNER_MAP_SVG_MAP_H

#include <string>

#include "scanner/map/file_map.h"

namespace tavrik::scanner::map {

/** The style of the pictures, for a document with several of them: rules of CSS that concern the class tavrik-map only,
 * with colours for light and for dark screens. */
extern const char kMapStyle[];

/** The picture as an element for such a document, without its style. */
std::string SvgElement(const FileMap &map);

/** The picture as a document of its own. */
std::string SvgDocument(const FileMap &map);

} // namespace tavrik::scanner::map

#endif
