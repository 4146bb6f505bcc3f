# Manual pages for the tools, made by help2man from their own --help so they
# never drift from what the programs accept. A cross-built tool runs under
# the build's emulator through a small wrapper that carries the tool's name,
# which help2man takes for the page's name.
find_program(RV_HELP2MAN help2man)
if(NOT RV_HELP2MAN)
  message(STATUS "help2man not found: no manual pages for ${RV_TOOL_TARGETS}")
  return()
endif()

set(RV_MAN_DIR ${CMAKE_BINARY_DIR}/man)
set(rv_man_name_rvpoll "poll Quorvel RV-series controllers through the driver, as a panel runtime does")
set(rv_man_name_rvsim "simulate Quorvel RV-series controllers on a pseudo-terminal or serial line")
string(REPLACE ";" " " rv_emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
set(rv_pages "")
foreach(tool ${RV_TOOL_TARGETS})
  set(wrapper ${RV_MAN_DIR}/run/${tool})
  file(GENERATE OUTPUT ${wrapper}
    CONTENT "#!/bin/sh\nexec ${rv_emulator} '$<TARGET_FILE:${tool}>' \"$@\"\n"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  set(page ${RV_MAN_DIR}/${tool}.1)
  add_custom_command(OUTPUT ${page}.gz
    COMMAND ${RV_HELP2MAN} --no-info --section=1 --version-string=${PROJECT_VERSION}
      "--name=${rv_man_name_${tool}}" --output=${page} ${wrapper}
    COMMAND ${RV_GZIP} -9nf ${page}
    DEPENDS ${tool}
    COMMENT "Manual page for ${tool}"
    VERBATIM)
  list(APPEND rv_pages ${page}.gz)
endforeach()
add_custom_target(rv_man_pages ALL DEPENDS ${rv_pages})
install(FILES ${rv_pages}
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
  PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
  COMPONENT tools)
