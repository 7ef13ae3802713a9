# Where an installation has its parts, below the prefix.
include(GNUInstallDirs)

# Programs on Windows find the modules beside them; elsewhere modules are no libraries to link with, so they get a folder.
if(WIN32)
    set(TAVRIK_MODULE_DIR ${CMAKE_INSTALL_BINDIR})
    set(TAVRIK_MODULES_FROM_PROGRAMS .)
    set(TAVRIK_MODULES_FROM_LIBRARIES .)
else()
    set(TAVRIK_MODULE_DIR ${CMAKE_INSTALL_LIBDIR}/tavrik2)
    file(RELATIVE_PATH TAVRIK_MODULES_FROM_PROGRAMS ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR}/tavrik2)
    set(TAVRIK_MODULES_FROM_LIBRARIES tavrik2)
endif()
