# Builds the library for musl, without a platform. Debian's musl-tools have no C++ library, but the library needs only the
# headers of one. Those of g++ ask glibc for its version.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER musl-gcc)
set(CMAKE_CXX_COMPILER musl-gcc) # links no C++ library
execute_process(COMMAND gcc -dumpversion OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND gcc -print-multiarch OUTPUT_VARIABLE machine OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_CXX_FLAGS_INIT "-isystem /usr/include/c++/${version} -isystem /usr/include/${machine}/c++/${version} \
'-D__GLIBC_PREREQ(major,minor)=0'")
