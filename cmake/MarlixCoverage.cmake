# MARLIX_COVERAGE=ON: the library counts which of its lines and branches run. Its objects are instrumented, and what of
# the tests compiles parts of the library a second time; the other tests are not.
option(MARLIX_COVERAGE "Count the lines and branches that run (GCC only)" OFF)
set(MARLIX_COUNT_OPTIONS "")
if(MARLIX_COVERAGE)
    # Without exceptions, as the library is: each call would be a branch otherwise.
    set(MARLIX_COUNT_OPTIONS --coverage -fprofile-update=atomic -fprofile-abs-path -fno-exceptions)
    add_link_options(--coverage)
    # In every program and library: a process that ends without `exit` writes its counts, too.
    add_library(marlix_coverage_flush OBJECT ${PROJECT_SOURCE_DIR}/tests/support/CoverageFlush.cpp)
    link_libraries($<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,OBJECT_LIBRARY>>:$<TARGET_OBJECTS:marlix_coverage_flush>>)
endif()

# marlix_parts(<source>...): these sources of a test compile parts of the library. They do so alone, and what of it runs
# is counted.
function(marlix_parts)
    set_property(SOURCE ${ARGN} PROPERTY SKIP_UNITY_BUILD_INCLUSION ON)
    if(MARLIX_COVERAGE)
        set_property(SOURCE ${ARGN} APPEND PROPERTY COMPILE_OPTIONS ${MARLIX_COUNT_OPTIONS})
        set_property(SOURCE ${ARGN} PROPERTY SKIP_PRECOMPILE_HEADERS ON)
    endif()
endfunction()
