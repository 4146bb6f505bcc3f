#include "pty_settings.h"

#include "host/baud_rates.h"

bool ptySpeedExists(int baud)
{
    return baudRateOf(baud) != nullptr;
}

bool rawPtySettings(int baud, int stopBits, termios &out)
{
    const BaudRate *rate = baudRateOf(baud);
    if (!rate)
        return false;
    out = termios();
    cfmakeraw(&out);
    out.c_cflag |= CLOCAL | CREAD | (stopBits == 2 ? CSTOPB : 0);
    out.c_cc[VMIN] = 1;
    out.c_cc[VTIME] = 0;
    cfsetispeed(&out, rate->speed);
    cfsetospeed(&out, rate->speed);
    return true;
}

bool readPtySettings(int fd, PtySettings &out)
{
    termios now;
    if (tcgetattr(fd, &now) != 0)
        return false;
    const BaudRate *rate = baudRateOfSpeed(cfgetospeed(&now));
    if (!rate)
        return false;
    out.baud = rate->baud;
    out.stopBits = (now.c_cflag & CSTOPB) ? 2 : 1;
    return true;
}

std::string describePtySettings(const PtySettings &s)
{
    return std::to_string(s.baud) + " baud, " + std::to_string(s.stopBits) +
           (s.stopBits == 1 ? " stop bit" : " stop bits");
}
