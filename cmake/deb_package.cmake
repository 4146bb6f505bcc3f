# Debian packages, made the way Debian's own tools make them (packaging/make-debs,
# run by the "debs" target): libquorvel-rv-series1 holds the library under its
# soname, libquorvel-rv-series-dev the headers, the unversioned link, the
# pkg-config file and the example, quorvel-rv-tools rvpoll and rvsim. The
# version is the project's: the changelog below carries it into every package.

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

set(RV_DEB_RUNTIME libquorvel-rv-series${PROJECT_VERSION_MAJOR})
set(RV_DEB_DEV libquorvel-rv-series-dev)
set(RV_DEB_TOOLS quorvel-rv-tools)

# The packages' source tree as dpkg's tools expect it: debian/control,
# debian/changelog and one folder per package, all inside the build.
set(RV_DEB_WORK ${CMAKE_BINARY_DIR}/deb)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/packaging/control.in ${RV_DEB_WORK}/debian/control @ONLY)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/packaging/changelog.in ${RV_DEB_WORK}/debian/changelog @ONLY)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/packaging/make-debs.conf.in ${RV_DEB_WORK}/make-debs.conf @ONLY)

# Debian wants a copyright file and a compressed changelog in every package;
# -n leaves name and time stamp out, so the file is the same on every
# architecture, as Multi-Arch: same requires.
set(RV_DEB_DOCS ${CMAKE_CURRENT_BINARY_DIR}/deb-docs)
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/packaging/changelog.in
  ${RV_DEB_DOCS}/changelog.Debian @ONLY)
execute_process(COMMAND ${RV_GZIP} -9nf ${RV_DEB_DOCS}/changelog.Debian)
foreach(pkg runtime dev tools)
  if(pkg STREQUAL runtime)
    set(name ${RV_DEB_RUNTIME})
  elseif(pkg STREQUAL dev)
    set(name ${RV_DEB_DEV})
  else()
    set(name ${RV_DEB_TOOLS})
  endif()
  install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/packaging/copyright
                ${RV_DEB_DOCS}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name}
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
    COMPONENT ${pkg})
  # What lintian reports that does not apply here, with the reason.
  file(READ ${CMAKE_CURRENT_SOURCE_DIR}/packaging/lintian-overrides overrides)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/packaging/lintian-overrides.${pkg})
    file(READ ${CMAKE_CURRENT_SOURCE_DIR}/packaging/lintian-overrides.${pkg} extra)
    string(APPEND overrides "${extra}")
  endif()
  file(WRITE ${RV_DEB_DOCS}/overrides/${name} "${overrides}")
  install(FILES ${RV_DEB_DOCS}/overrides/${name}
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
    COMPONENT ${pkg})
endforeach()

# The example runtime and the headers it includes beside it, where Debian
# keeps examples; docs/integration.md shows how to compile it from there.
file(GLOB RV_EXAMPLE_FILES CONFIGURE_DEPENDS
  ${CMAKE_CURRENT_SOURCE_DIR}/examples/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/examples/*.h)
install(FILES ${RV_EXAMPLE_FILES}
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${RV_DEB_DEV}/examples
  PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
  COMPONENT dev)

# cmake --build <dir> --target debs: the packages into <dir>/debs.
add_custom_target(debs
  COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/packaging/make-debs ${CMAKE_BINARY_DIR} ${CMAKE_BINARY_DIR}/debs
  USES_TERMINAL VERBATIM)
add_dependencies(debs Quorvel_RV_Series ${RV_TOOL_TARGETS})
if(TARGET rv_man_pages)
  add_dependencies(debs rv_man_pages)
endif()
