#!/usr/bin/env bash
# What the built module shows to a loader: its exports, what it needs, and that no code of its own runs at load time.
# usage: artefacts_test.sh elf|pe BIN_FOLDER
set -euo pipefail
kind=$1
cd "$2"

fail() {
    echo "artefacts_test: $*" >&2
    exit 1
}
same() { [[ $2 == "$3" ]] || fail "$1: expected '$3', is '$2'"; }

exports="HeurClean HeurGetDetectionInfo HeurGetLocatorTable YNLibDeinit YNLibInit"
ordinals="1 5 6 7 8 18 19 23 24 27 43 44"

if [[ $kind == elf ]]; then
    same "exports" "$(nm -D --defined-only tavrik2.hbx | awk '{print $3}' | sort | xargs)" "$exports"
    same "needed" "$(readelf -d tavrik2.hbx | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sort | xargs)" \
        "libc.so.6 platform.hbx"
    same "run path" "$(readelf -d tavrik2.hbx | sed -n 's/.*(RUNPATH).*\[\(.*\)\]/\1/p')" '$ORIGIN'
    # The compiler's own frame_dummy is all that runs.
    same "initialisers" "$(readelf -SW tavrik2.hbx | awk '$2 == ".init_array" || $3 == ".init_array" {print $(NF - 5)}')" \
        "000008"
    same "exports of platform.hbx" "$(nm -D --defined-only platform.hbx | awk '{print $3}' | grep -vc '^Platform' || true)" 0
else
    tool=x86_64-w64-mingw32-objdump
    same "exports" "$($tool -p tavrik2.hbx | sed -n '/Ordinal\/Name Pointer/,/^$/p' | awk '/\[ *[0-9]+\]/{print $NF}' | sort | xargs)" \
        "$exports"
    same "needed" "$($tool -p tavrik2.hbx | awk '/DLL Name/{print $3}' | sort | xargs)" "KERNEL32.dll msvcrt.dll platform.hbx"
    # Of platform.hbx every import is an ordinal: the thunk's top bit is set and there is no name.
    imported=$($tool -p tavrik2.hbx | sed -n '/DLL Name: platform.hbx/,/^$/p' | awk '/<none>/{print $1}')
    for thunk in $imported; do
        [[ $thunk == 80000000000000* ]] || fail "platform.hbx is bound by name: $thunk"
        printf '%d\n' "0x${thunk:14}"
    done | sort -n | xargs | { read -r bound; same "ordinals" "$bound" "$ordinals"; }
fi
