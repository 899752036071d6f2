# Cross build for 64-bit ARM with Debian's g++-aarch64-linux-gnu; the results run
# under qemu-user with the cross sysroot, so ctest executes them directly.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
# Libraries come from the cross sysroot and from Debian's multiarch arm64
# packages (libjpeg62-turbo-dev:arm64, libpng-dev:arm64), which live under
# /usr/lib/aarch64-linux-gnu: with / as a second root, CMake's searches go there
# through CMAKE_LIBRARY_ARCHITECTURE.
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Their architecture-specific headers (jconfig.h) are in
# /usr/include/aarch64-linux-gnu, which the cross compiler does not search; it is
# searched after the sysroot's, so the C library's headers still come from there.
set(CMAKE_C_FLAGS_INIT "-idirafter /usr/include/aarch64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT "-idirafter /usr/include/aarch64-linux-gnu")
# The sysroot's C library goes first: the arm64 packages above bring a libc6:arm64
# too, whose libc.so.6 must not be paired with the sysroot's dynamic loader.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64;-L;/usr/aarch64-linux-gnu;-E;LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib)
