// The integration example must really work as a runtime: started on a
// pseudo-terminal with a controller behind it, it loads the built library,
// polls D0..D9 and prints what the controller holds.
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "support/pty_peer.h"
#include "support/run_command.h"

TEST(MinimalRuntime, PollsTenRegistersFromAControllerAndPrintsThem)
{
#ifndef RV_EXAMPLE_FILE
    GTEST_SKIP() << "the example is not part of this build";
#else
    // The example's first line on `device`: it prints once a second, so
    // head's closed pipe ends it soon after; timeout ends one that never does.
    auto firstLine = [](const std::string &device) {
        return runCommand("timeout 10 '" RV_EXAMPLE_FILE "' '" + device +
                          "' 1 19200 '" RV_LIBRARY_FILE "' | head -n 1");
    };
    PtyPeer peer;
    ASSERT_TRUE(peer.ok());
    for (int i = 0; i < 10; ++i)
        peer.server().setRegister(i, uint16_t(1000 * i + 7));
    peer.server().setRegister(10, 0xBEEF);  // outside the polled range
    EXPECT_EQ(firstLine(ttyname(peer.fd())),
              "D0=7 D1=1007 D2=2007 D3=3007 D4=4007 D5=5007 D6=6007 D7=7007 D8=8007 D9=9007 \n");

#endif
}
