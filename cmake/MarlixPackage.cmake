# `dev package`: one Debian package with libraries, headers and tools.
set(CPACK_PACKAGE_NAME libsys-marlix-dev)
set(CPACK_PACKAGE_VENDOR "The sys_marlix developers")
set(CPACK_PACKAGE_CONTACT "The sys_marlix developers <maintainers@sys-marlix.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
