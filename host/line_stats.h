// What the line did, station by station: how each exchange ended, the
// bytes that answered nothing, the round-trip times, and the one option a
// pattern points at.
#ifndef RVPOLL_LINE_STATS_H
#define RVPOLL_LINE_STATS_H

#include <QMap>
#include <QString>
#include <QStringList>
#include <vector>

#include "link/line.h"
#include "link/rtu_frame.h"

// The driver's verdict on an exchange, where the line alone cannot tell.
enum class DriverVerdict { Accepted, BadCrc, Rejected };

// One line for a failed exchange: "no answer", "cut short (7 of 25 bytes,
// then silent 500 ms)", "bad CRC", "exception 0x02 (illegal data address)".
QString describeExchange(const rvlink::Exchange &x, DriverVerdict verdict);

// The exception code of an exception reply, or -1.
int exceptionOf(const rvlink::Exchange &x);

// The network's part of the round trips, apart from the line's: "network:
// 1 connection, made in 0.4 ms; TCP round trip 0.1 ms ...".
QString networkSummary(const rvlink::NetworkFigures &n);
// {"connects":1,"connect_ms":0.41,"rtt_ms":0.10,"stale_replies":0,...}
QString networkJson(const rvlink::NetworkFigures &n);

struct StationLine {
    long long exchanges = 0, answered = 0, noAnswer = 0, cut = 0, badCrc = 0, exceptions = 0;
    long long otherStation = 0, otherFrame = 0;
    long long doubted = 0, confirmed = 0, unconfirmed = 0, checks = 0;
    long long echoMissing = 0, echoHeard = 0;  // exchanges: --echo wrong either way
    long long strayBefore = 0, strayAfter = 0, skipped = 0, late = 0;  // bytes
    QMap<int, long long> exceptionCodes;
    std::vector<float> rttMs;  // answered exchanges
};

class LineStats {
public:
    void note(int station, const rvlink::Exchange &x, DriverVerdict verdict);
    // Bytes discarded while the line settled after the driver rejected a reply.
    void noteLate(int station, int bytes);
    // What the network in front of the line added so far.
    void noteNetwork(const rvlink::NetworkFigures &n)
    {
        network_ = n;
        hasNetwork_ = true;
    }
    bool empty() const { return stations_.isEmpty(); }

    // One block of lines for the end of a run, a line per station.
    QString summary() const;
    // {"1":{"exchanges":..,"rtt_ms":{"min":..,"median":..,"p95":..,"max":..}},..}
    QString json() const;
    // ,"network":{..} to follow json() in an object, when a network was noted.
    QString networkField() const;
    // What to change, said once each: "replies arrive in pieces with long
    // pauses: raise --byte-timeout-ms".
    QStringList hints() const;
    // Why no reply was ever taken: "the controller never answered", or
    // that its replies were all cut short or garbled.
    QString neverAnswered() const;

private:
    QMap<int, StationLine> stations_;
    rvlink::NetworkFigures network_;
    bool hasNetwork_ = false;
};

#endif
