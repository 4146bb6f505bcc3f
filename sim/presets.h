// Values the simulated controller starts with, from a file of entries such
// as "D100=1234", "M5=1", "X10=1" or "D0-D9=7" (every element of the range
// alike). Entries are separated by blanks or new lines; "#" starts a
// comment.
#ifndef RVSIM_PRESETS_H
#define RVSIM_PRESETS_H

#include <string>

#include "sim/server/modbus_server.h"

// Sets the values in `server` and counts them in `values`; false with
// "FILE:LINE: reason" (or the reason the file cannot be read) otherwise.
bool loadPresets(const std::string &path, ModbusServer &server, int &values, std::string &error);

#endif
