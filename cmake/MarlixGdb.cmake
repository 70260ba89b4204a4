# GDB loads the printers of a library from a file with the library's own name and "-gdb.py" behind it: beside the
# library, which is where the build puts them, or at the library's place below its auto-load folder, which it trusts
# without being told and which is where they are installed.
set(printers ${PROJECT_SOURCE_DIR}/tools/gdb/printers.py)
set(printers_name libsys_marlix.so.${PROJECT_VERSION}-gdb.py)
set(printers_beside_library ${CMAKE_LIBRARY_OUTPUT_DIRECTORY}/${printers_name})
add_custom_command(OUTPUT ${printers_beside_library}
    COMMAND ${CMAKE_COMMAND} -E copy ${printers} ${printers_beside_library}
    DEPENDS ${printers} VERBATIM)
add_custom_target(gdb_printers ALL DEPENDS ${printers_beside_library})

# The library's place is known when it is installed.
install(CODE "
    set(place \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}\")
    file(INSTALL DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/gdb/auto-load\${place}\"
         TYPE FILE RENAME \"${printers_name}\" FILES \"${printers}\")"
    COMPONENT development)
