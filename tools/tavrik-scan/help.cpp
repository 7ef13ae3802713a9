#include "tools/tavrik-scan/help.h"

namespace tavrik::scan_tool {

const char kHelpDescription[] =
    R"(Scans PE files (Windows programs and DLLs) with the rules and the payload locators of the module.

Prints a line for each result:
  FILE: rule 173 "Worm.Autorun.LD4", action quarantine
      a detection: the file matches the rule; the action is the module's for cleaning it
  FILE: entries 7, 42: NSIS 3 Unicode, LZMA solid, offset 0x1a00, length 123456 (complete)
      a payload: the file contains an installer, a script or an archive, found by these entries of the locator table
  FILE: near miss of entry 42: ...; unknown build: ...
      with --near: a payload that no entry finds, and what the nearest one asks for; no finding
Files inside payloads and archives are scanned too, as FILE!MEMBER. Other files are not scanned. Files are only read, never changed and never run.
)";

const char kHelpUsage[] = "Usage: tavrik-scan [OPTIONS] PATH...\n"
                          "       tavrik-scan [OPTIONS] --files-from LIST [PATH...]\n"
                          "       tavrik-scan [OPTIONS] explain WHAT FILE\n"
                          "       tavrik-scan [OPTIONS] map FILE [-o SVG]\n"
                          "       tavrik-scan [OPTIONS] contents FILE...\n"
                          "       tavrik-scan [OPTIONS] unpack FILE -o DIR\n"
                          "       tavrik-scan [OPTIONS] clean-action RULE FILE\n"
                          "       tavrik-scan locators\n"
                          "       tavrik-scan help [COMMAND]\n";

const char kHelpFooter[] =
    R"(Exit codes:
  0    nothing found, or --exit-zero
  1    something found (explain: a rule or an entry matches; clean-action: an action applies)
  2    an error occurred; it is on standard error, and the other files have been scanned
  130  interrupted by Ctrl-C (143: by SIGTERM); the results up to then have been printed
  141  the reader of standard output has closed the pipe

JSON: an object a line, in the order of the input whatever -j is, with
  schema (1), file, size (bytes, null when unknown), sha256 (with --sha256)
  status      "scanned", "not-pe", "skipped" (then: reason) or "error" (then: error); both are {code, text}
  truncated   whether a PE file is shorter than its headers say
  detections  [{rule, name, action}], action being "none", "quarantine", "quarantine-and-trace" or "cannot-open"
  findings    [{entry, kind, kind_name, offset, size}]: what each entry said
  payloads    [{entries, offset, format, description, length, complete, sha256, ...}]: what is there, each once
  near        with --near: payloads that no entry finds: [{status, kind, kind_name, offset, entries, ...}]
  parent      of a file inside another one: that file
docs/json.md describes all of it and the columns of --format csv.

Examples:
  tavrik-scan setup.exe                           scan one file
  tavrik-scan -r Downloads                        scan a folder and its subfolders
  tavrik-scan explain rule:173 file.exe           why does rule 173 (not) match this file?
  tavrik-scan map setup.exe                       what is where in this file, as a picture
  tavrik-scan -r --near --report out.html .       a report for people, one HTML file
  tavrik-scan -r --rules my.rules --only .        scan with rules of a text alone
  tavrik-scan contents setup.exe                  list what is inside an installer, a script or an archive
  tavrik-scan unpack setup.exe -o files           write it to the folder files
  tavrik-scan -r --carve payloads Downloads       write the payloads themselves to the folder payloads
  tavrik-scan -r --json . | jq -r 'select(.detections != []) | .file'
                                                  the names of the detected files
  tavrik-scan -r --json . | jq 'select(.status == "error") | {file, error}'
                                                  what could not be scanned
  curl -s URL | tavrik-scan -                     scan what a program prints
  find / -xdev -name '*.exe' -print0 | tavrik-scan --files-from - -0
                                                  scan the files that another program lists
  find . -type f -print0 | xargs -0 -n 500 tavrik-scan -q --json -- > found.jsonl

Symbolic links, devices, pipes and sockets inside folders are not scanned; a pipe that is named is read to its end, at
most 4 GiB. Of files of 2 GiB and more the locators search the first 2 GiB.
Sizes are in bytes, or with K, M or G (also KB, KiB and so on), powers of 1024: 500K, 1.5M.
The size of a finding is what the entry reports; the length of a payload is that of its own structure.
A carved payload is named after the scanned file with the offset: setup.exe.0x1a00.nsis (.a3x, .cab, .rar; .bin, up to the
end of the file, where the structure is not known); if the name is taken, setup.exe.0x1a00.2.nsis. The same bytes are
written once. Payloads of files inside other files are not carved: unpack those first.
contents and unpack end with 0 when everything could be read, else with 2.
Write a file name that equals a command with its folder (./explain), and one that begins with a dash after --.
Control characters in file names are shown as \xNN.)";

} // namespace tavrik::scan_tool
