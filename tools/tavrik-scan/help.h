/* The texts of tavrik-scan --help around the lists of options. */
#ifndef TAVRIK_TOOLS_TAVRIK_SCAN_HELP_H
#define TAVRIK_TOOLS_TAVRIK_SCAN_HELP_H

namespace tavrik::scan_tool {

extern const char kHelpDescription[];
extern const char kHelpUsage[];
extern const char kHelpFooter[];

} // namespace tavrik::scan_tool

#endif
