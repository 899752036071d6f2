# Installs the build into WORK_DIR/prefix, then builds the consumer against it
# twice, with find_package and with pkg-config, and runs both.
# Arguments: BUILD_DIR, SOURCE_DIR, WORK_DIR, C_COMPILER, C_FLAGS; optionally
# PREFIX (a tree to use instead of installing, e.g. unpacked Debian packages),
# TOOLCHAIN (for the consumer's build) and EMULATOR (to run the consumer).
include(${CMAKE_CURRENT_LIST_DIR}/../run_checked.cmake)

if(PREFIX)
  set(prefix ${PREFIX})
else()
  set(prefix ${WORK_DIR}/prefix)
  file(REMOVE_RECURSE ${WORK_DIR})
  run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
endif()
if(NOT EXISTS ${prefix}/include/tavo_lumo_hdr.h)
  message(FATAL_ERROR "the header was not installed")
endif()

set(toolchain)
if(TOOLCHAIN)
  set(toolchain -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN})
endif()
run(${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/consumer -DCMAKE_PREFIX_PATH=${prefix} ${toolchain}
    -DCMAKE_C_COMPILER=${C_COMPILER} "-DCMAKE_C_FLAGS=${C_FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/consumer)
run(${EMULATOR} ${WORK_DIR}/consumer/consumer)
message(STATUS "find_package consumer: ${RUN_OUTPUT}")

file(GLOB_RECURSE pc_files ${prefix}/*/tavo_lumo_hdr.pc)
list(GET pc_files 0 pc_file)
get_filename_component(pc_dir ${pc_file} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
run(pkg-config --cflags --libs tavo_lumo_hdr)
string(STRIP "${RUN_OUTPUT}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
if(NOT flags MATCHES "-ltavo_lumo_hdr")
  message(FATAL_ERROR "pkg-config gives no library: ${flags}")
endif()
set(lib_dir)
foreach(flag IN LISTS flags)
  if(flag MATCHES "^-L(.*)")
    set(lib_dir ${CMAKE_MATCH_1})
  endif()
endforeach()
separate_arguments(c_flags UNIX_COMMAND "${C_FLAGS}")
run(${C_COMPILER} ${c_flags} ${SOURCE_DIR}/main.c -o ${WORK_DIR}/consumer_pc ${flags} -Wl,-rpath,${lib_dir})
run(${EMULATOR} ${WORK_DIR}/consumer_pc)
message(STATUS "pkg-config consumer: ${RUN_OUTPUT}")
