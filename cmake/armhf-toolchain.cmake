# Cross build for the panel's 32-bit ARM (armhf) on a Debian x86-64 host.
# The C and C++ runtime comes with crossbuild-essential-armhf under
# /usr/arm-linux-gnueabihf; Qt 5 and libmodbus come from a sysroot unpacked
# from armhf packages (scripts/lib.sh, rv_armhf_sysroot). With RV_QT=4,
# QtCore comes from the armhf Qt 4.8 prefix whose qmake QT_QMAKE_EXECUTABLE
# names. Tests run under qemu-arm through ctest.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(RV_ARMHF_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${RV_ARMHF_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${RV_ARMHF_TRIPLE}-g++)

if(NOT RV_ARMHF_SYSROOT)
  set(RV_ARMHF_SYSROOT "$ENV{RV_ARMHF_SYSROOT}")
endif()
if(NOT RV_ARMHF_SYSROOT OR NOT EXISTS "${RV_ARMHF_SYSROOT}/usr/lib/${RV_ARMHF_TRIPLE}")
  message(FATAL_ERROR "RV_ARMHF_SYSROOT must name an unpacked armhf sysroot (scripts/test --armhf makes one)")
endif()
# try_compile projects read this file again and need the same sysroot.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES RV_ARMHF_SYSROOT QT_QMAKE_EXECUTABLE)

# Not CMAKE_SYSROOT: the C library lives outside the sysroot, in the cross
# toolchain's own tree, so both are search roots instead.
set(CMAKE_FIND_ROOT_PATH "${RV_ARMHF_SYSROOT}" /usr/${RV_ARMHF_TRIPLE})
set(_rv_libdirs "${RV_ARMHF_SYSROOT}/usr/lib/${RV_ARMHF_TRIPLE}" "${RV_ARMHF_SYSROOT}/lib/${RV_ARMHF_TRIPLE}")
# A Qt 4.8 prefix is a root of its own: FindQt4 looks for the library and
# headers where its qmake says, and the tests load QtCore from there.
if(QT_QMAKE_EXECUTABLE)
  get_filename_component(_rv_qt4_prefix "${QT_QMAKE_EXECUTABLE}" DIRECTORY)
  get_filename_component(_rv_qt4_prefix "${_rv_qt4_prefix}" DIRECTORY)
  list(APPEND CMAKE_FIND_ROOT_PATH "${_rv_qt4_prefix}")
  list(APPEND _rv_libdirs "${_rv_qt4_prefix}/lib")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(_rv_rpath_link "")
foreach(d ${_rv_libdirs})
  string(APPEND _rv_rpath_link " -Wl,-rpath-link,${d}")
endforeach()
set(CMAKE_EXE_LINKER_FLAGS_INIT "${_rv_rpath_link}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${_rv_rpath_link}")

# pkg-config (libmodbus) answers from the sysroot only.
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${RV_ARMHF_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR} "${RV_ARMHF_SYSROOT}/usr/lib/${RV_ARMHF_TRIPLE}/pkgconfig:${RV_ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")

# ctest runs every test program under qemu-arm with the armhf loader and the
# sysroot's libraries.
string(REPLACE ";" ":" _rv_ld_path "${_rv_libdirs}")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/${RV_ARMHF_TRIPLE} -E LD_LIBRARY_PATH=${_rv_ld_path})
