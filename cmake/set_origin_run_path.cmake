# Gives the binary FILE the run path $ORIGIN/<path from its directory to
# LIBRARY_DIR>, written in place (it must not be longer than the one it has).
get_filename_component(dir "${FILE}" DIRECTORY)
file(RELATIVE_PATH path "${dir}" "${LIBRARY_DIR}")
if(path)
  set(path "/${path}")
endif()
file(RPATH_SET FILE "${FILE}" NEW_RPATH "$ORIGIN${path}")
