# Cross build for 64-bit Arm Linux with Debian's aarch64-linux-gnu toolchain. Test programs run
# under user-mode qemu, which CTest starts through the cross-compiling emulator:
#
#   cmake -S . -B build/aarch64 -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake
#   cmake --build build/aarch64 && ctest --test-dir build/aarch64
#
# Override SONVEL_AARCH64_TRIPLE, SONVEL_AARCH64_SYSROOT or SONVEL_AARCH64_EMULATOR on the command
# line for another installation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(SONVEL_AARCH64_TRIPLE "aarch64-linux-gnu" CACHE STRING "Prefix of the cross tools")
set(SONVEL_AARCH64_SYSROOT "/usr/${SONVEL_AARCH64_TRIPLE}" CACHE PATH
    "Target libraries (the dynamic loader and libc the emulator loads)")
set(SONVEL_AARCH64_EMULATOR "qemu-aarch64" CACHE STRING "User-mode emulator of the test programs")

set(CMAKE_C_COMPILER ${SONVEL_AARCH64_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${SONVEL_AARCH64_TRIPLE}-g++)

# Libraries and headers of the target only; programs (nm, the emulator) from the build machine.
set(CMAKE_FIND_ROOT_PATH ${SONVEL_AARCH64_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR ${SONVEL_AARCH64_EMULATOR} -L ${SONVEL_AARCH64_SYSROOT})
