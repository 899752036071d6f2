# Run paths of the programs and modules that use the shared library and are
# installed. CMake would link them with their build-tree run path padded with
# ':' (room for the install step to write the install run path in place), and
# the dynamic loader reads the empty element that leaves as the current
# directory. So they are linked with their install run path, which sizes the
# entry, and cmake/set_origin_run_path.cmake writes over it in place: after the
# link the path to the library in the build tree, at install the installed one
# again, both relative to $ORIGIN.

# Installs `target` into `destination` (relative to the prefix), in the
# install component given after it, if any.
function(tavo_install_with_origin_run_path target destination)
  if(ARGN)
    set(component COMPONENT ${ARGN})
  endif()
  set(script ${CMAKE_SOURCE_DIR}/cmake/set_origin_run_path.cmake)
  file(RELATIVE_PATH lib_from_destination /prefix/${destination} /prefix/${CMAKE_INSTALL_LIBDIR})
  set_target_properties(${target} PROPERTIES
    INSTALL_RPATH "$ORIGIN/${lib_from_destination}" BUILD_WITH_INSTALL_RPATH ON)
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND ${CMAKE_COMMAND} -DFILE=$<TARGET_FILE:${target}> -DLIBRARY_DIR=$<TARGET_FILE_DIR:tavo_lumo_hdr>
      -P ${script}
    VERBATIM)
  install(TARGETS ${target} DESTINATION ${destination} ${component})
  install(CODE "block()
    set(FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${destination}/$<TARGET_FILE_NAME:${target}>\")
    set(LIBRARY_DIR \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}\")
    include(${script})
  endblock()" ${component})
endfunction()
