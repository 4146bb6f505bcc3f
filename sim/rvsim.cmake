# rvsim: the controller simulator, on the shared libmodbus server.
if(TARGET rv_modbus_server)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(SERIALPORT REQUIRED IMPORTED_TARGET libserialport)
  add_executable(rvsim
    ${CMAKE_CURRENT_LIST_DIR}/rvsim.cpp
    ${CMAKE_CURRENT_LIST_DIR}/sim_options.cpp
    ${CMAKE_CURRENT_LIST_DIR}/live_data.cpp)
  target_link_libraries(rvsim PRIVATE rv_modbus_server PkgConfig::SERIALPORT util)
endif()
