# Debian packages of a host build: run cpack in the build directory.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME fwx-nat64)
set(CPACK_PACKAGE_CONTACT "fwx_nat64 maintainers <root@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library host dev host_dev tools)

# Components go into packages by group.
set(CPACK_COMPONENT_LIBRARY_GROUP library)
set(CPACK_COMPONENT_HOST_GROUP library)
set(CPACK_COMPONENT_DEV_GROUP dev)
set(CPACK_COMPONENT_HOST_DEV_GROUP dev)
set(CPACK_COMPONENT_TOOLS_GROUP tools)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(library_package libfwx-nat64-${PROJECT_VERSION_MAJOR})
set(same_library "${library_package} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION
  "The shared library through which a control plane configures and queries
 a NAT64 service, and the platform library that carries it on Linux.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libfwx-nat64-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${same_library}")
set(CPACK_DEBIAN_DEV_DESCRIPTION "Headers, pkg-config files, CMake package and manual page.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME libfwx-nat64-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/host ${PROJECT_BINARY_DIR}/model)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${same_library}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "natctl sends every command of the library and shows what comes back.")

# Debian wants the licence in each package.
foreach(pair "library;${library_package}" "dev;libfwx-nat64-dev" "tools;libfwx-nat64-tools")
  list(GET pair 0 component)
  list(GET pair 1 package)
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} RENAME copyright COMPONENT ${component})
endforeach()

include(CPack)
