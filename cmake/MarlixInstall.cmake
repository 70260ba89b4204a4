# Three components, as Debian divides packages: `runtime` is what a target needs, `development` what building needs,
# `tools` the programs for people. `cmake --install` takes all of them.
include(CMakePackageConfigHelpers)

install(TARGETS sys_marlix sys_marlix_static
    EXPORT sys_marlix_targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sys_marlix COMPONENT development FILES_MATCHING PATTERN "*.h")
if(NOT CMAKE_SYSTEM_NAME STREQUAL "QNX")
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sys_marlix/host COMPONENT development FILES_MATCHING PATTERN "*.h")
endif()

set(MARLIX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/sys_marlix)
install(EXPORT sys_marlix_targets NAMESPACE marlix:: DESTINATION ${MARLIX_PACKAGE_DIR} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/sys_marlixConfig.cmake.in
    ${PROJECT_BINARY_DIR}/sys_marlixConfig.cmake INSTALL_DESTINATION ${MARLIX_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/sys_marlixConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/sys_marlixConfig.cmake ${PROJECT_BINARY_DIR}/sys_marlixConfigVersion.cmake
    DESTINATION ${MARLIX_PACKAGE_DIR} COMPONENT development)

# The prefix is known at last when the file is installed: `cmake --install --prefix` may name another one.
set(MARLIX_PREFIX "@MARLIX_PREFIX@")
configure_file(${PROJECT_SOURCE_DIR}/cmake/sys_marlix.pc.in ${PROJECT_BINARY_DIR}/sys_marlix.pc.in @ONLY)
install(CODE "
    get_filename_component(MARLIX_PREFIX \"\${CMAKE_INSTALL_PREFIX}\" ABSOLUTE)
    configure_file(\"${PROJECT_BINARY_DIR}/sys_marlix.pc.in\" \"${PROJECT_BINARY_DIR}/sys_marlix.pc\" @ONLY)"
    COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/sys_marlix.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

foreach(tool IN ITEMS btview shmview slogview)
    if(TARGET ${tool})
        install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
        install(FILES ${PROJECT_SOURCE_DIR}/tools/${tool}/${tool}.1
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools OPTIONAL)
    endif()
endforeach()

set(MARLIX_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/libsys-marlix-dev)
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${MARLIX_DOC_DIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${MARLIX_DOC_DIR} COMPONENT development
    FILES_MATCHING PATTERN "*.md")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/guide DESTINATION ${MARLIX_DOC_DIR}/examples COMPONENT development
    REGEX "/guide/CMakeLists\\.txt$" EXCLUDE)  # it builds the programs in this project
# The guide as pages, with the reference, if `dev docs` has made them.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/build/docs/html DESTINATION ${MARLIX_DOC_DIR} COMPONENT development OPTIONAL)
