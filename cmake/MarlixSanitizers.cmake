# MARLIX_SANITIZE=address,undefined or thread: applied to everything built here, so that no object escapes it.
if(MARLIX_SANITIZE)
    add_compile_options(-fsanitize=${MARLIX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    # `new` of 0 bytes is null here, on purpose; Clang holds it against the standard's operator.
    add_compile_options(-fno-sanitize=returns-nonnull-attribute)
    # The library is compiled without run-time type information, in which this check would look for its objects' types.
    add_compile_options(-fno-sanitize=vptr)
    add_link_options(-fsanitize=${MARLIX_SANITIZE})
endif()
