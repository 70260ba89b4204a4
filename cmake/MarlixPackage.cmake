# `dev package`: Debian packages, one a component.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "The sys_marlix developers")
set(CPACK_PACKAGE_CONTACT "The sys_marlix developers <maintainers@sys-marlix.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/MarlixDebianFiles.cmake)
set(CPACK_MARLIX_STRIP ${CMAKE_STRIP})

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SOURCE libsys-marlix)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_CROSSCOMPILING)
    # The cross compiler's libraries belong to packages of this machine, so the target's cannot be told from them. The
    # versions are those of the newest symbols in use.
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.5)")
    set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 5.2)")
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libsys-marlix${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
configure_file(packaging/debian/shlibs.in ${PROJECT_BINARY_DIR}/debian/shlibs @ONLY)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_BINARY_DIR}/debian/shlibs ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"Strings, streams, containers, locks, timers, channels, shared memory and one
way to report assertions and failures, for services of a QNX Neutrino system.
On Linux the Neutrino calls are part of the library.
.
This is the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libsys-marlix-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS sys-marlix-tools)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"Headers, the static library, the files for CMake and pkg-config, support for
the debugger, and the guide with the reference.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME sys-marlix-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"Programs for people who work with services that use libsys_marlix on Linux:
the live view of the system log, the list of shared memory that killed
processes left, and the source lines of a backtrace file.")

# What a debugger reads becomes packages of their own, "-dbgsym": with them addresses of an installed library have
# names and lines.
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_TOOLS_DEBUGINFO_PACKAGE ON)
set(CPACK_READELF_EXECUTABLE ${CMAKE_READELF})
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_OBJDUMP_EXECUTABLE ${CMAKE_OBJDUMP})

include(CPack)
