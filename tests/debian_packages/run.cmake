# Builds the Debian packages of a build with cpack into WORK_DIR, checks each
# one's control fields and files, checks that every library its programs need
# is covered by its Depends and that lintian finds no error or warning, then
# unpacks the runtime and development packages and builds and runs the
# consumer program against them.
# Arguments: BUILD_DIR, WORK_DIR, ARCH (Debian architecture), MULTIARCH (its
# library directory's name), VERSION, TOOL (ON when the tool is packaged),
# MAN_PAGE (ON when its man page was made), PYTHON (ON when the module is
# packaged), LINTIAN (the program, when installed), and for the consumer
# CONSUMER_DIR, C_COMPILER, C_FLAGS, TOOLCHAIN, EMULATOR (see
# install_consumer/run.cmake).
include(${CMAKE_CURRENT_LIST_DIR}/../run_checked.cmake)

string(REGEX MATCH "^[0-9]+" major "${VERSION}")
set(lib "usr/lib/${MULTIARCH}/libtavo_lumo_hdr\\.so")
set(cmake_dir "usr/lib/${MULTIARCH}/cmake/tavo_lumo_hdr")
set(runtime_package libtavo-lumo-hdr${major})

# Per component: the package name, its exact files (one regular expression for
# each file or link), and what its Depends must hold besides the libraries its
# programs need.
set(runtime_files "${lib}\\.${VERSION}" "${lib}\\.${major} -> libtavo_lumo_hdr\\.so\\.${VERSION}")
set(dev_package libtavo-lumo-hdr-dev)
set(dev_files "usr/include/tavo_lumo_hdr\\.h" "${lib} -> libtavo_lumo_hdr\\.so\\.${major}"
  "usr/lib/${MULTIARCH}/pkgconfig/tavo_lumo_hdr\\.pc" "${cmake_dir}/tavo_lumo_hdrConfig\\.cmake"
  "${cmake_dir}/tavo_lumo_hdrConfigVersion\\.cmake" "${cmake_dir}/tavo_lumo_hdrTargets\\.cmake"
  "${cmake_dir}/tavo_lumo_hdrTargets-[a-z]+\\.cmake")
set(dev_depends "${runtime_package} \\(= ${VERSION}\\)")
set(tool_package tavo-hdr)
set(tool_files "usr/bin/tavo-hdr")
if(MAN_PAGE)
  list(APPEND tool_files "usr/share/man/man1/tavo-hdr\\.1\\.gz")
endif()
set(tool_depends "${dev_depends}")
set(python_package python3-tavo-hdr)
set(python_files)
foreach(file __init__\\.py fleet\\.py __init__\\.pyi fleet\\.pyi py\\.typed _native\\.cpython-[0-9]+-[a-z0-9_-]+\\.so)
  list(APPEND python_files "usr/lib/python3/dist-packages/tavo_hdr/${file}")
endforeach()
set(python_depends "${dev_depends}" "python3-numpy")
set(components runtime dev)
if(TOOL)
  list(APPEND components tool)
endif()
if(PYTHON)
  list(APPEND components python)
endif()
# Every package: its copyright file and change log. The library's packages
# install beside the other architecture's.
foreach(component IN LISTS components)
  list(APPEND ${component}_files "usr/share/doc/${${component}_package}/copyright"
    "usr/share/doc/${${component}_package}/changelog\\.gz")
endforeach()
list(APPEND runtime_files "usr/share/lintian/overrides/${runtime_package}")
set(runtime_multiarch same)
set(dev_multiarch same)
set(tool_multiarch no)
set(python_multiarch no)

# The Debian package that provides each shared library a packaged program may need.
foreach(pair libc.so.6=libc6 libm.so.6=libc6 libstdc++.so.6=libstdc++6 libgcc_s.so.1=libgcc-s1
    liblog.so.0=android-liblog libjpeg.so.62=libjpeg62-turbo libpng16.so.16=libpng16-16 libz.so.1=zlib1g
    libtavo_lumo_hdr.so.${major}=${runtime_package})
  string(REPLACE "=" ";" pair "${pair}")
  list(GET pair 0 soname)
  list(GET pair 1 provider_${soname})
endforeach()

file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_CPACK_COMMAND} --config ${BUILD_DIR}/CPackConfig.cmake -G DEB -B ${WORK_DIR}/debs)
file(GLOB debs ${WORK_DIR}/debs/*.deb)
list(LENGTH debs count)
list(LENGTH components expected)
if(NOT count EQUAL expected)
  message(FATAL_ERROR "expected ${expected} packages, cpack made: ${debs}")
endif()

foreach(component IN LISTS components)
  set(package ${${component}_package})
  set(deb ${WORK_DIR}/debs/${package}_${VERSION}_${ARCH}.deb)
  run(dpkg-deb --show --showformat "\${Package}|\${Version}|\${Architecture}|\${Multi-Arch}|\${Depends}" ${deb})
  string(REGEX MATCH "^([^|]*)\\|([^|]*)\\|([^|]*)\\|([^|]*)\\|(.*)$" _ "${RUN_OUTPUT}")
  set(depends "${CMAKE_MATCH_5}")
  if(NOT "${CMAKE_MATCH_1};${CMAKE_MATCH_2};${CMAKE_MATCH_3};${CMAKE_MATCH_4}" STREQUAL
     "${package};${VERSION};${ARCH};${${component}_multiarch}")
    message(FATAL_ERROR "${deb}: ${RUN_OUTPUT}")
  endif()
  message(STATUS "${package}: Depends: ${depends}")

  # Exactly the expected files: each listed one present, nothing else.
  run(dpkg-deb --contents ${deb})
  string(REGEX MATCHALL " \\./[^\n]*[^/\n]\n" entries "${RUN_OUTPUT}")  # directories end in '/'
  set(unmatched ${${component}_files})
  foreach(entry IN LISTS entries)
    string(REGEX REPLACE "^ \\./|\n$" "" entry "${entry}")
    set(known FALSE)
    foreach(pattern IN LISTS ${component}_files)
      if(entry MATCHES "^${pattern}$")
        set(known TRUE)
        list(REMOVE_ITEM unmatched "${pattern}")
      endif()
    endforeach()
    if(NOT known)
      message(FATAL_ERROR "${package} holds the unexpected ${entry}")
    endif()
  endforeach()
  if(unmatched)
    message(FATAL_ERROR "${package} lacks ${unmatched}:\n${RUN_OUTPUT}")
  endif()

  # Depends: the fixed part, and the package of every library a program needs.
  set(required ${${component}_depends})
  run(dpkg-deb -x ${deb} ${WORK_DIR}/${component})
  file(GLOB_RECURSE files ${WORK_DIR}/${component}/*)
  foreach(file IN LISTS files)
    if(IS_SYMLINK ${file})
      continue()
    endif()
    file(READ ${file} magic LIMIT 4 HEX)
    if(NOT magic STREQUAL "7f454c46")
      continue()
    endif()
    run(readelf --dynamic ${file})
    string(REGEX MATCHALL "\\(NEEDED\\)[^[]*\\[[^]]+\\]" needed "${RUN_OUTPUT}")
    foreach(entry IN LISTS needed)
      string(REGEX REPLACE ".*\\[(.*)\\]" "\\1" soname "${entry}")
      if(NOT DEFINED provider_${soname})
        message(FATAL_ERROR "${file} needs ${soname}, whose package this test does not know")
      endif()
      string(REGEX REPLACE "([.+])" "\\\\\\1" provider "${provider_${soname}}")
      list(APPEND required "${provider}( |,|$)")
    endforeach()
  endforeach()
  foreach(pattern IN LISTS required)
    if(NOT depends MATCHES "(^|, )${pattern}")
      message(FATAL_ERROR "${package}: Depends '${depends}' lacks ${pattern}")
    endif()
  endforeach()
  if(NOT component STREQUAL "tool")
    run(dpkg-deb -x ${deb} ${WORK_DIR}/root)
  endif()
endforeach()

# lintian: no error and no warning (a tag that must stay is overridden in its
# package, with the reason).
if(LINTIAN)
  run(${LINTIAN} --fail-on error,warning --no-cfg ${debs})
  message(STATUS "lintian: ${RUN_OUTPUT}")
else()
  message(STATUS "lintian not installed: the packages were not checked by it")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -DPREFIX=${WORK_DIR}/root/usr -DSOURCE_DIR=${CONSUMER_DIR}
    -DWORK_DIR=${WORK_DIR} -DC_COMPILER=${C_COMPILER} "-DC_FLAGS=${C_FLAGS}" -DTOOLCHAIN=${TOOLCHAIN}
    "-DEMULATOR=${EMULATOR}" -P ${CONSUMER_DIR}/run.cmake
  RESULT_VARIABLE code)
if(NOT code EQUAL 0)
  message(FATAL_ERROR "the consumer failed against the unpacked packages")
endif()
