# rvsim: the controller simulator, on the shared libmodbus server. Element
# names go through the tools' common parser and the driver's own address map.
if(TARGET rv_modbus_server)
  add_executable(rvsim
    ${CMAKE_CURRENT_LIST_DIR}/rvsim.cpp
    ${CMAKE_CURRENT_LIST_DIR}/sim_options.cpp
    ${CMAKE_CURRENT_LIST_DIR}/sim_usage.cpp
    ${CMAKE_CURRENT_LIST_DIR}/live_data.cpp
    ${CMAKE_CURRENT_LIST_DIR}/element_range.cpp
    ${CMAKE_CURRENT_LIST_DIR}/presets.cpp
    ${CMAKE_CURRENT_LIST_DIR}/request_log.cpp
    ${CMAKE_CURRENT_LIST_DIR}/line_link.cpp
    ${CMAKE_CURRENT_LIST_DIR}/tcp_line.cpp
    ${CMAKE_CURRENT_LIST_DIR}/server/remote_framing.cpp)
  target_compile_definitions(rvsim PRIVATE RV_VERSION="${PROJECT_VERSION}")
  target_link_libraries(rvsim PRIVATE rv_modbus_server rv_common rv_static util)
endif()
