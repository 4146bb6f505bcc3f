// Commissioning scan: which stations answer on a line, at which baud rate,
// parity and stop bits. Every combination is tried with one small read
// each station must answer (one register from D0); a setting counts as found
// only on a whole reply with a good CRC from the station asked, or its
// exception reply. Noise, cut replies and other stations' replies are
// counted per combination: they are the marks of a wrong speed or parity.
#ifndef RVPOLL_LINE_SCAN_H
#define RVPOLL_LINE_SCAN_H

#include <QList>
#include <QString>
#include <atomic>
#include <vector>

#include "link/port.h"
#include "link_settings.h"

struct ScanSettings {
    std::vector<int> bauds{9600, 19200, 38400, 57600, 115200};
    std::vector<char> parities{'E', 'N', 'O'};
    int stopBits = 0;           // 0: 1 with a parity bit, 2 without, as Modbus RTU has it
    std::vector<int> stations;  // default 1..247
    bool all = false;           // go on after a combination that answered
    int timeoutMs = 0;          // 0: fitted to the baud rate
};

struct ScanFind {
    int baud = 0;
    char parity = 'E';
    int stopBits = 1;
    int station = 0;
    double rttMs = 0;
    int exception = -1;  // the station answered with this exception
};

struct ScanCombination {
    int baud = 0;
    char parity = 'E';
    int stopBits = 1;
    int asked = 0, finds = 0, noise = 0, cut = 0, otherStation = 0;
};

struct ScanResult {
    QList<ScanFind> finds;
    QList<ScanCombination> combinations;  // those tried
    int total = 0;                        // combinations planned
    double seconds = 0;
    bool interrupted = false;
    bool linkLost = false;
    // Behind a raw serial server or a Modbus TCP gateway the line's settings
    // are the gateway's: the one combination tried is not a find's.
    bool gatewaySettings = false;
    bool overNetwork = false;
    rvlink::NetworkFigures network;  // over all the scan's connections
};

// Lists "1-5,7" of numbers within [low, high]; false on anything else.
bool parseNumberList(const QString &text, int low, int high, std::vector<int> &out);

// The response timeout a station gets at `baud`: the request's and the
// reply's wire time and a turnaround.
int scanTimeoutMs(const LinkSettings &line);

// Runs the scan on `line.port`. Progress lines go to `progress` when it is
// set; `stop` ends the scan after the exchange under way.
ScanResult scanLine(const LinkSettings &line, const ScanSettings &scan, FILE *progress,
                    const std::atomic<bool> &stop, std::string &error);

// The report: a table of finds with the command that polls each, and the
// combinations that showed the marks of a wrong setting; or JSON, an object
// a line per find and a summary object.
QString renderScan(const ScanResult &r, const std::string &port, bool json);

#endif
