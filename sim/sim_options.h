// rvsim's command line.
#ifndef RVSIM_SIM_OPTIONS_H
#define RVSIM_SIM_OPTIONS_H

#include <string>
#include <vector>

#include "sim/server/modbus_server.h"

struct SimOptions {
    std::string device;      // serve a real serial port; empty = a new pty
    std::string link;        // symlink to the pty, e.g. /tmp/rv0
    std::string tap;         // symlink to a second pty carrying both directions
    std::string listen;      // serve TCP clients on HOST:PORT instead, one at a time
    bool modbusTcp = false;  // ... as a Modbus TCP server (MBAP framing)
    LineSettings line;       // its format, and paced at it unless --no-pace
    std::vector<int> stations{1};
    FaultPlan::Rates faults;
    std::vector<FaultPlan::Fault> script;  // faults of the first requests, in order
    ModbusBridge::Refusals refusals;
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
