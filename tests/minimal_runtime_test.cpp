// The integration example must really work as a runtime: started on a
// pseudo-terminal with a controller behind it, it loads the built library,
// polls D0..D9 and prints what the controller holds.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "sim/server/modbus_server.h"

namespace {

#ifdef RV_EXAMPLE_FILE
// Runs the example on `device` and returns its first output line, or what it
// printed until `timeoutMs` passed. The program is stopped afterwards.
std::string firstLine(const std::string &device, int timeoutMs)
{
    int out[2];
    if (pipe(out) != 0)
        return "";
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        close(out[0]);
        execl(RV_EXAMPLE_FILE, RV_EXAMPLE_FILE, device.c_str(), "1", "19200", RV_LIBRARY_FILE,
              static_cast<char *>(nullptr));
        _exit(127);
    }
    close(out[1]);
    std::string text;
    pollfd p = {out[0], POLLIN, 0};
    char c;
    while (text.find('\n') == std::string::npos && poll(&p, 1, timeoutMs) > 0 &&
           read(out[0], &c, 1) == 1)
        text += c;
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    close(out[0]);
    return text;
}
#endif

TEST(MinimalRuntime, PollsTenRegistersFromAControllerAndPrintsThem)
{
#ifndef RV_EXAMPLE_FILE
    GTEST_SKIP() << "the example is not part of this build";
#else
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    const std::string device = ptsname(master);
    {
        ModbusServer controller(master);
        for (int i = 0; i < 10; ++i)
            controller.setRegister(i, uint16_t(1000 * i + 7));
        controller.setRegister(10, 0xBEEF);  // outside the polled range
        ASSERT_TRUE(controller.start());
        EXPECT_EQ(firstLine(device, 10000),
                  "D0=7 D1=1007 D2=2007 D3=3007 D4=4007 D5=5007 D6=6007 D7=7007 D8=8007 D9=9007 \n");
    }
    close(master);

    // A device that does not exist is reported, not polled.
    EXPECT_EQ(firstLine("/dev/rv-no-such-port", 2000), "");
#endif
}

}  // namespace
