# What is installed, by component: library, host (the host platform), dev and host_dev (headers and what finds them), tools.
include(CMakePackageConfigHelpers)

set(FWX_NAT64_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/fwx_nat64)
set(FWX_NAT64_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# An installed tree may be moved: everything in it finds the rest from where it stands itself.
file(RELATIVE_PATH FWX_NAT64_PREFIX_FROM_PC ${CMAKE_INSTALL_PREFIX}/${FWX_NAT64_PKGCONFIG_DIR} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" FWX_NAT64_PREFIX_FROM_PC "${FWX_NAT64_PREFIX_FROM_PC}")
file(RELATIVE_PATH FWX_NAT64_LIB_FROM_BIN
  ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})

# A library with its links, exported as fwx_nat64::TARGET, and its pkg-config file.
function(fwx_nat64_install_library target component dev_component)
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS ${target} EXPORT ${target}_targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component} NAMELINK_COMPONENT ${dev_component})
  install(EXPORT ${target}_targets NAMESPACE fwx_nat64:: DESTINATION ${FWX_NAT64_CMAKE_DIR} COMPONENT ${dev_component})
  configure_file(cmake/${target}.pc.in ${target}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${target}.pc DESTINATION ${FWX_NAT64_PKGCONFIG_DIR} COMPONENT ${dev_component})
endfunction()

fwx_nat64_install_library(fwx_nat64 library dev)
install(DIRECTORY include/fwx_nat64 DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(FILES docs/man/fwx_nat64.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT dev)
configure_package_config_file(cmake/fwx_nat64Config.cmake.in fwx_nat64Config.cmake
  INSTALL_DESTINATION ${FWX_NAT64_CMAKE_DIR} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(fwx_nat64ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/fwx_nat64Config.cmake ${PROJECT_BINARY_DIR}/fwx_nat64ConfigVersion.cmake
  DESTINATION ${FWX_NAT64_CMAKE_DIR} COMPONENT dev)

if(FWX_NAT64_PLATFORM STREQUAL "host")
  fwx_nat64_install_library(fwx_host host host_dev)
  fwx_nat64_install_library(fwx_nat64_model host host_dev)
  install(DIRECTORY host/include/fwx_host model/include/fwx_nat64_model DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT host_dev)

  set_target_properties(natctl PROPERTIES INSTALL_RPATH "$ORIGIN/${FWX_NAT64_LIB_FROM_BIN}")
  install(TARGETS natctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES docs/man/natctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES docs/fwx_nat64.lua DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins COMPONENT tools)
  set(completion ${PROJECT_BINARY_DIR}/natctl.bash)
  add_custom_command(OUTPUT ${completion} COMMAND natctl completion bash > ${completion} DEPENDS natctl VERBATIM)
  add_custom_target(natctl_completion ALL DEPENDS ${completion})
  install(FILES ${completion} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME natctl
    COMPONENT tools)
endif()
