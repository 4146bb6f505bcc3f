# Debian packages through CPack: the runtime package holds the library alone,
# the tools package rvpoll and rvsim. Headers and pkg-config stay with
# `cmake --install` (component "dev") and are not packaged.

# Debian's name for the architecture: the host's natively, armhf for the
# panel's cross build; RV_DEB_ARCH overrides both.
if(NOT RV_DEB_ARCH)
  if(CMAKE_CROSSCOMPILING AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
    set(RV_DEB_ARCH armhf)
  else()
    find_program(RV_DPKG dpkg)
    if(RV_DPKG)
      execute_process(COMMAND ${RV_DPKG} --print-architecture
        OUTPUT_VARIABLE RV_DEB_ARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
    else()
      set(RV_DEB_ARCH amd64)
    endif()
  endif()
endif()

set(RV_DEB_RUNTIME libquorvel-rv-series1)
set(RV_DEB_TOOLS quorvel-rv-tools)
set(RV_DEB_RELEASE 1)
set(RV_DEB_VERSION ${PROJECT_VERSION}-${RV_DEB_RELEASE})
set(RV_DEB_MAINTAINER "Quorvel RV driver team <rv-driver@quorvel.invalid>")

# Debian wants a copyright file and a compressed changelog in every package.
set(RV_DEB_DOCS ${CMAKE_CURRENT_BINARY_DIR}/deb-docs)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/packaging/changelog.in
  ${RV_DEB_DOCS}/changelog.Debian @ONLY)
find_program(RV_GZIP gzip)
if(RV_GZIP)
  # -n: no name or time stamp, so the package is reproducible.
  execute_process(COMMAND ${RV_GZIP} -9nf ${RV_DEB_DOCS}/changelog.Debian)
endif()
foreach(pkg runtime tools)
  if(pkg STREQUAL runtime)
    set(name ${RV_DEB_RUNTIME})
  else()
    set(name ${RV_DEB_TOOLS})
  endif()
  install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/packaging/copyright
                ${RV_DEB_DOCS}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name}
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
    COMPONENT ${pkg})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorvel-rv-series)
set(CPACK_PACKAGE_VENDOR "Quorvel RV driver team")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${RV_DEB_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
if(RV_TOOL_TARGETS)
  set(CPACK_COMPONENTS_ALL runtime tools)
else()
  set(CPACK_COMPONENTS_ALL runtime)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${RV_DEB_RELEASE})
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${RV_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${RV_DEB_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://quorvel.invalid/rv-driver")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${RV_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# shlibs (and with it the ldconfig trigger) for the package with the soname.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/packaging/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"Quorvel RV-series PLC driver for operator-panel runtimes
A shared library that an operator-panel runtime loads to talk to Quorvel
RV-series controllers over Modbus RTU. It keeps the cyclic read list, the
write and one-off read queues, builds the request frames, checks the
replies and mirrors the controller's element areas for the runtime.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${RV_DEB_TOOLS})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION electronics)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
"poller and simulator for Quorvel RV-series controllers
rvpoll drives the Quorvel RV-series driver the way an operator-panel
runtime does and shows the polled values; rvsim plays one or several
controllers on a pseudo-terminal or serial device, with injectable faults.")
# rvpoll loads the library by its soname at run time, so the link cannot
# reveal the dependency: name it.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${RV_DEB_RUNTIME} (= ${RV_DEB_VERSION})")

# dpkg-shlibdeps only knows the host's libraries, and needs dpkg-dev and
# file; for a cross build, or without them, the dependencies are named by
# hand (what the amd64 build derives).
find_program(RV_SHLIBDEPS dpkg-shlibdeps)
find_program(RV_FILE file)
if(CMAKE_CROSSCOMPILING OR NOT RV_SHLIBDEPS OR NOT RV_FILE)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS
    "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libqt5core5a (>= 5.15.1), libstdc++6 (>= 11)")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
    "${CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS}, ${CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS}, libmodbus5 (>= 3.1.6), libserialport0")
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

include(CPack)
