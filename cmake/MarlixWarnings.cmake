# Two interface targets carry the warning flags; neither ever reaches a user of the installed library.
add_library(marlix_warnings INTERFACE)
target_compile_options(marlix_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Werror
    -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wcast-align -Wcast-qual
    -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wundef -Wvla -Wdouble-promotion
    -Wmissing-declarations
    $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op -Wduplicated-cond -Wduplicated-branches>)

# Tests, examples, tools and benchmarks: errors as well, without the conversion diagnostics that test macros trip.
add_library(marlix_user_warnings INTERFACE)
target_compile_options(marlix_user_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wundef -Wvla
    # The macros of typed test suites end in arguments that may be missing; only C++20 says so.
    $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>)
