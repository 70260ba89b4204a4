# One set of objects serves both libraries. Each room adds its sources to it; the host layer adds its own.
add_library(sys_marlix_objects OBJECT)
target_include_directories(sys_marlix_objects
    PUBLIC  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    PRIVATE ${PROJECT_SOURCE_DIR}/src)
# A program may replace the library, but not one of its functions under the others: calls within a unit stay direct.
# Without exceptions the ARM compiler leaves out what a backtrace needs to find its way through the library.
# Where the processor has such calls, functions of other libraries are called through their addresses without a detour.
target_compile_options(sys_marlix_objects PRIVATE
    -fno-exceptions -fno-rtti -fno-semantic-interposition -fno-plt -funwind-tables
    ${MARLIX_COUNT_OPTIONS})
target_link_libraries(sys_marlix_objects PRIVATE marlix_warnings)

# What both libraries offer to their users: the headers, and on the host the kernel's headers beside them.
function(marlix_library target kind)
    add_library(${target} ${kind} $<TARGET_OBJECTS:sys_marlix_objects>)
    target_compile_features(${target} PUBLIC cxx_std_17)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/sys_marlix>)
    if(NOT CMAKE_SYSTEM_NAME STREQUAL "QNX")
        target_sources(${target} PRIVATE $<TARGET_OBJECTS:neutrino_host_objects>)
        target_include_directories(${target} PUBLIC
            $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/host/include>
            $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/sys_marlix/host>)
        target_link_libraries(${target} PUBLIC Threads::Threads)
    endif()
    set_target_properties(${target} PROPERTIES OUTPUT_NAME sys_marlix)
endfunction()

if(NOT CMAKE_SYSTEM_NAME STREQUAL "QNX")
    set(THREADS_PREFER_PTHREAD_FLAG ON)
    find_package(Threads REQUIRED)
endif()

marlix_library(sys_marlix SHARED)
set_target_properties(sys_marlix PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
add_library(marlix::sys_marlix ALIAS sys_marlix)

marlix_library(sys_marlix_static STATIC)
add_library(marlix::sys_marlix_static ALIAS sys_marlix_static)
