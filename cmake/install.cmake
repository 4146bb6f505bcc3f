# Where everything goes when the driver is installed or packaged, the Debian
# way: the library under the multiarch libdir, the runtime's header and a
# pkg-config file for building against it, and the two tools when built.
#
# Components: "runtime" (the library and its soname link), "dev" (header,
# the unversioned link, pkg-config) and "tools" (rvpoll, rvsim).
# Debian's own builds pass lib/<multiarch>; take the same default whatever
# the prefix, so packages and `cmake --install` agree.
if(NOT DEFINED CMAKE_INSTALL_LIBDIR AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Object code libraries")
endif()
include(GNUInstallDirs)

# Installing (and so packaging) takes what is built and does not first build
# every test and benchmark of the tree.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

set(RV_INCLUDE_SUBDIR quorvel_rv)

# A shared library is not a program: 0644 keeps Debian's checks quiet.
install(TARGETS Quorvel_RV_Series
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
    COMPONENT runtime
    NAMELINK_COMPONENT dev)

# Only the records and the entry points a runtime calls; the driver object
# and its helpers stay private to the library.
install(FILES
    ${CMAKE_CURRENT_SOURCE_DIR}/driver/quorvel_rv_series.h
    ${CMAKE_CURRENT_SOURCE_DIR}/driver/records.h
    ${CMAKE_CURRENT_SOURCE_DIR}/driver/export.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${RV_INCLUDE_SUBDIR}
  COMPONENT dev)

# The prefix is found from the .pc file's own place, so an install moved
# elsewhere (a panel image's staging root) still points at itself.
file(RELATIVE_PATH RV_PC_TO_PREFIX "/rv/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/rv")
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/packaging/quorvel-rv-series.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/quorvel-rv-series.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/quorvel-rv-series.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
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
endif()

include(${CMAKE_CURRENT_LIST_DIR}/deb_package.cmake)

include(${CMAKE_CURRENT_LIST_DIR}/package_tests.cmake)
