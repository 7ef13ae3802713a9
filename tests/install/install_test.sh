#!/usr/bin/env bash
# Installs into an empty prefix, builds the examples against it, by CMake and by make with pkg-config, and runs them on
# a sample: they must say what tavrik-scan says, and that one must find its module where the installation put it.
# Usage: install_test.sh BUILD_FOLDER SOURCE_FOLDER
set -euo pipefail
build=$1 source=$2
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT

fail() {
    echo "install_test: $*" >&2
    exit 1
}

cmake --install "$build" --prefix "$prefix" >/dev/null
cp -r "$source/examples" "$prefix/make"
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name tavrik2.pc)")
modules=$(pkg-config --variable=moduledir tavrik2)

# The sample, read by the installed scanner, which finds its module in the prefix.
"$build/bin/tavrik-samples" "$prefix/samples" >/dev/null
sample=$(compgen -G "$prefix/samples/entry07-*.exe")
status=0
"$prefix/bin/tavrik-scan" -q --json "$sample" >"$prefix/scanned" || status=$?
((status == 1)) || fail "the installed tavrik-scan returned $status"
offset=$(python3 -c 'import json, sys
print(*(hex(found["offset"]) for found in json.load(open(sys.argv[1]))["findings"] if found["entry"] == 7))' "$prefix/scanned")
[[ $offset ]] || fail "the installed tavrik-scan found nothing in $sample"
"$prefix/bin/tavrik-rules" show 173 | grep -q Worm.Autorun.LD4 || fail "the installed tavrik-rules has no rule 173"

cmake -S "$source/examples" -B "$prefix/cmake" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_FLAGS=-Werror -DCMAKE_CXX_FLAGS=-Werror >"$prefix/log" 2>&1 || { cat "$prefix/log"; fail "configuring the examples"; }
cmake --build "$prefix/cmake" >"$prefix/log" 2>&1 || { cat "$prefix/log"; fail "building the examples"; }
make -C "$prefix/make" CFLAGS=-Werror >"$prefix/log" 2>&1 || { cat "$prefix/log"; fail "building with make"; }
for host in cmake/module_host cmake/module_host_cpp make/module_host; do
    "$prefix/$host" "$modules" "$sample" >"$prefix/said" || fail "$host returned $?"
    grep -q "entry 7, kind 81, offset $offset, size 256\$" "$prefix/said" || { cat "$prefix/said"; fail "$host lost the finding"; }
    grep -q 'rule 173: applies 1, action 4021$' "$prefix/said" || fail "$host got no clean action"
done

# The users of the library: it finds the module of its installation by itself; the static one is told.
export LD_LIBRARY_PATH
LD_LIBRARY_PATH=$(dirname "$(find "$prefix" -name libtavrik.so)")
expect_scan() {
    local status=0
    "$@" >"$prefix/said" || status=$?
    ((status <= 1)) || fail "$1 returned $status"
    grep -qi "$((offset))\|$offset" "$prefix/said" || { cat "$prefix/said"; fail "$1 lost the finding"; }
}
expect_scan "$prefix/cmake/scan_file" "$sample"
expect_scan "$prefix/make/scan_file" "$sample"
expect_scan "$prefix/cmake/scan_file_cpp" "$sample" "$sample"
expect_scan "$prefix/cmake/scan_file_static" "$sample" "$modules/tavrik2.hbx"

# A companion that is missing is said by the C host and by the library, and nothing crashes.
rm "$modules/disasm.hbx"
"$prefix/cmake/module_host" "$modules" "$sample" 2>"$prefix/said" && fail "started without disasm.hbx"
grep -q disasm.hbx "$prefix/said" || fail "nothing names disasm.hbx"
"$prefix/cmake/scan_file" "$sample" 2>"$prefix/said" && fail "scanned without disasm.hbx"
grep -q 'disasm.hbx: no such file.*(companion-missing)' "$prefix/said" || fail "the library does not name disasm.hbx"

# Completions are valid for the shells that are there; man pages without warnings.
tools=(tavrik-scan tavrik-rules)
[[ ! -e $prefix/bin/tavrik-corpus ]] || tools+=(tavrik-corpus)
for tool in "${tools[@]}"; do
    bash -n "$prefix/share/bash-completion/completions/$tool"
    if command -v man >/dev/null; then
        [[ -z $(MANROFFSEQ='' man --warnings -E UTF-8 -l "$prefix/share/man/man1/$tool.1" 2>&1 >/dev/null) ]] ||
            fail "the man page of $tool has warnings"
    fi
done
bash -c 'source "$1"; COMP_WORDS=(tavrik-scan --max); COMP_CWORD=1; compopt() { :; }; _tavrik_scan
         [[ ${COMPREPLY[*]} == --max-size ]]' - "$prefix/share/bash-completion/completions/tavrik-scan" ||
    fail "bash completes --max otherwise than to --max-size"
