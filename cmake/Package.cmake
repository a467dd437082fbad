# Debian packages through CPack (after cmake/Install.cmake):
#
#   cd build && cpack -G DEB
#
# gives v2x-map-convert_<version>_<arch>.deb (component "runtime": service,
# tools, shared MAP library, systemd unit, working directory template) and
# v2x-map-convert-dev_<version>_<arch>.deb (component "dev": headers, static
# library, CMake package, pkg-config file). The version is the project's;
# dpkg-shlibdeps computes the runtime package's dependencies.
set(CPACK_PACKAGE_NAME v2x-map-convert)
set(CPACK_PACKAGE_VENDOR "V2X RSU software")
if(NOT CPACK_PACKAGE_CONTACT)
  set(CPACK_PACKAGE_CONTACT "V2X RSU software team <rsu-software@localhost>")
endif()
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# Programs and the shared library without their debug sections.
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME v2x-map-convert)
# First line of a description: the package's summary.
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "RSU map conversion service: cloud maps to CSAE MapData files
v2x_map_convert receives intersection maps from the cloud over DDS as JSON,
checks them against the CSAE message set, stores them as UPER-encoded MapData
files and tells the RSU's V2X stack over local UDP. With the systemd unit, the
companion tools (v2x_map_tool, v2x_cloud_sim, v2x_stack_sim, v2x_logtool) and
the shared MAP library.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/debian/postinst
    ${PROJECT_SOURCE_DIR}/packaging/debian/prerm
    ${PROJECT_SOURCE_DIR}/packaging/debian/postrm
    ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The -dev package: the exact runtime package, and the Debian packages that
# own what a static user of the library needs (found by cmake/Install.cmake).
set(CPACK_DEBIAN_DEV_PACKAGE_NAME v2x-map-convert-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_DESCRIPTION "RSU MAP library: headers, static library, CMake and pkg-config files
For RSU programs that use the MAP library: find_package(V2xMap CONFIG) with
the target v2x::maplib (v2x::maplib_static with COMPONENTS static), or the
pkg-config module v2xmap.")
set(dev_depends "v2x-map-convert (= ${PROJECT_VERSION})")
find_program(DPKG_QUERY_EXECUTABLE dpkg-query)
foreach(file IN LISTS V2XMAP_DEV_FILES)
  if(NOT DPKG_QUERY_EXECUTABLE)
    break()
  endif()
  execute_process(COMMAND ${DPKG_QUERY_EXECUTABLE} -S ${file} OUTPUT_VARIABLE owner ERROR_QUIET RESULT_VARIABLE rc)
  if(rc EQUAL 0 AND owner MATCHES "^([a-z0-9][a-z0-9+.-]*)(:[a-z0-9]+)?: ")
    string(APPEND dev_depends ", ${CMAKE_MATCH_1}")
  endif()
endforeach()
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${dev_depends}")

include(CPack)
