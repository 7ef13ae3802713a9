# What cpack makes of an installation: a .deb and a .tar.gz of the Linux build, a .zip of the Windows build.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON) # only what is installed has to be built
set(CPACK_PACKAGE_NAME tavrik2)
set(CPACK_PACKAGE_VENDOR "tavrik2 developers")
# Who answers for a package is who builds it. Debian wants an address: the domain of this one exists nowhere, by RFC 2606.
set(TAVRIK_CONTACT "unnamed maintainer <nobody@unnamed.invalid>" CACHE STRING "Maintainer in packages: NAME <ADDRESS>")
set(CPACK_PACKAGE_CONTACT ${TAVRIK_CONTACT})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "scanner for PE files with heuristic rules and payload locators")
set(CPACK_PACKAGE_DESCRIPTION
    "A module of heuristic rules and payload locators for Windows programs, the
library libtavrik that scans with it from C and C++, the scanner tavrik-scan,
the rule compiler tavrik-rules and tavrik-corpus, which keeps the features of
many files, with headers, man pages and completions.")
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
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/bin)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)

# What Debian asks of its packages: copyright and changes beside the documents, compressed pages, nothing for debuggers.
if(NOT WIN32 AND CMAKE_INSTALL_PREFIX STREQUAL /usr)
    set(debian ${PROJECT_BINARY_DIR}/debian)
    configure_file(cmake/debian/lintian-overrides ${debian}/tavrik2 COPYONLY)
    configure_file(cmake/debian/changelog.in ${debian}/changelog @ONLY)
    configure_file(cmake/debian/shlibs.in ${debian}/shlibs @ONLY)
    set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers ${debian}/shlibs)
    install(FILES ${debian}/tavrik2 DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides)
    install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME copyright)
    install(FILES CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME changelog)
    install(FILES ${debian}/changelog DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME changelog.Debian)
    install(
        CODE "set(usr \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
file(GLOB plain \"\${usr}/${CMAKE_INSTALL_MANDIR}/man1/*.1\" \"\${usr}/${CMAKE_INSTALL_DOCDIR}/changelog*\")
list(FILTER plain EXCLUDE REGEX gz$)
execute_process(COMMAND gzip -9nf \${plain} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND \"${CMAKE_STRIP}\" --strip-debug --enable-deterministic-archives
                        \"\${usr}/${CMAKE_INSTALL_LIBDIR}/libtavrik.a\" COMMAND_ERROR_IS_FATAL ANY)")
endif()
include(CPack)
