#!/usr/bin/env bash
# The host author's headers under every compiler at hand: each alone, as C11 and as C++11, as MSVC lays structures out
# (clang's cl mode; the static assertions in the headers compare every size and offset), and beside other headers' names.
# Usage: headers_test.sh INCLUDE_FOLDER CC CXX [CLANG]
set -euo pipefail
include=$1 cc=$2 cxx=$3 clang=${4:-}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

for header in "$include"/tavrik2/*.h; do
    echo "#include \"tavrik2/${header##*/}\"" | tee "$folder/${header##*/}.c" >"$folder/${header##*/}.cpp"
done
cat >"$folder/renamed.c" <<'TEXT'
typedef struct { int other; } FileHeader;
#define FileHeader Tavrik2FileHeader
#include "tavrik2/tavrik2.h"
#undef FileHeader
int sizes[sizeof(FileHeader) == sizeof(int) && sizeof(Tavrik2FileHeader) == 20 ? 1 : -1];
TEXT
cat >"$folder/enclosed.cpp" <<'TEXT'
#include <stddef.h>
#include <stdint.h>
struct FileHeader { int other; };
namespace module_abi {
#include "tavrik2/tavrik2.h"
}
static_assert(sizeof(FileHeader) == sizeof(int) && sizeof(module_abi::FileHeader) == 20, "two types");
module_abi::YNLibInitFunction init = nullptr;
TEXT

strict=(-Wall -Wextra -Wpedantic -Werror -fsyntax-only -I "$include")
for source in "$folder"/*.c; do "$cc" -std=c11 "${strict[@]}" "$source"; done
for source in "$folder"/*.cpp; do "$cxx" -std=c++11 "${strict[@]}" "$source"; done
[[ $clang ]] || exit 0
for source in "$folder"/*.c "$folder"/*.cpp; do
    "$clang" --driver-mode=cl --target=x86_64-pc-windows-msvc /clang:-ffreestanding /W4 /WX /Zs /I "$include" "$source"
done
