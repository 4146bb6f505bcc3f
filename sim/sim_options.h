// rvsim's command line.
#ifndef RVSIM_SIM_OPTIONS_H
#define RVSIM_SIM_OPTIONS_H

#include <string>
#include <vector>

#include "sim/server/modbus_server.h"

struct SimOptions {
    std::string device;          // serve a real serial port; empty = a new pty
    std::string link;            // symlink to the pty, e.g. /tmp/rv0
    int baud = 19200;
    char parity = 'E';
    int stopBits = 1;
    std::vector<int> stations{1};
    ModbusServer::FaultRates faults;
    int tickMs = 100;            // live-data step
    bool quiet = false;          // do not report writes
    bool help = false;
};

// False with a one-line reason for anything unusable.
bool parseSimOptions(int argc, char **argv, SimOptions &opts, std::string &error);
const char *simUsage();

#endif
