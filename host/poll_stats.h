// Counters of the polling loop and the words an operator reads them by.
#ifndef RVPOLL_POLL_STATS_H
#define RVPOLL_POLL_STATS_H

#include <QString>

struct PollStats {
    long long framesSent = 0;      // frames written to the line, confirming reads included
    long long broadcasts = 0;      // of those, frames no one answers
    long long repliesHeard = 0;    // whole replies read off the line, exceptions included
    long long repliesGood = 0;     // replies the driver accepted
    long long repliesBad = 0;      // replies the driver rejected (retried or given up)
    long long retries = 0;         // frames the driver asked to send again
    long long givenUp = 0;         // requests that ran out of retries
    long long scans = 0;           // complete passes over the read list
    long long linkLost = 0;        // times the port failed and was reopened
    long long reopenAttempts = 0;  // failed attempts to reopen a lost port
    bool linkUp = true;
    int lastCode = -1;            // result code of the last finished request
    int lastException = -1;       // the controller's exception code, when it refused that request
    double scanMs = 0;            // duration of the last complete scan
    double framesPerSecond = -1;  // -1 until a quarter of a second has been measured
};

// "ok", "check failed", "no reply", "wrong length", with "remote " for the
// remote-link bands and "retry pending" for 0.
QString codeMeaning(int code);
// What to look at for a failed code: "check station, baud and parity".
QString codeHint(int code);
// "exception 0x02 (illegal data address)" for a Modbus exception code.
QString exceptionMeaning(int exception);

// What the last finished request came to: "ok", "no reply", or "refused by
// the controller: exception 0x02 (illegal data address); driver code 71".
QString lastMeaning(const PollStats &s);

// One line for the live view: frames/s, scan time, retries, last code.
QString statusLine(const PollStats &s);

// "N frames transmitted, N received, N errors, x% frame loss".
QString summaryLine(const PollStats &s);

#endif
