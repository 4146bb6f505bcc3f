#include "run_command.h"

#include <cstdio>

std::string runCommand(const std::string &command)
{
    std::string out;
    if (FILE *p = popen(command.c_str(), "r")) {
        char buf[512];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, p)) > 0)
            out.append(buf, n);
        pclose(p);
    }
    return out;
}
