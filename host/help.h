/* What tavrik-scan --help says around the lists of options. */
#ifndef TAVRIK_HOST_HELP_H
#define TAVRIK_HOST_HELP_H

namespace tavrik::host {

extern const char kHelpDescription[];
extern const char kHelpUsage[];
extern const char kHelpFooter[];

} // namespace tavrik::host

#endif
