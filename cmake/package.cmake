# What cpack makes of an installation: a .deb and a .tar.gz of the Linux build, a .zip of the Windows build.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON) # only what is installed has to be built
set(CPACK_PACKAGE_NAME tavrik2)
set(CPACK_PACKAGE_VENDOR "tavrik2 developers")
set(CPACK_PACKAGE_CONTACT "tavrik2 developers <tavrik2@lists.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "scanner for PE files with heuristic rules and payload locators")
set(CPACK_PACKAGE_DESCRIPTION
    "A module of heuristic rules and payload locators for Windows programs, the
library libtavrik that scans with it from C and C++, the scanner tavrik-scan
and the rule compiler tavrik-rules, with headers, man pages and completions.")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_MONOLITHIC_INSTALL ON)
string(TOLOWER ${CMAKE_SYSTEM_NAME} system)
set(CPACK_PACKAGE_FILE_NAME tavrik2-${PROJECT_VERSION}-${system}-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_GENERATOR TGZ DEB)
if(WIN32)
    set(CPACK_GENERATOR ZIP)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/bin)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# What Debian asks of its packages: the copyright and the changes beside the documents, man pages compressed.
if(NOT WIN32 AND CMAKE_INSTALL_PREFIX STREQUAL /usr)
    set(debian_files ${PROJECT_BINARY_DIR}/debian)
    file(MAKE_DIRECTORY ${debian_files})
    configure_file(cmake/debian/lintian-overrides ${debian_files}/tavrik2 COPYONLY)
    install(FILES ${debian_files}/tavrik2 DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides)
    install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
    install(
        CODE "execute_process(COMMAND gzip -9nc \"${PROJECT_SOURCE_DIR}/CHANGELOG.md\" OUTPUT_FILE \"${debian_files}/changelog.gz\" COMMAND_ERROR_IS_FATAL ANY)
file(GLOB pages \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man1/*.1\")
if(pages)
    execute_process(COMMAND gzip -9nf \${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()")
    install(FILES ${debian_files}/changelog.gz DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()
include(CPack)
