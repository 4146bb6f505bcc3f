// rvpoll's line as the command line sets it, and the link's records it
// fills: the port's settings and how a reply is read.
#ifndef RVPOLL_LINK_SETTINGS_H
#define RVPOLL_LINK_SETTINGS_H

#include <string>

#include "link/line.h"
#include "link/serial_port.h"

struct LinkSettings {
    std::string port;
    rvlink::LineFormat format;  // 19200 8E1 unless told otherwise
    int timeoutMs = 500;        // wait for the first reply byte
    int byteTimeoutMs = 500;    // wait between pieces of one reply
    int gapUs = -1;             // silence kept between frames; -1 = 3.5 characters
    int windowMs = -1;          // late-reply window; -1 = 4 x timeoutMs
    bool discardEcho = false;   // 2-wire adapters that hear their own frame
    bool rs485 = false;         // the kernel's RS-485 mode (TIOCSRS485)
    bool remoteFrames = false;  // requests are a remote link's descriptions
    int rtsDelayBefore = 0;     // ms, in RS-485 mode
    int rtsDelayAfter = 0;

    rvlink::PortSettings portSettings() const
    {
        rvlink::PortSettings p;
        p.path = port;
        p.format = format;
        p.rs485 = rs485;
        p.rtsDelayBeforeMs = rtsDelayBefore;
        p.rtsDelayAfterMs = rtsDelayAfter;
        return p;
    }
    rvlink::LineOptions lineOptions() const
    {
        rvlink::LineOptions o;
        o.format = format;
        o.timeoutMs = timeoutMs;
        o.byteTimeoutMs = byteTimeoutMs;
        o.gapUs = gapUs;
        o.windowMs = windowMs;
        o.discardEcho = discardEcho;
        o.remoteFrames = remoteFrames;
        return o;
    }
};

#endif
