// rvsim's request log: one line per frame read from the line, e.g.
// "15:04:05.123 station 1 function 0x03 address 100 count 4: ok", or for a
// remote link "15:04:05.123 remote read, owner 0, link 0, station 1, D100,
// count 4 as function 0x03 address 100 count 4: ok".
#ifndef RVSIM_REQUEST_LOG_H
#define RVSIM_REQUEST_LOG_H

#include <string>

#include "sim/server/modbus_server.h"

std::string requestLogLine(const ModbusServer::LogEntry &entry);

#endif
