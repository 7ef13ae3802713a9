/* The style and the script of the report. */
#ifndef TAVRIK_SCANNER_HTML_PAGE_ASSETS_H
#define TAVRIK_SCANNER_HTML_PAGE_ASSETS_H

namespace tavrik::scanner::html {

extern const char kPageStyle[];

/** Filters and sorts the rows and makes the details of a row when it is opened. The text after # in the page's address
 * is the filter at the start: #q=WORDS, with &open to open the first row. */
extern const char kPageScript[];

} // namespace tavrik::scanner::html

#endif
