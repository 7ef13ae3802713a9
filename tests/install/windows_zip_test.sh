#!/usr/bin/env bash
# Unpacks the .zip for Windows and uses what is in it under wine: every DLL that a file asks for is Windows' own or in the
# same folder, the tools find their module and scan, and a C program that is linked to the library scans too.
# Usage: windows_zip_test.sh ZIP SAMPLE EXAMPLES
set -euo pipefail
zip=$1 sample=$(realpath "$2") examples=$3
folder=$(mktemp -d)
export WINEDEBUG=-all WINEPREFIX=$folder/wine
export PATH=$PATH:/usr/lib/wine
# Wine's server writes into its folder for a while after the last program.
trap '{ wineserver64 -k && wineserver64 -w; } 2>/dev/null || true; rm -rf "$folder"' EXIT
system='^(kernel32|advapi32|shell32|user32|ole32|msvcrt|ntdll|bcrypt|ws2_32|psapi|shlwapi|api-ms-win-.*)\.dll$'

fail() {
    echo "windows_zip_test: $*" >&2
    exit 1
}

python3 -m zipfile -e "$zip" "$folder/zip"
root=$(dirname "$(dirname "$(find "$folder/zip" -name tavrik-scan.exe)")")
files=$(find "$root" -name '*.exe' -o -name '*.dll' -o -name '*.hbx')
[[ $(wc -l <<<"$files") -ge 7 ]] || fail "the .zip lacks programs or modules: $files"
for file in $files; do
    for needed in $(x86_64-w64-mingw32-objdump -p "$file" | sed -n 's/^\s*DLL Name: //p'); do
        [[ ${needed,,} =~ $system || -e $(dirname "$file")/$needed ]] || fail "${file##*/} needs $needed, which is not beside it"
    done
done

# expect STATUS PATTERN COMMAND...: runs a program under wine.
expect() {
    local status=0 wanted=$1 pattern=$2
    shift 2
    wine64 "$@" >"$folder/said" 2>&1 || status=$?
    ((status == wanted)) && grep -q "$pattern" "$folder/said" || { cat "$folder/said"; fail "$1 returned $status"; }
}
expect 1 'entr.*7.*Nullsoft\|NSIS' "$root/bin/tavrik-scan.exe" -q "$sample"
expect 0 Worm.Autorun.LD4 "$root/bin/tavrik-rules.exe" show 173
x86_64-w64-mingw32-gcc-posix -I"$root/include" "$examples/scan_file.c" -o "$root/bin/scan_file.exe" \
    "$(find "$root/lib" -name 'libtavrik.dll.a')"
expect 1 Nullsoft "$root/bin/scan_file.exe" "$sample"
