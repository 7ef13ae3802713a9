# Writes a C++ source that holds the hand-written rules: cmake -DOUTPUT=FILE "-DTEXTS=FILE;..." -P embed_texts.cmake
set(literals "")
foreach(path IN LISTS TEXTS)
    file(READ ${path} text)
    cmake_path(GET path FILENAME name)
    string(APPEND literals "    {\"${name}\", R\"text(${text})text\"},\n")
endforeach()
file(
    WRITE ${OUTPUT}
    "// Made by embed_texts.cmake.
#include \"database/generator/written_rules.h\"

namespace tavrik::generator {

namespace {

constexpr WrittenText kTexts[] = {
${literals}};

} // namespace

std::span<const WrittenText> WrittenTexts() {
    return kTexts;
}

} // namespace tavrik::generator
")
