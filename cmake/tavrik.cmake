# What every folder of the tree builds with.

# tavrik_options: our warnings, as errors, and the sanitizers of the preset.
add_library(tavrik_options INTERFACE)
target_include_directories(tavrik_options INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
target_compile_options(
    tavrik_options
    INTERFACE -Wall -Wextra -Wpedantic -Werror -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wformat=2 -Wvla
              $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual>)
if(CMAKE_UNITY_BUILD)
    # Several sources compiled as one: what two of them call alike is no shadow, and each of them is still a main file.
    target_compile_options(tavrik_options INTERFACE -Wno-shadow $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-subobject-linkage>)
endif()
if(TAVRIK_SANITIZE)
    add_compile_options(-fsanitize=${TAVRIK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${TAVRIK_SANITIZE})
    if(TAVRIK_SANITIZE MATCHES undefined)
        # The address sanitizer and the processor see these too; they take an eighth of the time of compiling.
        add_compile_options(-fno-sanitize=null,object-size,vptr)
    endif()
endif()
if(TAVRIK_COVERAGE)
    add_compile_options(--coverage -fprofile-update=atomic)
    add_link_options(--coverage)
endif()
if(TAVRIK_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# tavrik_module(NAME sources...): a loadable module bin/NAME.hbx, free of the C++ runtime's libraries: it is linked as C,
# so a stray use of the C++ library fails to link. Modules find each other in their own folder.
function(tavrik_module name)
    add_library(${name} SHARED ${ARGN})
    target_link_libraries(${name} PRIVATE tavrik_options)
    target_compile_options(${name} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>
                           $<$<CXX_COMPILER_ID:Clang>:-Wglobal-constructors -Wexit-time-destructors>)
    set_target_properties(
        ${name} PROPERTIES PREFIX "" SUFFIX ".hbx" LINKER_LANGUAGE C UNITY_BUILD OFF INSTALL_RPATH "$ORIGIN" BUILD_WITH_INSTALL_RPATH ON)
    if(WIN32)
        target_link_options(${name} PRIVATE -static -static-libgcc)
    else()
        target_link_options(${name} PRIVATE -static-libgcc)
        if(NOT TAVRIK_SANITIZE)
            target_link_options(${name} PRIVATE -Wl,-z,defs)
        endif()
    endif()
endfunction()

# tavrik_headers: Debian's header-only libraries (CLI11, fmt, nlohmann-json), the same for the native and the cross
# build. Only these folders are made visible to the cross compiler, never all of the build machine's headers.
set(tavrik_headers_dir ${PROJECT_BINARY_DIR}/headers)
file(MAKE_DIRECTORY ${tavrik_headers_dir})
foreach(folder CLI fmt nlohmann)
    if(NOT EXISTS /usr/include/${folder})
        message(FATAL_ERROR "/usr/include/${folder} is missing: ./run installs the packages that the build needs")
    endif()
    file(CREATE_LINK /usr/include/${folder} ${tavrik_headers_dir}/${folder} SYMBOLIC)
endforeach()
add_library(tavrik_fmt STATIC cmake/fmt_library.cpp)
target_include_directories(tavrik_fmt SYSTEM PRIVATE ${tavrik_headers_dir})
add_library(tavrik_headers INTERFACE)
target_include_directories(tavrik_headers SYSTEM INTERFACE ${tavrik_headers_dir})
target_link_libraries(tavrik_headers INTERFACE tavrik_fmt)

# Programs are linked statically on Windows, so that they run without the compiler's DLLs.
function(tavrik_program name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE tavrik_options)
    set_target_properties(${name} PROPERTIES BUILD_RPATH "$ORIGIN" BUILD_RPATH_USE_ORIGIN ON)
    if(WIN32)
        target_link_options(${name} PRIVATE -static)
    endif()
endfunction()

# tavrik_build_tool(NAME sources...): a program that the build runs. Custom commands name it tavrik::NAME, both as their
# COMMAND and among what they depend on. In a native build that is the program itself. In a cross build NAME is built for
# the target system like every program, and tavrik::NAME is the same program out of a native build of this tree, in
# TAVRIK_NATIVE_BUILD, which the cross build keeps up to date.
function(tavrik_build_tool name)
    tavrik_program(${name} ${ARGN})
    if(NOT CMAKE_CROSSCOMPILING)
        add_executable(tavrik::${name} ALIAS ${name})
        return()
    endif()
    add_executable(tavrik::${name} IMPORTED GLOBAL)
    set_target_properties(tavrik::${name} PROPERTIES IMPORTED_LOCATION ${TAVRIK_NATIVE_BUILD}/bin/${name})
    add_dependencies(tavrik::${name} native_tools)
    set_property(GLOBAL APPEND PROPERTY tavrik_build_tools ${name})
endfunction()

# Defines the native build of all build tools, at the end of a cross build's configuration.
function(tavrik_native_tools)
    get_property(tools GLOBAL PROPERTY tavrik_build_tools)
    if(NOT tools)
        return()
    endif()
    include(ExternalProject)
    list(TRANSFORM tools PREPEND ${TAVRIK_NATIVE_BUILD}/bin/ OUTPUT_VARIABLE programs)
    ExternalProject_Add(
        native_tools
        PREFIX ${PROJECT_BINARY_DIR}/native-tools
        SOURCE_DIR ${PROJECT_SOURCE_DIR}
        BINARY_DIR ${TAVRIK_NATIVE_BUILD}
        CMAKE_ARGS -DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE}
        BUILD_COMMAND ${CMAKE_COMMAND} --build ${TAVRIK_NATIVE_BUILD} --target ${tools}
        BUILD_ALWAYS ON
        BUILD_BYPRODUCTS ${programs}
        INSTALL_COMMAND "")
endfunction()

# The files that `tavrik-rules compile` makes.
set(TAVRIK_RULE_FILES rule_table.cpp rule_texts.cpp)
foreach(number RANGE 7)
    list(APPEND TAVRIK_RULE_FILES rules_${number}.cpp)
endforeach()
