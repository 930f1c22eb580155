# What a library exports stands in one list; the linker gets it under the one version node.
function(fwx_nat64_exports target list node)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
  file(STRINGS ${list} exports)
  list(JOIN exports ";\n    " exports)
  set(map ${PROJECT_BINARY_DIR}/${target}_exports.map)
  file(CONFIGURE OUTPUT ${map} @ONLY CONTENT "@node@ {\n  global:\n    @exports@;\n  local:\n    *;\n};\n")
  target_link_options(${target} PRIVATE LINKER:--version-script=${map})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${map})
endfunction()

# The client library. It needs libc and the platform's symbols, and no C++ runtime.
add_library(fwx_nat64 SHARED
  client/bind.cpp
  client/connection.cpp
  client/debug.cpp
  client/event_context.cpp
  commands/envelope.cpp
  commands/interface.cpp
  commands/logging.cpp
  commands/mapping.cpp
  commands/mapt.cpp
  commands/pool.cpp
  commands/query.cpp
  commands/settings.cpp
  mapt/complex.cpp
  mapt/effective_prefix.cpp
  mapt/rule_cleanup.cpp
  mapt/rule_hash.cpp
  mapt/rule_table.cpp
  mapt/state.cpp
  mapt/subtable.cpp
  mapt/tree_parameters.cpp
  notify/classifier.cpp
  notify/unsolicited.cpp
  transport/async_command.cpp
  transport/context.cpp
  transport/delivery.cpp
  transport/handler_table.cpp
  transport/reply_admission.cpp
  transport/reply_handlers.cpp
  transport/response_handler.cpp
  transport/sync_command.cpp
  transport/unsolicited_handler.cpp
  transport/walk.cpp
)
target_include_directories(fwx_nat64
  PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
  PRIVATE ${PROJECT_SOURCE_DIR})
target_compile_options(fwx_nat64 PRIVATE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-plt -fno-threadsafe-statics -fvisibility=hidden -fno-semantic-interposition>)
fwx_nat64_exports(fwx_nat64 ${PROJECT_SOURCE_DIR}/cmake/exports.list FWX_NAT64_1)
target_link_options(fwx_nat64 PRIVATE LINKER:--as-needed)
include(CheckIPOSupported)
check_ipo_supported(RESULT FWX_NAT64_IPO_SUPPORTED OUTPUT FWX_NAT64_IPO_OUTPUT LANGUAGES CXX)
if(FWX_NAT64_IPO_SUPPORTED) # a command crosses four sources
  set_target_properties(fwx_nat64 PROPERTIES INTERPROCEDURAL_OPTIMIZATION_RELEASE ON)
endif()
set_target_properties(fwx_nat64 PROPERTIES
  UNITY_BUILD OFF # its sources define the same names
  LINKER_LANGUAGE C
  SOVERSION 1
  VERSION ${PROJECT_VERSION})
if(FWX_NAT64_PLATFORM STREQUAL "host" AND NOT FWX_NAT64_SANITIZE)
  target_link_options(fwx_nat64 PRIVATE LINKER:-z,defs)
endif()
