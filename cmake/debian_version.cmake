# One version. project(VERSION) gives the soname, the tools' --version, the
# pkg-config file and the manual pages; debian/changelog gives the Debian
# packages theirs. A release changes both, and configuring fails while they
# differ. The library package is named after the soname's major version.
set(rv_changelog ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog)
set(rv_control ${CMAKE_CURRENT_SOURCE_DIR}/debian/control)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${rv_changelog} ${rv_control})

file(STRINGS ${rv_changelog} rv_changelog_top LIMIT_COUNT 1)
# "name (epoch:upstream-revision) ..."; the upstream part ends at the last '-'.
if(NOT rv_changelog_top MATCHES "^[^ ]+ \\(([0-9]+:)?([^ )]+)-[^- )]+\\)")
  message(FATAL_ERROR "debian/changelog: no 'name (version-revision)' on its first line: ${rv_changelog_top}")
endif()
if(NOT CMAKE_MATCH_2 STREQUAL PROJECT_VERSION)
  message(FATAL_ERROR "debian/changelog is at ${CMAKE_MATCH_2}, project(VERSION) at "
    "${PROJECT_VERSION}: a release changes both (project(VERSION) and dch -v <version>-1)")
endif()

file(STRINGS ${rv_control} rv_library_package REGEX "^Package: lib.*[0-9]$")
if(NOT rv_library_package STREQUAL "Package: libquorvel-rv-series${PROJECT_VERSION_MAJOR}")
  message(FATAL_ERROR "debian/control names the library package '${rv_library_package}', "
    "the soname's major version ${PROJECT_VERSION_MAJOR} asks for libquorvel-rv-series${PROJECT_VERSION_MAJOR}")
endif()
