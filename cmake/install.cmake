# What `cmake --install` copies: the headers and modules, the tools with their man pages and completions, what CMake and
# pkg-config need to find them, the documents and the examples.
include(CMakePackageConfigHelpers)

# tavrik2::headers: what a host of the module compiles with, here and when installed.
add_library(tavrik2_headers INTERFACE)
add_library(tavrik2::headers ALIAS tavrik2_headers)
set_target_properties(tavrik2_headers PROPERTIES EXPORT_NAME headers)
target_include_directories(tavrik2_headers INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
                                                     $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
install(DIRECTORY include/tavrik2 TYPE INCLUDE)
install(TARGETS tavrik2_headers EXPORT tavrik2Targets)

install(FILES include/tavrik/tavrik.h include/tavrik/tavrik.hpp ${PROJECT_BINARY_DIR}/include/tavrik/version.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tavrik)
install(TARGETS tavrik tavrik_static EXPORT tavrikTargets)

set(modules tavrik2 platform disasm scansdk)
install(TARGETS ${modules} RUNTIME DESTINATION ${TAVRIK_MODULE_DIR} LIBRARY DESTINATION ${TAVRIK_MODULE_DIR}
                           ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} EXCLUDE_FROM_ALL)
set(tools tavrik-scan tavrik-rules)
if(TAVRIK_HAS_STORE)
    list(APPEND tools tavrik-corpus)
endif()
# The target `installed` builds all that an installation needs.
add_custom_target(installed DEPENDS ${modules} ${tools} tavrik tavrik_static)
install(TARGETS ${tools} RUNTIME)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tavrik2)
install(EXPORT tavrik2Targets NAMESPACE tavrik2:: DESTINATION ${package_dir})
install(EXPORT tavrikTargets NAMESPACE tavrik:: DESTINATION ${package_dir})
configure_package_config_file(cmake/tavrik2Config.cmake.in tavrik2Config.cmake INSTALL_DESTINATION ${package_dir}
                              PATH_VARS TAVRIK_MODULE_DIR)
write_basic_package_version_file(tavrik2ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tavrik2Config.cmake ${CMAKE_CURRENT_BINARY_DIR}/tavrik2ConfigVersion.cmake
        DESTINATION ${package_dir})

# pkg-config's files lead to the prefix by their own place, so that an installation can be moved.
file(RELATIVE_PATH prefix_from_pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" prefix_from_pkgconfig ${prefix_from_pkgconfig})
get_property(private_libraries GLOBAL PROPERTY tavrik_system_libraries)
list(TRANSFORM private_libraries REPLACE "^.*/lib([^/]*)\\.(so|a)$" "-l\\1")
list(TRANSFORM private_libraries REPLACE "^([^-].*)$" "-l\\1")
list(JOIN private_libraries " " private_libraries)
foreach(package tavrik tavrik2)
    configure_file(cmake/${package}.pc.in ${package}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

install(FILES README.md LICENSE TYPE DOC)
install(DIRECTORY docs/ TYPE DOC)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR})

# Man pages and completions are made from what the tools' --help says, so only where they run.
if(CMAKE_CROSSCOMPILING OR NOT PROJECT_IS_TOP_LEVEL)
    return()
endif()
find_package(Python3 REQUIRED COMPONENTS Interpreter)
# Debian's zsh has a folder of its own for packages.
set(zsh_folder site-functions)
if(CMAKE_INSTALL_PREFIX STREQUAL /usr)
    set(zsh_folder vendor-completions)
endif()
set(command_lines ${PROJECT_BINARY_DIR}/command-lines)
foreach(tool ${tools})
    add_custom_command(
        OUTPUT ${command_lines}/${tool}.1
        BYPRODUCTS ${command_lines}/${tool}.bash ${command_lines}/_${tool} ${command_lines}/${tool}.fish
        COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/cmake/command_line_files.py $<TARGET_FILE:${tool}>
                ${PROJECT_VERSION} ${command_lines}
        DEPENDS ${tool} cmake/command_line_files.py
        COMMENT "Writing the man page and the completions of ${tool}"
        VERBATIM)
    install(FILES ${command_lines}/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    install(FILES ${command_lines}/${tool}.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ${tool})
    install(FILES ${command_lines}/_${tool} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/${zsh_folder})
    install(FILES ${command_lines}/${tool}.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endforeach()
list(TRANSFORM tools REPLACE "(.+)" "${command_lines}/\\1.1" OUTPUT_VARIABLE man_pages)
add_custom_target(command_line_files ALL DEPENDS ${man_pages})
add_dependencies(installed command_line_files)
