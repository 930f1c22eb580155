# Warnings, the sanitizer switches and precompiled headers, for the targets of the project.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2)
if(FWX_NAT64_WERROR)
  add_compile_options(-Werror)
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

# Precompiles a header that nearly all sources of a target include and that costs each of them two seconds. ccache needs
# CCACHE_SLOPPINESS=pch_defines,time_macros for that.
function(fwx_precompile target header)
  target_precompile_headers(${target} PRIVATE ${header})
  target_compile_options(${target} PRIVATE
    $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess> $<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>)
endfunction()
