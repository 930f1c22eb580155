# What is installed; debian/*.install says which package has it.
include(CMakePackageConfigHelpers)

set(FWX_NAT64_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/fwx_nat64)
set(FWX_NAT64_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

option(FWX_NAT64_RELOCATABLE
  "The installed tree may be moved: everything in it finds the rest from where it stands itself" ON)
if(FWX_NAT64_RELOCATABLE)
  file(RELATIVE_PATH FWX_NAT64_PC_PREFIX ${CMAKE_INSTALL_PREFIX}/${FWX_NAT64_PKGCONFIG_DIR} ${CMAKE_INSTALL_PREFIX})
  string(REGEX REPLACE "/$" "" FWX_NAT64_PC_PREFIX "\${pcfiledir}/${FWX_NAT64_PC_PREFIX}")
  file(RELATIVE_PATH lib_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set(FWX_NAT64_LIB_RPATH "$ORIGIN")
  set(FWX_NAT64_BIN_RPATH "$ORIGIN/${lib_from_bin}")
else()
  set(FWX_NAT64_PC_PREFIX ${CMAKE_INSTALL_PREFIX})
endif()

# A library with its links, exported as fwx_nat64::TARGET, and its pkg-config file.
function(fwx_nat64_install_library target)
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "${FWX_NAT64_LIB_RPATH}")
  install(TARGETS ${target} EXPORT ${target}_targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(EXPORT ${target}_targets NAMESPACE fwx_nat64:: DESTINATION ${FWX_NAT64_CMAKE_DIR})
  configure_file(cmake/${target}.pc.in ${target}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${target}.pc DESTINATION ${FWX_NAT64_PKGCONFIG_DIR})
endfunction()

fwx_nat64_install_library(fwx_nat64)
install(DIRECTORY include/fwx_nat64 DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES docs/man/fwx_nat64.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)
configure_package_config_file(cmake/fwx_nat64Config.cmake.in fwx_nat64Config.cmake
  INSTALL_DESTINATION ${FWX_NAT64_CMAKE_DIR} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(fwx_nat64ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/fwx_nat64Config.cmake ${PROJECT_BINARY_DIR}/fwx_nat64ConfigVersion.cmake
  DESTINATION ${FWX_NAT64_CMAKE_DIR})

if(FWX_NAT64_PLATFORM STREQUAL "host")
  fwx_nat64_install_library(fwx_host)
  fwx_nat64_install_library(fwx_nat64_model)
  install(DIRECTORY host/include/fwx_host model/include/fwx_nat64_model DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(FILES ${FWX_NAT64_PYTHON_PATH}/fwx_nat64/_commands.py DESTINATION ${CMAKE_INSTALL_DATADIR}/fwx_nat64)

  set_target_properties(natctl nat64d PROPERTIES INSTALL_RPATH "${FWX_NAT64_BIN_RPATH}")
  install(TARGETS natctl nat64d RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  if(TARGET nat64_gateway_core)
    set_target_properties(nat64-gateway PROPERTIES INSTALL_RPATH "${FWX_NAT64_BIN_RPATH}")
    install(TARGETS nat64-gateway RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
    install(FILES docs/man/nat64-gateway.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  endif()
  install(FILES docs/man/natctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES docs/man/nat64d.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  install(FILES packaging/prometheus/alerts.yml packaging/prometheus/scrape.yml packaging/prometheus/dashboard.json
    DESTINATION ${CMAKE_INSTALL_DATADIR}/nat64d)
  install(FILES ${PROJECT_BINARY_DIR}/wire/fwx_nat64.lua DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins)
  foreach(place bash:bash-completion/completions/natctl zsh:zsh/vendor-completions/_natctl
                fish:fish/vendor_completions.d/natctl.fish)
    string(REGEX REPLACE ":.*" "" shell ${place})
    string(REGEX REPLACE ".*:" "${CMAKE_INSTALL_DATADIR}/" path ${place})
    cmake_path(GET path PARENT_PATH folder)
    cmake_path(GET path FILENAME name)
    set(completion ${PROJECT_BINARY_DIR}/natctl.${shell})
    add_custom_command(OUTPUT ${completion} COMMAND natctl completion ${shell} > ${completion} DEPENDS natctl VERBATIM)
    add_custom_target(natctl_completion_${shell} ALL DEPENDS ${completion})
    install(FILES ${completion} DESTINATION ${folder} RENAME ${name})
  endforeach()
endif()
