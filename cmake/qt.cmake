# Which Qt the tree is built against. The panel's runtime is a Qt 4.8
# program and loads only a driver built against Qt 4.8's QtCore; Debian's
# Qt 5 is the default for development and the desktop tools. The sources are
# the same for both: everything links RV::QtCore and nothing else of Qt.
#
#   -DRV_QT=5                                     Debian's Qt 5 (default)
#   -DRV_QT=4 -DQT_QMAKE_EXECUTABLE=PREFIX/bin/qmake   Qt 4.8 (CMake's FindQt4)
set(RV_QT 5 CACHE STRING "Qt to build against: 5 (Debian's) or 4 (4.8, the panel runtime's)")
set_property(CACHE RV_QT PROPERTY STRINGS 4 5)

add_library(rv_qtcore INTERFACE)
add_library(RV::QtCore ALIAS rv_qtcore)
if(RV_QT STREQUAL "4")
  if(NOT QT_QMAKE_EXECUTABLE)
    message(FATAL_ERROR "RV_QT=4 needs -DQT_QMAKE_EXECUTABLE=<Qt 4.8 prefix>/bin/qmake")
  endif()
  find_package(Qt4 4.8 REQUIRED QtCore)
  target_link_libraries(rv_qtcore INTERFACE Qt4::QtCore)
  # What a runtime built against this Qt links: the pkg-config module name.
  set(RV_QT_PKGCONFIG QtCore)
elseif(RV_QT STREQUAL "5")
  find_package(Qt5 COMPONENTS Core REQUIRED)
  target_link_libraries(rv_qtcore INTERFACE Qt5::Core)
  set(RV_QT_PKGCONFIG Qt5Core)
else()
  message(FATAL_ERROR "RV_QT must be 4 or 5, not '${RV_QT}'")
endif()

# Qt 4 defines slots, signals and emit as macros; with both Qts built this
# way no identifier can work in one and break in the other.
add_compile_definitions(QT_NO_KEYWORDS)
