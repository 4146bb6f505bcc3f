# Manual pages for the tools, made by help2man from their own --help so the
# options never drift from what the programs accept; man/<tool>.h2m adds the
# sections --help has no place for (EXIT STATUS where --help leaves it out,
# FILES, EXAMPLES, SEE ALSO), man/help2man.sed marks where the options
# start and man/page.sed keeps option names whole at a line's end. A
# cross-built tool runs under the build's emulator through a small wrapper
# that carries the tool's name, which help2man takes for the page's.
find_program(RV_HELP2MAN help2man)
find_program(RV_SED sed)
if(NOT RV_HELP2MAN OR NOT RV_SED)
  message(STATUS "help2man or sed not found: no manual pages for ${RV_TOOL_TARGETS}")
  return()
endif()

set(RV_MAN_DIR ${CMAKE_BINARY_DIR}/man)
set(rv_man_filter ${CMAKE_CURRENT_SOURCE_DIR}/man/help2man.sed)
set(rv_page_filter ${CMAKE_CURRENT_SOURCE_DIR}/man/page.sed)
string(REPLACE ";" " " rv_emulator "${CMAKE_CROSSCOMPILING_EMULATOR}")
set(rv_pages "")
foreach(tool ${RV_TOOL_TARGETS})
  set(wrapper ${RV_MAN_DIR}/run/${tool})
  file(GENERATE OUTPUT ${wrapper}
    CONTENT "#!/bin/sh
if [ \"$1\" = --help ]; then
    help=$(${rv_emulator} '$<TARGET_FILE:${tool}>' --help) || exit
    printf '%s\\n' \"$help\" | '${RV_SED}' -E -f '${rv_man_filter}'
else
    exec ${rv_emulator} '$<TARGET_FILE:${tool}>' \"$@\"
fi
"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  # The library's place goes into the FILES section.
  set(include ${RV_MAN_DIR}/${tool}.h2m)
  configure_file(${CMAKE_CURRENT_SOURCE_DIR}/man/${tool}.h2m ${include} @ONLY)
  set(page ${RV_MAN_DIR}/${tool}.1)
  add_custom_command(OUTPUT ${page}.gz
    COMMAND ${RV_HELP2MAN} --no-info --section=1 --include=${include} --output=${page} ${wrapper}
    COMMAND ${RV_SED} -E -i -f ${rv_page_filter} ${page}
    COMMAND ${RV_GZIP} -9nf ${page}
    DEPENDS ${tool} ${include} ${rv_man_filter} ${rv_page_filter}
    COMMENT "Manual page for ${tool}"
    VERBATIM)
  list(APPEND rv_pages ${page}.gz)
endforeach()
add_custom_target(rv_man_pages ALL DEPENDS ${rv_pages})
install(FILES ${rv_pages}
  DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
  PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
  COMPONENT tools)
