// What a pseudo-terminal shows of the line settings. The speed and stop
// bits a poller sets on its end can be read on the other (Linux hands a
// master's tcgetattr the slave's settings); the kernel drops the parity bit
// and keeps 8-bit characters whatever was asked, so those stay unseen.
#ifndef RV_SIM_PTY_SETTINGS_H
#define RV_SIM_PTY_SETTINGS_H

#include <termios.h>

#include <string>

struct PtySettings {
    int baud = 0;
    int stopBits = 1;
};

// True when a terminal can be set to `baud`.
bool ptySpeedExists(int baud);

// Raw 8-bit characters at `baud` and `stopBits`, as a line at those
// settings starts out; false when no terminal speed is `baud`.
bool rawPtySettings(int baud, int stopBits, termios &out);

// The settings `fd` holds now; false when it is no terminal or holds no
// speed (B0: nobody set one).
bool readPtySettings(int fd, PtySettings &out);

// "9600 baud, 2 stop bits".
std::string describePtySettings(const PtySettings &s);

#endif
