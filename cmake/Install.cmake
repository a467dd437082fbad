# Install rules (cmake --install, and the Debian packages built from debian/).
#
# Component "runtime": the service and its tools in bin/ with their manual
# pages, the shared MAP library, the systemd unit, the service's configuration
# in <sysconfdir>/v2x_service, the working directory helper and the sample
# working directory as a template under share/v2x_map_convert/workdir.
# Component "dev": the MAP library's public headers (include/v2x), the static
# library, the CMake package V2xMap (target v2x::maplib, and
# v2x::maplib_static with COMPONENTS static) and the pkg-config file v2xmap.pc.
#
# The installed MAP library is built here from the objects of the in-tree
# static libraries it consists of: v2xmaplib and every static library of this
# project it links (the codec, its front and the platform libraries it logs
# and computes with), found by walking its links so that a part added later is
# carried too. Outside libraries (spdlog, threads, ...) stay outside.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(V2XMAP_SOVERSION ${PROJECT_VERSION_MAJOR})
set(V2XMAP_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/V2xMap)
set(V2X_TEMPLATE_DIR ${CMAKE_INSTALL_DATADIR}/v2x_map_convert/workdir)
set(V2X_HELPER_DIR ${CMAKE_INSTALL_LIBEXECDIR}/v2x_map_convert)
set(V2X_SYSTEMD_UNITDIR lib/systemd/system CACHE STRING
  "Where the systemd unit goes: relative to the install prefix, or absolute (Debian 12: /lib/systemd/system)")

# Static libraries of this project reachable from <target> through its links
# (<target> included) into <parts_var>; every other link item into
# <externals_var>.
function(v2x_collect_parts target parts_var externals_var)
  set(parts ${${parts_var}})
  set(externals ${${externals_var}})
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    get_target_property(links ${target} INTERFACE_LINK_LIBRARIES)
  else()
    list(APPEND parts ${target})
    get_target_property(links ${target} LINK_LIBRARIES)
  endif()
  foreach(item IN LISTS links)
    if(NOT item OR item IN_LIST parts OR item IN_LIST externals)
      continue()
    endif()
    if(TARGET ${item})
      get_target_property(aliased ${item} ALIASED_TARGET)
      if(aliased)
        set(item ${aliased})
      endif()
      get_target_property(imported ${item} IMPORTED)
      get_target_property(item_type ${item} TYPE)
      if(NOT imported AND item_type MATCHES "^(STATIC|INTERFACE)_LIBRARY$")
        v2x_collect_parts(${item} parts externals)
        continue()
      endif()
    endif()
    list(APPEND externals ${item})
  endforeach()
  set(${parts_var} ${parts} PARENT_SCOPE)
  set(${externals_var} ${externals} PARENT_SCOPE)
endfunction()

set(V2XMAP_PARTS "")
set(V2XMAP_EXTERNALS "")
v2x_collect_parts(v2xmaplib V2XMAP_PARTS V2XMAP_EXTERNALS)
set(V2XMAP_OBJECTS "")
foreach(part IN LISTS V2XMAP_PARTS)
  list(APPEND V2XMAP_OBJECTS $<TARGET_OBJECTS:${part}>)
endforeach()
# Their objects go into the shared library too.
set_target_properties(${V2XMAP_PARTS} PROPERTIES POSITION_INDEPENDENT_CODE ON)

# How a user of the static library finds each outside library: a CMake
# dependency for the config file, a pkg-config module or link flag for the .pc
# file (libv2xmap-dev depends on the Debian packages that own these).
set(V2XMAP_STATIC_DEPENDENCIES "")
set(V2XMAP_PC_REQUIRES "")
set(V2XMAP_PC_LIBS "")
foreach(ext IN LISTS V2XMAP_EXTERNALS)
  if(ext STREQUAL "Threads::Threads")
    string(APPEND V2XMAP_STATIC_DEPENDENCIES "find_dependency(Threads)\n")
    string(APPEND V2XMAP_PC_LIBS " -pthread")
  elseif(ext MATCHES "^PkgConfig::(.+)$")
    set(module ${${CMAKE_MATCH_1}_MODULE_NAME})
    if(NOT module)
      message(FATAL_ERROR "MAP library install: ${ext} does not name one pkg-config module")
    endif()
    string(APPEND V2XMAP_STATIC_DEPENDENCIES
           "find_dependency(PkgConfig)\npkg_check_modules(${CMAKE_MATCH_1} REQUIRED IMPORTED_TARGET ${module})\n")
    list(APPEND V2XMAP_PC_REQUIRES ${module})
  elseif(ext MATCHES "^([A-Za-z0-9_]+)::")
    # A CMake package's target (spdlog::spdlog); Debian ships a pkg-config
    # module of the same name in lower case.
    string(APPEND V2XMAP_STATIC_DEPENDENCIES "find_dependency(${CMAKE_MATCH_1} CONFIG)\n")
    string(TOLOWER ${CMAKE_MATCH_1} module)
    list(APPEND V2XMAP_PC_REQUIRES ${module})
  elseif(IS_ABSOLUTE "${ext}" AND ext MATCHES "/lib([^/]+)\\.(so|a)$")
    string(APPEND V2XMAP_PC_LIBS " -l${CMAKE_MATCH_1}")
  elseif(ext MATCHES "^-" AND NOT ext MATCHES "^-l")
    string(APPEND V2XMAP_PC_LIBS " ${ext}")
  elseif(ext MATCHES "^(-l)?([A-Za-z0-9_+.-]+)$")
    string(APPEND V2XMAP_PC_LIBS " -l${CMAKE_MATCH_2}")
  else()
    message(FATAL_ERROR "MAP library install: no rule for the outside library '${ext}' (cmake/Install.cmake)")
  endif()
endforeach()
foreach(module IN LISTS V2XMAP_PC_REQUIRES)
  pkg_get_variable(pcdir ${module} pcfiledir)
  if(NOT pcdir)
    message(FATAL_ERROR "MAP library install: no pkg-config module '${module}' for a static user")
  endif()
endforeach()
list(JOIN V2XMAP_PC_REQUIRES " " V2XMAP_PC_REQUIRES)

# The library as other programs get it. The shared one exports the public C
# API only (packaging/v2xmap.map) and must resolve everything it uses.
add_library(v2xmap_shared SHARED ${V2XMAP_OBJECTS})
target_link_libraries(v2xmap_shared PRIVATE ${V2XMAP_EXTERNALS})
target_link_options(v2xmap_shared PRIVATE "LINKER:--version-script=${PROJECT_SOURCE_DIR}/packaging/v2xmap.map")
if(NOT V2X_SANITIZE)
  target_link_options(v2xmap_shared PRIVATE "LINKER:--no-undefined")
endif()
set_target_properties(v2xmap_shared PROPERTIES
  OUTPUT_NAME v2xmap EXPORT_NAME maplib
  VERSION ${PROJECT_VERSION} SOVERSION ${V2XMAP_SOVERSION}
  LINK_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/v2xmap.map)

# The static library is one object: every part linked together (ld -r) and
# every symbol but the public API made local, so that the codec runtime, the
# generated types and the platform libraries inside never meet the same names
# in a program that links another codec (the patterns of packaging/v2xmap.map).
set(V2XMAP_STATIC_OBJECT ${PROJECT_BINARY_DIR}/packaging/v2xmap_static.o)
set(V2XMAP_PUBLIC_PATTERNS v2xapp_* v2xcodec_* setPosOffset* prasePosOffset*)
list(TRANSFORM V2XMAP_PUBLIC_PATTERNS PREPEND --keep-global-symbol= OUTPUT_VARIABLE V2XMAP_KEEP_OPTIONS)
add_custom_command(OUTPUT ${V2XMAP_STATIC_OBJECT}
  COMMAND ${CMAKE_LINKER} -r -o ${V2XMAP_STATIC_OBJECT}.all ${V2XMAP_OBJECTS}
  COMMAND ${CMAKE_OBJCOPY} --wildcard ${V2XMAP_KEEP_OPTIONS} ${V2XMAP_STATIC_OBJECT}.all ${V2XMAP_STATIC_OBJECT}
  DEPENDS ${V2XMAP_OBJECTS} ${V2XMAP_PARTS}
  COMMAND_EXPAND_LISTS VERBATIM
  COMMENT "Linking the static MAP library's parts into one object with the public API only")
add_library(v2xmap_static STATIC ${V2XMAP_STATIC_OBJECT})
# The C++ runtime is named for programs that a C compiler links.
target_link_libraries(v2xmap_static PRIVATE ${V2XMAP_EXTERNALS} INTERFACE stdc++ m)
set_target_properties(v2xmap_static PROPERTIES OUTPUT_NAME v2xmap EXPORT_NAME maplib_static LINKER_LANGUAGE CXX)

foreach(lib v2xmap_shared v2xmap_static)
  target_include_directories(${lib} INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/v2x>)
endforeach()

install(TARGETS v2xmap_shared EXPORT V2xMapTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(TARGETS v2xmap_static EXPORT V2xMapStaticTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
# The whole public header directory: the library's headers are plain C and
# include nothing of the codec or the platform.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/maplib/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/v2x COMPONENT dev FILES_MATCHING PATTERN "*.h")

# The API reference (target docs) and the example program with the -dev files.
if(V2X_DOCS_HTML)
  # Without Doxygen's bundled jQuery: the pages are plain (no script menus).
  install(DIRECTORY ${V2X_DOCS_HTML}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libv2xmap-dev/html COMPONENT dev
    PATTERN jquery.js EXCLUDE)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/examples/map_example.c ${PROJECT_SOURCE_DIR}/examples/CMakeLists.txt
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libv2xmap-dev/examples COMPONENT dev)

install(EXPORT V2xMapTargets NAMESPACE v2x:: DESTINATION ${V2XMAP_CMAKE_DIR} COMPONENT dev)
install(EXPORT V2xMapStaticTargets NAMESPACE v2x:: DESTINATION ${V2XMAP_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/V2xMapConfig.cmake.in
  ${PROJECT_BINARY_DIR}/packaging/V2xMapConfig.cmake INSTALL_DESTINATION ${V2XMAP_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/packaging/V2xMapConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/packaging/V2xMapConfig.cmake
  ${PROJECT_BINARY_DIR}/packaging/V2xMapConfigVersion.cmake DESTINATION ${V2XMAP_CMAKE_DIR} COMPONENT dev)

# Files that name absolute installed paths are configured when they are
# installed: @V2X_INSTALL_PREFIX@ becomes the prefix of that install (the
# package's /usr, or the one given to cmake --install --prefix); other @VAR@s
# are filled at configure time. An absolute destination stays as it is.
function(v2x_install_configured template destination component)
  get_filename_component(name ${template} NAME_WLE)
  set(V2X_INSTALL_PREFIX "@V2X_INSTALL_PREFIX@")
  set(stage ${PROJECT_BINARY_DIR}/packaging/${name}.in)
  configure_file(${template} ${stage} @ONLY)
  set(dir "\${CMAKE_INSTALL_PREFIX}/${destination}")
  if(IS_ABSOLUTE "${destination}")
    set(dir "${destination}")
  endif()
  install(CODE "
    set(V2X_INSTALL_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
    set(out \"\$ENV{DESTDIR}${dir}/${name}\")
    message(STATUS \"Installing: \${out}\")
    configure_file(\"${stage}\" \"\${out}\" @ONLY)
    list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${out}\")"
    COMPONENT ${component})
endfunction()

# v2xmap: the shared library (Libs.private: what a -static program needs);
# v2xmap-static: the static library, linked into the program.
v2x_install_configured(${PROJECT_SOURCE_DIR}/packaging/v2xmap.pc.in ${CMAKE_INSTALL_LIBDIR}/pkgconfig dev)
v2x_install_configured(${PROJECT_SOURCE_DIR}/packaging/v2xmap-static.pc.in ${CMAKE_INSTALL_LIBDIR}/pkgconfig dev)
v2x_install_configured(${PROJECT_SOURCE_DIR}/packaging/v2x_map_convert.service.in ${V2X_SYSTEMD_UNITDIR} runtime)

# The service and every companion program (tools/<name> builds <name>).
set(V2X_PROGRAMS v2x_map_convert)
file(GLOB tool_dirs LIST_DIRECTORIES true ${PROJECT_SOURCE_DIR}/tools/*)
foreach(dir IN LISTS tool_dirs)
  get_filename_component(name ${dir} NAME)
  if(TARGET ${name})
    list(APPEND V2X_PROGRAMS ${name})
  endif()
endforeach()
install(TARGETS ${V2X_PROGRAMS} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
# One manual page a program (man/<name>.1, plain roff).
foreach(name IN LISTS V2X_PROGRAMS)
  install(FILES ${PROJECT_SOURCE_DIR}/man/${name}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
endforeach()

# The operator's copy of the service's files (the unit's ConfigurationDirectory):
# the working directory helper copies the device and port files from here at
# every start and seeds the service's configuration from here once.
# An installed service runs the field profile: the sample's configuration
# with the profile set at its top (the sample itself keeps the reference one).
file(READ ${PROJECT_SOURCE_DIR}/etc/conf/v2x_map_convert.cfg _v2x_sample_cfg)
file(WRITE ${PROJECT_BINARY_DIR}/packaging/v2x_map_convert.cfg
  "# Field profile: map updates replace the whole map at once, write failures and\n"
  "# values of the wrong type are acknowledged as errors, start-up failures exit\n"
  "# non-zero (README: \"Reference and field behaviour\"). \"reference\" turns it off.\n"
  "profile = \"field\";\n\n${_v2x_sample_cfg}")
install(FILES ${PROJECT_BINARY_DIR}/packaging/v2x_map_convert.cfg ${PROJECT_SOURCE_DIR}/etc/conf/rsu_sysinfo.xml
  ${PROJECT_SOURCE_DIR}/etc/conf/v2x_ipc_port.cfg DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/v2x_service
  COMPONENT runtime)

# The working directory helper finds the template relative to itself.
file(RELATIVE_PATH V2X_HELPER_TO_TEMPLATE /${V2X_HELPER_DIR} /${V2X_TEMPLATE_DIR})
configure_file(${PROJECT_SOURCE_DIR}/packaging/prepare-workdir.in ${PROJECT_BINARY_DIR}/packaging/prepare-workdir @ONLY)
install(PROGRAMS ${PROJECT_BINARY_DIR}/packaging/prepare-workdir DESTINATION ${V2X_HELPER_DIR} COMPONENT runtime)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/etc/ DESTINATION ${V2X_TEMPLATE_DIR} COMPONENT runtime
  PATTERN .gitkeep EXCLUDE)

install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime
  FILES_MATCHING PATTERN "*.md")
