# Debian packages of a build, one per install component (`cpack -G DEB` in the
# build directory): the runtime library, the development files and the tool.
# A native build takes its dependencies from dpkg-shlibdeps; a cross build,
# whose libraries dpkg-shlibdeps would resolve to the cross sysroot's packages,
# names them itself.
set(TAVO_DEB_RUNTIME_PACKAGE libtavo-lumo-hdr${PROJECT_VERSION_MAJOR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavo-lumo-hdr)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "libtavo_lumo_hdr developers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
# A shlibs file for every shared object: only the runtime package has one.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_COMPONENTS_ALL runtime dev)
if(TAVO_HDR_TOOL)
  list(APPEND CPACK_COMPONENTS_ALL tool)
endif()

if(CMAKE_CROSSCOMPILING)
  if(TAVO_ARCH STREQUAL "aarch64")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
  else()
    message(STATUS "tavo_lumo_hdr: no Debian architecture known for ${CMAKE_SYSTEM_PROCESSOR}")
  endif()
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${TAVO_DEB_RUNTIME_PACKAGE})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "HDR fusion of three YUV 4:2:0 exposures - shared library
libtavo_lumo_hdr fuses three differently exposed YUV 4:2:0 frames of one
scene into one high-dynamic-range frame of the same size and layout.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libtavo-lumo-hdr-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${TAVO_DEB_RUNTIME_PACKAGE} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEV_DESCRIPTION "HDR fusion of three YUV 4:2:0 exposures - development files
The C header, the CMake package (find_package(tavo_lumo_hdr)) and the
pkg-config file of libtavo_lumo_hdr.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME tavo-hdr)
# The tool links the shared library: it depends on this very version of it,
# which dpkg-shlibdeps finds in the build tree.
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${TAVO_DEB_RUNTIME_PACKAGE} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_TOOL_DESCRIPTION "HDR fusion of three YUV 4:2:0 exposures - command-line tool
tavo-hdr fuses raw YUV frames, JPEG or PNG files, replays captures the
library dumped and renders a synthetic demo scene.")

if(NOT CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  # The lower bounds are those of the toolchain the binaries were built with:
  # its C library's version and its compiler's major version for libstdc++.
  execute_process(COMMAND ${CMAKE_C_COMPILER} -dM -E -include features.h -x c /dev/null
    OUTPUT_VARIABLE _glibc_macros RESULT_VARIABLE _glibc_result)
  if(_glibc_result EQUAL 0 AND _glibc_macros MATCHES "__GLIBC__ ([0-9]+).*__GLIBC_MINOR__ ([0-9]+)")
    set(_libc6 "libc6 (>= ${CMAKE_MATCH_1}.${CMAKE_MATCH_2})")
  else()
    set(_libc6 libc6)
  endif()
  string(REGEX MATCH "^[0-9]+" _gcc_major "${CMAKE_CXX_COMPILER_VERSION}")
  set(_common "${_libc6}, libgcc-s1 (>= 3.0), libstdc++6 (>= ${_gcc_major})")
  if(TAVO_ANDROID_LIBLOG_DIR)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${_common}, android-liblog")
  else()
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${_common}")
  endif()
  # The same lower bounds as dpkg-shlibdeps gives the native tool.
  set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS
    "${CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS}, ${_common}, libjpeg62-turbo (>= 1.3.1), libpng16-16 (>= 1.6.2-1)")
endif()

include(CPack)
