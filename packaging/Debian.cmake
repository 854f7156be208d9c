# Debian packages, one per component of the installation: cpack -G DEB in a build tree of preset
# "package".
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL plugin host simulator dev)
set(CPACK_PACKAGE_NAME tev)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "tev maintainers")
set(CPACK_PACKAGE_CONTACT "tev maintainers <maintainers@tev.invalid>" CACHE STRING
  "Name and address of the packages' maintainer")
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/CompressManual.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

# Files that only packages have.
function(tev_package_files component destination)
  install(FILES ${ARGN} DESTINATION ${destination} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()

find_program(GZIP gzip)
# Compresses a file in a reproducible way.
function(tev_compress from to)
  execute_process(COMMAND ${GZIP} -9n INPUT_FILE ${from} OUTPUT_FILE ${to} COMMAND_ERROR_IS_FATAL ANY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${from})
endfunction()
if(GZIP)
  tev_compress(${PROJECT_SOURCE_DIR}/CHANGELOG.md ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz)
  tev_compress(${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog
    ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz)
endif()

# tev_package(component package SECTION text SUMMARY text DESCRIPTION text)
macro(tev_package component package)
  cmake_parse_arguments(ARG "" "SECTION;SUMMARY;DESCRIPTION" "" ${ARGN})
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${ARG_SECTION})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${ARG_SUMMARY}\n${ARG_DESCRIPTION}")
  tev_package_files(${component} ${CMAKE_INSTALL_DOCDIR_OF_ALL}/${package}
    debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
    ${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian.gz)
endmacro()
set(CMAKE_INSTALL_DOCDIR_OF_ALL ${CMAKE_INSTALL_DATAROOTDIR}/doc)

tev_package(plugin libevents-multipath-provider SECTION libs
  SUMMARY "plug-in that samples the multipath counters of network adapters"
  DESCRIPTION "A telemetry host loads this plug-in. It samples the congestion-control
counters of multipath network adapters at a fixed interval, per device and per
plane, and delivers each sample as a packed event with a schema.

It opens the device SDK of the adapters' maker at run time.")

tev_package(host tev-host SECTION net
  SUMMARY "host for telemetry plug-ins of network adapters"
  DESCRIPTION "tev-host loads a telemetry plug-in, samples, and writes the events as a table,
JSON lines or CSV, with rates and windows. It records them in files, reads
these back, and shows the adapters on the full screen, those with the worst
planes first.")
set(CPACK_COMPONENT_HOST_DEPENDS plugin)
set(CPACK_DEBIAN_HOST_PACKAGE_SUGGESTS tev-simulator)
set(CPACK_DEBIAN_HOST_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm ${CMAKE_CURRENT_SOURCE_DIR}/debian/postrm)

tev_package(simulator tev-simulator SECTION net
  SUMMARY "simulated device SDK for telemetry plug-ins"
  DESCRIPTION "A device SDK without devices: it plays scenarios of network adapters with
several planes, their counters and their faults, or shows this machine's own
network interfaces. 'tev-host run --simulate' uses it.")

tev_package(dev tev-dev SECTION libdevel
  SUMMARY "headers for hosts of telemetry plug-ins"
  DESCRIPTION "The C headers of the interface between telemetry plug-ins and their hosts, a
CMake package and a pkg-config file.")
set(CPACK_COMPONENT_DEV_DEPENDS plugin)

tev_package_files(simulator ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides debian/tev-simulator)

include(CPack)
