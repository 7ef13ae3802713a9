#!/usr/bin/env bash
# The host author's headers under every compiler at hand: each alone, as C11 and as C++11, as MSVC lays structures out
# (clang's cl mode; the static assertions in the headers compare every size and offset), and beside other headers' names.
# The library's header as C99, C++11 and in cl mode, its C++ interface as C++17.
# Usage: headers_test.sh INCLUDE_FOLDER GENERATED_INCLUDE_FOLDER CC CXX [CLANG]
set -euo pipefail
include=$1 generated=$2 cc=$3 cxx=$4 clang=${5:-}
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

cat >"$folder/library.c" <<'TEXT'
#include "tavrik/tavrik.h"
uint64_t length_of(const char *name);
uint64_t length_of(const char *name) { return tavrik_input_path(name).length; }
TEXT
cp "$folder/library.c" "$folder/library.cpp"
echo '#include "tavrik/tavrik.hpp"' >"$folder/interface.cxx"

strict=(-Wall -Wextra -Wpedantic -Werror -fsyntax-only -I "$include" -I "$generated")
"$cc" -std=c99 "${strict[@]}" "$folder/library.c"
"$cxx" -std=c++17 "${strict[@]}" "$folder/interface.cxx"
for source in "$folder"/*.c; do "$cc" -std=c11 "${strict[@]}" "$source"; done
for source in "$folder"/*.cpp; do "$cxx" -std=c++11 "${strict[@]}" "$source"; done
[[ $clang ]] || exit 0
for source in "$folder"/*.c "$folder"/*.cpp; do
    "$clang" --driver-mode=cl --target=x86_64-pc-windows-msvc /clang:-ffreestanding /W4 /WX /Zs /I "$include" /I "$generated" "$source"
done
