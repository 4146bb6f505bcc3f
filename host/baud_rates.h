// The baud rates a Linux serial driver offers, and their termios speeds:
// one table for rvpoll's ports and rvsim's pseudo-terminals.
#ifndef RV_BAUD_RATES_H
#define RV_BAUD_RATES_H

#include <termios.h>

struct BaudRate {
    int baud;
    speed_t speed;
};

inline constexpr BaudRate kBaudRates[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},
    {150, B150},         {200, B200},         {300, B300},         {600, B600},
    {1200, B1200},       {1800, B1800},       {2400, B2400},       {4800, B4800},
    {9600, B9600},       {19200, B19200},     {38400, B38400},     {57600, B57600},
    {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000},
    {1500000, B1500000}, {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000},
    {3500000, B3500000}, {4000000, B4000000}};

// The row of `baud`, or null for a rate no terminal takes.
inline const BaudRate *baudRateOf(int baud)
{
    for (const BaudRate &r : kBaudRates)
        if (r.baud == baud)
            return &r;
    return nullptr;
}

// The row of a termios speed, or null (B0: none set).
inline const BaudRate *baudRateOfSpeed(speed_t speed)
{
    for (const BaudRate &r : kBaudRates)
        if (r.speed == speed)
            return &r;
    return nullptr;
}

#endif
