# Gives the binary FILE the run path $ORIGIN/<path from its directory to
# LIBRARY_DIR>, written in place (it must not be longer than the one it has).
get_filename_component(dir "${FILE}" DIRECTORY)
file(RELATIVE_PATH path "${dir}" "${LIBRARY_DIR}")
if(path)
  set(path "/${path}")
endif()
file(RPATH_SET FILE "${FILE}" NEW_RPATH "$ORIGIN${path}")
# RPATH_SET keeps the file's time, cut to whole seconds: made older than what
# it was linked from in the same second, the binary would be linked again.
file(TOUCH_NOCREATE "${FILE}")
