# Warnings and the sanitizer switches, for the targets of the project.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2)
if(FWX_NAT64_WERROR)
  add_compile_options(-Werror)
endif()

if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL GNU) # which takes the sources that are compiled together for headers
  add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-subobject-linkage>)
endif()

set(FWX_NAT64_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread; empty for none")
if(FWX_NAT64_SANITIZE)
  add_compile_options(-fsanitize=${FWX_NAT64_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
    -g1) # their reports name lines and no variables
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang) # what it puts in front of functions, clang 14 cannot for coroutines
    add_compile_options(-fno-sanitize=function)
  endif()
  add_link_options(-fsanitize=${FWX_NAT64_SANITIZE})
  if(FWX_NAT64_SANITIZE MATCHES address)
    add_compile_definitions(ADDRESS_SANITIZER) # the compilers have no name for it in common
  endif()
endif()

option(FWX_NAT64_FUZZ "Build the fuzzers, everything instrumented for them (clang)" OFF)
if(FWX_NAT64_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
