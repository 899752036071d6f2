# Reads the run path (RPATH and RUNPATH) of every binary of the build tree and
# fails on an element the dynamic loader would resolve against the current
# directory: an empty one, or a relative one not based on $ORIGIN.
# Arguments: READELF, FILES (the binaries).
include(${CMAKE_CURRENT_LIST_DIR}/run_checked.cmake)

set(bad)
foreach(file IN LISTS FILES)
  run(${READELF} --dynamic ${file})
  string(REGEX MATCHALL "\\((RPATH|RUNPATH)\\)[^[\n]*\\[[^]\n]*\\]" entries "${RUN_OUTPUT}")
  foreach(entry IN LISTS entries)
    string(REGEX REPLACE ".*\\[(.*)\\]" "\\1" path "${entry}")
    string(REPLACE ":" ";" elements "${path}")
    foreach(element IN LISTS elements)
      if(NOT element MATCHES "^(/|\\$ORIGIN(/|$)|\\$\\{ORIGIN\\}(/|$))")
        list(APPEND bad "${file}: '${path}' holds '${element}'")
      endif()
    endforeach()
  endforeach()
endforeach()
if(bad)
  list(JOIN bad "\n" bad)
  message(FATAL_ERROR "run paths that search the current directory:\n${bad}")
endif()
list(LENGTH FILES count)
message(STATUS "${count} binaries, no run path searches the current directory")
