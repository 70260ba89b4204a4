include(CMakePackageConfigHelpers)

install(TARGETS sys_marlix sys_marlix_static
    EXPORT sys_marlix_targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sys_marlix FILES_MATCHING PATTERN "*.h")
if(NOT CMAKE_SYSTEM_NAME STREQUAL "QNX")
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sys_marlix/host FILES_MATCHING PATTERN "*.h")
endif()

set(MARLIX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/sys_marlix)
install(EXPORT sys_marlix_targets NAMESPACE marlix:: DESTINATION ${MARLIX_PACKAGE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/sys_marlixConfig.cmake.in
    ${PROJECT_BINARY_DIR}/sys_marlixConfig.cmake INSTALL_DESTINATION ${MARLIX_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/sys_marlixConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/sys_marlixConfig.cmake ${PROJECT_BINARY_DIR}/sys_marlixConfigVersion.cmake
    DESTINATION ${MARLIX_PACKAGE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/sys_marlix.pc.in ${PROJECT_BINARY_DIR}/sys_marlix.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/sys_marlix.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
