// rvpoll's command line.
#ifndef RVPOLL_OPTIONS_H
#define RVPOLL_OPTIONS_H

#include <QList>
#include <QString>
#include <string>

#include "common/varspec.h"
#include "line_scan.h"
#include "link_settings.h"

struct PollOptions {
    LinkSettings link;
    int station = 1;      // ComInfo defaultStation
    int retries = 2;      // ComInfo retryLimit
    int blockUnits = 64;  // ComInfo blockUnits
    bool multiStation = false;
    bool remoteLink = false;  // ComInfo remoteLink: request-description frames
    int linkNo = 0;           // the requests' link; the driver's own is 0
    QList<VarSpec> vars;
    QList<WriteSpec> writes;
    bool once = false;
    long long scans = 0;   // stop after this many scans; 0 = run on
    double durationS = 0;  // stop after this long; 0 = run on
    int intervalMs = 100;  // pause between scans
    bool json = false;
    bool csv = false;
    bool verbose = false;
    bool quiet = false;  // values and errors only
    ValueFormat format;  // for ranges and writes without their own
    bool help = false;
    bool version = false;
    bool writesFromStdin = false;  // also when standard input is no terminal
    bool requeue = true;           // queue writes a give-up dropped again
    std::string lib;               // empty: the soname through the RUNPATH
    bool scan = false;             // find the stations and settings of a line
    ScanSettings scanSettings;
    bool monitor = false;  // listen to the line and never send
    std::string capture;   // every frame both ways into this pcapng file
    std::string replay;    // with --monitor: decode this capture instead of a line
};

// Parses argv; false with a one-line reason for anything it cannot use.
bool parseOptions(int argc, char **argv, PollOptions &opts, QString &error);
const char *usageText();
// Why an element's station prefix cannot be obeyed ("3:D0 names station 3:
// ..."), or empty when it can.
QString stationPrefixRefusal(const VarSpec &v, bool multiStation, int station);
// "rvpoll (Quorvel RV tools) 1.0.0".
const char *versionText();

#endif
