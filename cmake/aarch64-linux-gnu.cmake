# Cross build for Linux AArch64 with Debian's cross compiler and arm64 multiarch packages.
# Tests run through qemu-aarch64 (CTest's emulator setting).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /usr/lib/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(CMAKE_PREFIX_PATH /usr/lib/aarch64-linux-gnu/cmake)
# The multiarch arm64 C library (a dependency of the arm64 -dev packages) is what runs the
# tests; pointing qemu at the cross toolchain sysroot with -L makes pthread_create hang.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
