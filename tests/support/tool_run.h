// rvpoll and other programs run to their end by a tool test, with their
// exit status and both outputs. The including test defines RVPOLL_PATH and
// DRIVER_PATH.
#ifndef RV_TEST_TOOL_RUN_H
#define RV_TEST_TOOL_RUN_H

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "run_command.h"
#include "rvsim_process.h"

struct Result {
    int status = -1;  // exit status; 137 when it had to be killed
    std::string out, err;
};

// Runs a shell command line to its end (killed after a minute), with the
// output of the shell line `input` on its standard input.
inline Result run(const std::string &command, const std::string &input = ":")
{
    const std::string err = scratchFile();
    Result r;
    r.out = runCommand("(" + input + ") | timeout -s KILL 60 " + command + " 2>" + err +
                       "; echo \"<exit $?>\"");
    const size_t at = r.out.rfind("<exit ");
    r.status = at == std::string::npos ? -1 : atoi(r.out.c_str() + at + 6);
    r.out.erase(std::min(at, r.out.size()));
    r.err = readFile(err);
    unlink(err.c_str());
    return r;
}

// The library of this build tree, named explicitly: the sanitizers' dlopen
// interceptors hide rvpoll's RUNPATH from the loader.
inline std::string poll(const std::string &port, const std::string &args)
{
    return "'" RVPOLL_PATH "' --lib '" DRIVER_PATH "' --port " + port + " " + args;
}

#endif
