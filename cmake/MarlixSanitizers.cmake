# MARLIX_SANITIZE=address,undefined or thread: applied to everything built here, so that no object escapes it.
if(MARLIX_SANITIZE)
    add_compile_options(-fsanitize=${MARLIX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${MARLIX_SANITIZE})
endif()
