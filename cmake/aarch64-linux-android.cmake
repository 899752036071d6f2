# Compile check of the phone build: clang for aarch64-linux-android (API 29)
# without an NDK. Bionic's C and C++ headers are not at hand, so the sources
# see the aarch64 cross toolchain's glibc and libstdc++ headers, Debian's
# android-liblog-dev for <android/log.h> and a stand-in sysroot
# (cmake/android/sysroot) for the few bionic declarations they lack. The
# shared library links with lld against the cross toolchain's libraries and
# thin stand-ins of liblog and the property call
# (cmake/android/bionic_standin.c): every symbol resolves, and the segments
# are aligned for 16 KB pages.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ANDROID ON)
set(ANDROID_PLATFORM_LEVEL 29)
set(TAVO_ANDROID_STANDIN ON)
set(TAVO_ANDROID_TARGET aarch64-linux-android29)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${TAVO_ANDROID_TARGET})
set(CMAKE_CXX_COMPILER_TARGET ${TAVO_ANDROID_TARGET})
# Nothing is run, and no executable links without a bionic C library.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

set(_cross /usr/aarch64-linux-gnu)
set(_gcc 12)
# The stand-in sysroot holds the bionic declarations; it keeps the host's
# /usr/include out, and clang's own headers (arm_neon.h) in.
set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/android/sysroot)
set(_includes /usr/include/android ${_cross}/include)
set(_cxx_includes
  ${_cross}/include/c++/${_gcc}
  ${_cross}/include/c++/${_gcc}/aarch64-linux-gnu
  ${_cross}/include/c++/${_gcc}/backward)
list(TRANSFORM _includes PREPEND "-isystem ")
list(TRANSFORM _cxx_includes PREPEND "-isystem ")
list(JOIN _includes " " _includes)
list(JOIN _cxx_includes " " _cxx_includes)
set(CMAKE_C_FLAGS_INIT "${_includes}")
set(CMAKE_CXX_FLAGS_INIT "${_cxx_includes} ${_includes}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT
  "-fuse-ld=lld -nostdlib -L${_cross}/lib -L/usr/lib/gcc-cross/aarch64-linux-gnu/${_gcc} -lstdc++ -lm -lc -lgcc_s -lgcc")
set(CMAKE_FIND_ROOT_PATH ${_cross})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
