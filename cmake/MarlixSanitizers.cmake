# MARLIX_SANITIZE=address,undefined or thread: applied to everything built here, so that no object escapes it.
if(MARLIX_SANITIZE)
    add_compile_options(-fsanitize=${MARLIX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    # `new` of 0 bytes is null here, on purpose; Clang holds it against the standard's operator.
    add_compile_options(-fno-sanitize=returns-nonnull-attribute)
    # The library is compiled without run-time type information, in which this check would look for its objects' types.
    add_compile_options(-fno-sanitize=vptr)
    add_link_options(-fsanitize=${MARLIX_SANITIZE})
    # What GCC says of itself and Clang, until lately, did not.
    foreach(sanitizer IN ITEMS address thread)
        string(TOUPPER ${sanitizer} name)
        if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND MARLIX_SANITIZE MATCHES ${sanitizer})
            add_compile_definitions(__SANITIZE_${name}__=1)
        endif()
    endforeach()
endif()
