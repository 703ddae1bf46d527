# Cross-builds for 64-bit ARM Linux with Debian's cross toolchain (crossbuild-essential-arm64) against the
# :arm64 development packages of a multiarch system, and runs what it built (tests, test listing) under
# qemu-user. scripts/test.sh --arch arm64 uses it.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)

# pkg-config reads the arm64 packages' files only: a host library found by mistake links the wrong machine.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# Debian's simdjson development package is for one architecture at a time; its headers are the same on
# every one, so the arm64 build takes them with the arm64 runtime library (libsimdjson14:arm64).
set(simdjson_DIR "${CMAKE_CURRENT_LIST_DIR}/aarch64-simdjson" CACHE PATH "simdjson for arm64")
