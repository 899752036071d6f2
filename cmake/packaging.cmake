# Debian packages of a build, one per install component (`cpack -G DEB` in the
# build directory): the runtime library, the development files, the tool and
# the Python module. A native build takes its dependencies from
# dpkg-shlibdeps; a cross build, whose libraries dpkg-shlibdeps would resolve
# to the cross sysroot's packages, names them itself. Every package carries
# the DEP-5 copyright file and a change log made from CHANGELOG.md in
# /usr/share/doc/<package>; the library and development packages are
# Multi-Arch: same (their files lie in the multiarch directory or are the same
# bytes on every architecture), so amd64 and arm64 install side by side.
include(${CMAKE_CURRENT_LIST_DIR}/debian_changelog.cmake)
set(TAVO_DEB_RUNTIME_PACKAGE libtavo-lumo-hdr${PROJECT_VERSION_MAJOR})
set(TAVO_HDR_MAINTAINER "libtavo_lumo_hdr developers <tavo-hdr-dev@lists.example.org>" CACHE STRING
  "Maintainer of the Debian packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavo-lumo-hdr)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${TAVO_HDR_MAINTAINER}")
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
if(TAVO_HDR_PYTHON)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${TAVO_DEB_RUNTIME_PACKAGE})
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libtavo-lumo-hdr-dev)
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME tavo-hdr)
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-tavo-hdr)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  tavo_debian_changelog(${package} ${CMAKE_CURRENT_BINARY_DIR}/debian/${package}/changelog.gz "${TAVO_HDR_MAINTAINER}")
  install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/debian/${package}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})
endforeach()
# ldconfig runs through dpkg's trigger. CPack writes maintainer scripts that
# call ldconfig for a library under /usr/lib unless the package brings its own,
# so the library's package brings scripts that do nothing else.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/triggers
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/postinst
  ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/postrm)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/runtime.lintian-overrides
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides RENAME ${TAVO_DEB_RUNTIME_PACKAGE} COMPONENT runtime)

if(CMAKE_CROSSCOMPILING)
  if(TAVO_ARCH STREQUAL "aarch64")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
  else()
    message(STATUS "tavo_lumo_hdr: no Debian architecture known for ${CMAKE_SYSTEM_PROCESSOR}")
  endif()
endif()

# CMake 3.25's CPack writes no Multi-Arch field: the line follows the
# Section's in the control file.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION "libs\nMulti-Arch: same")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "HDR fusion of three YUV 4:2:0 exposures - shared library
libtavo_lumo_hdr fuses three differently exposed YUV 4:2:0 frames of one
scene into one high-dynamic-range frame of the same size and layout.")

set(CPACK_DEBIAN_DEV_PACKAGE_SECTION "libdevel\nMulti-Arch: same")
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${TAVO_DEB_RUNTIME_PACKAGE} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEV_DESCRIPTION "HDR fusion of three YUV 4:2:0 exposures - development files
The C header, the CMake package (find_package(tavo_lumo_hdr)) and the
pkg-config file of libtavo_lumo_hdr.")

# The tool links the shared library: it depends on this very version of it,
# which dpkg-shlibdeps finds in the build tree.
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "${TAVO_DEB_RUNTIME_PACKAGE} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_TOOL_DESCRIPTION "HDR fusion of three YUV 4:2:0 exposures - command-line tool
tavo-hdr fuses raw YUV frames, JPEG or PNG files, replays captures the
library dumped and renders a synthetic demo scene.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
  "${TAVO_DEB_RUNTIME_PACKAGE} (= ${PROJECT_VERSION}), ${TAVO_PYTHON_DEPENDS}, python3-numpy")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-distributed)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "HDR fusion of three YUV 4:2:0 exposures - Python 3 module
The module tavo_hdr fuses, reads, writes and converts frames as numpy arrays
with libtavo_lumo_hdr, and replays dumped captures as tavo-hdr does.")

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
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "${_common}")
  # The same lower bounds as dpkg-shlibdeps gives the native tool.
  set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS
    "${CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS}, ${_common}, libjpeg62-turbo (>= 1.3.1), libpng16-16 (>= 1.6.2-1)")
endif()

include(CPack)
