// Runs a shell command for a test and returns what it printed.
#ifndef RV_TEST_RUN_COMMAND_H
#define RV_TEST_RUN_COMMAND_H

#include <string>

std::string runCommand(const std::string &command);

#endif
