# Builds for arm64 with Debian's cross compiler, and runs tests under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig)
# The development package of prometheus-cpp exists for one architecture at a time; the headers are the same.
set(PROMETHEUS_CPP_LIBRARY /usr/lib/aarch64-linux-gnu/libprometheus-cpp-core.so.1.0 CACHE FILEPATH "")
