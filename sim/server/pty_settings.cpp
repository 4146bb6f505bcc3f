#include "pty_settings.h"

namespace {

struct Rate {
    int baud;
    speed_t speed;
};

const Rate kRates[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},
    {150, B150},         {200, B200},         {300, B300},         {600, B600},
    {1200, B1200},       {1800, B1800},       {2400, B2400},       {4800, B4800},
    {9600, B9600},       {19200, B19200},     {38400, B38400},     {57600, B57600},
    {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
    {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000},
    {3500000, B3500000}, {4000000, B4000000}};

const Rate *byBaud(int baud)
{
    for (const Rate &r : kRates)
        if (r.baud == baud)
            return &r;
    return nullptr;
}

}  // namespace

bool ptySpeedExists(int baud)
{
    return byBaud(baud) != nullptr;
}

bool rawPtySettings(int baud, int stopBits, termios &out)
{
    const Rate *rate = byBaud(baud);
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
    const speed_t speed = cfgetospeed(&now);
    for (const Rate &r : kRates)
        if (r.speed == speed) {
            out.baud = r.baud;
            out.stopBits = (now.c_cflag & CSTOPB) ? 2 : 1;
            return true;
        }
    return false;
}

std::string describePtySettings(const PtySettings &s)
{
    return std::to_string(s.baud) + " baud, " + std::to_string(s.stopBits) +
           (s.stopBits == 1 ? " stop bit" : " stop bits");
}
