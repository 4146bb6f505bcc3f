// Values that change by themselves, so a poll shows a living controller:
// a counter in D0, a ramp in D1 and a blinking M0. Also notices values that
// a master wrote, by comparing the whole mapping with what it saw last.
#ifndef RVSIM_LIVE_DATA_H
#define RVSIM_LIVE_DATA_H

#include <stdint.h>

#include <string>
#include <vector>

#include "sim/server/modbus_server.h"

class LiveData {
public:
    explicit LiveData(ModbusServer &server);

    // One step of the live values; returns "register 100 = 0x1234" lines
    // for every value changed on the line since the previous step.
    std::vector<std::string> step();

private:
    ModbusServer &server_;
    std::vector<uint16_t> registers_;
    std::vector<uint8_t> coils_;
    unsigned tick_ = 0;
};

#endif
