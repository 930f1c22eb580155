# Warnings and the sanitizer switches, for every target of the project.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2)
if(FWX_NAT64_WERROR)
  add_compile_options(-Werror)
endif()

option(FWX_NAT64_SANITIZE "Build with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
if(FWX_NAT64_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

option(FWX_NAT64_FUZZ "Build the fuzzers, everything instrumented for them (clang)" OFF)
if(FWX_NAT64_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
