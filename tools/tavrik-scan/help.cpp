#include "tools/tavrik-scan/help.h"

namespace tavrik::scan_tool {

const char kHelpDescription[] =
    R"(Scans PE files (programs and DLLs of Windows) with the rules and the payload locators of the module.

Prints a line for whatever it finds in a file:
  FILE: rule 173 "Worm.Autorun.LD4", action quarantine
      a detection: the file looks as the rule says; the action is what the module has for cleaning it
  FILE: entry 7, Nullsoft installer, offset 0x1a00, size 256
      a finding: the file carries an installer, a script or an archive, found by that entry of the locator table
Files that are no PE files are passed over. Files are only read, never changed and never run.
)";

const char kHelpUsage[] = "Usage: tavrik-scan [OPTIONS] PATH...\n"
                          "       tavrik-scan [OPTIONS] --files-from LIST [PATH...]\n"
                          "       tavrik-scan [OPTIONS] explain WHAT FILE\n"
                          "       tavrik-scan locators\n"
                          "       tavrik-scan [OPTIONS] clean-action RULE FILE\n";

const char kHelpFooter[] =
    R"(Exit codes:
  0    nothing found
  1    something found (explain: what is explained is met; clean-action: an action applies)
  2    an error happened; it stands on standard error, and the other files were scanned all the same
  130  interrupted by Ctrl-C (143: by a request to end); what had been scanned has been printed
  141  nobody reads standard output any more

JSON: each line is an object with
  file, size (bytes, null when unknown), sha256 (with --sha256)
  status      "scanned", "not-pe", "skipped" (then: reason) or "error" (then: error)
  detections  [{rule, name, action}], action being "none", "quarantine", "quarantine-and-trace" or "cannot-open"
  findings    [{entry, kind, kind_name, offset, size}], with --carve also carved, the new file
Lines stand in the order of the input, whatever -j is.
JSON knows no other text than UTF-8: bytes of names that are none are replaced by U+FFFD.

Examples:
  tavrik-scan setup.exe                           scan one file
  tavrik-scan -r Downloads                        scan a folder and all below it
  tavrik-scan explain rule:173 file.exe           why does rule 173 (not) match this file?
  tavrik-scan -r --carve payloads Downloads       write the found payloads into the folder payloads
  tavrik-scan -r --json . | jq -r 'select(.detections != []) | .file'
                                                  the names of the detected files
  tavrik-scan -r --json . | jq 'select(.status == "error") | {file, error}'
                                                  what could not be scanned
  find / -xdev -name '*.exe' -print0 | tavrik-scan --files-from - -0
                                                  the files that another program names
  find . -type f -print0 | xargs -0 -n 500 tavrik-scan -q --json -- > found.jsonl

What is passed over: inside folders symbolic links, devices, pipes and sockets. Files of 2 GiB and more are held against
the rules; for the locators they are too large, which is an error.
The size of a finding is the entry's own statement, not the length of the payload.
clean-action does not check whether the rule matches the file; it opens it for writing, too, and changes nothing.
A payload is carved from its offset to the end of the file, an appended signature included. The new file is called like
the scanned one, with the offset: setup.exe.0x1a00.bin (.rar, .cab); where that name is taken, setup.exe.0x1a00.2.bin.
Name a file that is called like a command with its folder (./explain), and one that begins with a dash after --.
Characters of file names that could upset a terminal are shown as \xNN.)";

} // namespace tavrik::scan_tool
