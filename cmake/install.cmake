# Where everything goes when the driver is installed or packaged (debian/
# takes its packages from here), the Debian way: the library under the
# multiarch libdir, the runtime's headers, a pkg-config file and the example
# for building against it, and the two tools with their manual pages when
# built.
#
# Components: "runtime" (the library and its soname link), "dev" (headers,
# the unversioned link, the runtime's link library, pkg-config, the example)
# and "tools" (rvpoll, rvsim and their manual pages).
# Debian's own builds pass lib/<multiarch>; take the same default whatever
# the prefix, so packages and `cmake --install` agree.
if(NOT DEFINED CMAKE_INSTALL_LIBDIR AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Object code libraries")
endif()
include(GNUInstallDirs)

# Installing (and so packaging) takes what is built and does not first build
# every test and benchmark of the tree.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

# Manual pages are installed compressed.
find_program(RV_GZIP gzip REQUIRED)

# A shared library is not a program: 0644 keeps Debian's checks quiet.
install(TARGETS Quorvel_RV_Series
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
    COMPONENT runtime
    NAMELINK_COMPONENT dev)

# Only the records and the entry points a runtime calls; the driver object
# and its helpers stay private to the library. They go into their own folder
# so that a runtime names them <quorvel_rv/quorvel_rv_series.h> and the
# generic names records.h and export.h stay off its include path. The build
# tree gets the same layout, so the example compiles here exactly as it does
# against the installed headers.
set(RV_PUBLIC_HEADERS quorvel_rv_series.h records.h export.h)
set(RV_STAGED_INCLUDE ${CMAKE_BINARY_DIR}/include)
foreach(h ${RV_PUBLIC_HEADERS})
  configure_file(${CMAKE_CURRENT_SOURCE_DIR}/driver/${h} ${RV_STAGED_INCLUDE}/quorvel_rv/${h} COPYONLY)
  install(FILES ${CMAKE_CURRENT_SOURCE_DIR}/driver/${h}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorvel_rv COMPONENT dev)
endforeach()
# The link a runtime reads its replies with: its headers under
# quorvel_rv/link/ and its static library, in the -dev package.
file(GLOB RV_LINK_HEADERS CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/link/*.h)
foreach(h ${RV_LINK_HEADERS})
  get_filename_component(name ${h} NAME)
  configure_file(${h} ${RV_STAGED_INCLUDE}/quorvel_rv/link/${name} COPYONLY)
endforeach()
install(FILES ${RV_LINK_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quorvel_rv/link
  COMPONENT dev)
install(TARGETS quorvel_rv_link ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
if(TARGET minimal_runtime)
  target_include_directories(minimal_runtime BEFORE PRIVATE ${RV_STAGED_INCLUDE})
endif()

# The pkg-config file names the install prefix itself, as Debian's do; a
# staging root (a panel image's) is reached with PKG_CONFIG_SYSROOT_DIR.
foreach(dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(RV_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(RV_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
foreach(pc quorvel-rv-series quorvel-rv-link)
  configure_file(${CMAKE_CURRENT_SOURCE_DIR}/packaging/${pc}.pc.in
    ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT dev)
endforeach()

# The example runtime and the headers it includes beside it, where Debian
# keeps a -dev package's examples; docs/integration.md shows how to compile
# it from there.
file(GLOB RV_EXAMPLE_FILES CONFIGURE_DEPENDS
  ${CMAKE_CURRENT_SOURCE_DIR}/examples/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/examples/*.h)
install(FILES ${RV_EXAMPLE_FILES}
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/libquorvel-rv-series-dev/examples
  COMPONENT dev)

# The tools exist only in builds that made them (RV_BUILD_TOOLS, and a
# cross build may leave them out when their libraries are missing).
set(RV_TOOL_TARGETS "")
foreach(tool rvpoll rvsim)
  if(TARGET ${tool})
    list(APPEND RV_TOOL_TARGETS ${tool})
  endif()
endforeach()
if(RV_TOOL_TARGETS)
  install(TARGETS ${RV_TOOL_TARGETS}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  include(${CMAKE_CURRENT_LIST_DIR}/man_pages.cmake)
endif()

include(${CMAKE_CURRENT_LIST_DIR}/debian_version.cmake)

include(${CMAKE_CURRENT_LIST_DIR}/package_tests.cmake)
