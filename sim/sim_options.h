// rvsim's command line.
#ifndef RVSIM_SIM_OPTIONS_H
#define RVSIM_SIM_OPTIONS_H

#include <string>
#include <vector>

#include "sim/server/modbus_server.h"

struct SimOptions {
    std::string device;  // serve a real serial port; empty = a new pty
    std::string link;    // symlink to the pty, e.g. /tmp/rv0
    int baud = 19200;
    char parity = 'E';  // 'N', 'E' or 'O'
    int stopBits = 1;
    LineSettings line;  // timing: paced at baud, parity and stop unless --no-pace
    std::vector<int> stations{1};
    ModbusServer::FaultRates faults;
    std::vector<ModbusServer::Fault> script;  // faults of the first requests, in order
    ModbusServer::Refusals refusals;
    std::string dataFile;     // preset values
    std::string logFile;      // request log
    bool verbose = false;     // request log on standard output
    bool remoteLink = false;  // requests are a remote link's request descriptions
    int tickMs = 100;         // live-data step
    bool quiet = false;       // do not report writes
    bool help = false;
    bool version = false;
    std::vector<std::string> notes;  // options given that change nothing
};

// False with a one-line reason for anything unusable.
bool parseSimOptions(int argc, char **argv, SimOptions &opts, std::string &error);
const char *simUsage();

#endif
