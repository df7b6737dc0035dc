# The phone's processor, from a PC: Debian's cross compiler, with the libraries that
# scripts/arm64-sysroot has unpacked. Programs that the build or a test runs go through the emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(STHAL_ARM64_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/arm64-sysroot
    CACHE PATH "Where scripts/arm64-sysroot has put the libraries")
# A trial compilation reads this file, too, and would look in the wrong place.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES STHAL_ARM64_SYSROOT)

# The compiler has the C and C++ libraries and the loader in a place of its own.
set(CMAKE_FIND_ROOT_PATH ${STHAL_ARM64_SYSROOT} /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The library path is for libraries of libraries: the platform's are built to look for each other
# where they would be on an installed system.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-aarch64 -L /usr/aarch64-linux-gnu
    -E LD_LIBRARY_PATH=${STHAL_ARM64_SYSROOT}/usr/lib/aarch64-linux-gnu/android)
