#include "pty_settings.h"

#include "link/serial_port.h"

bool ptySpeedExists(int baud)
{
    speed_t speed;
    return rvlink::termiosSpeed(baud, speed);
}

bool rawPtySettings(int baud, int stopBits, termios &out)
{
    rvlink::LineFormat f;
    f.baud = baud;
    f.parity = 'N';
    f.stopBits = stopBits;
    std::string error;
    if (!rvlink::rawTermios(f, out, error))
        return false;
    out.c_cc[VMIN] = 1;
    return true;
}

bool readPtySettings(int fd, PtySettings &out)
{
    rvlink::LineFormat f;
    if (!rvlink::readTerminalFormat(fd, f))
        return false;
    out.baud = f.baud;
    out.stopBits = f.stopBits;
    return true;
}

std::string describePtySettings(const PtySettings &s)
{
    return std::to_string(s.baud) + " baud, " + std::to_string(s.stopBits) +
           (s.stopBits == 1 ? " stop bit" : " stop bits");
}
