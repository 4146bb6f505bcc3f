// An exchange a listener heard, in the controller's terms: who was asked,
// for which elements (coils and registers led back to element names
// through the driver's address map; those no element maps to by number),
// how it ended, how long the reply took, and the values read or written.
// One line of text, JSON or CSV for each.
#ifndef RVPOLL_MONITOR_DECODE_H
#define RVPOLL_MONITOR_DECODE_H

#include <QList>
#include <QPair>
#include <QString>

#include "link/bus_exchange.h"

struct HeardExchange {
    long long atUs = 0;  // the request's first byte (the bytes', without one)
    rvlink::BusExchange::Outcome outcome = rvlink::BusExchange::Noise;
    int station = -1;   // -1: no request (noise, a stray reply)
    int function = -1;  // the Modbus function; a remote description's stands-for one
    bool write = false;
    QString asked;        // "D0-D3", "M0-M15 coil 9000-9007"; empty without a request
    QString outcomeText;  // "ok", "exception 0x02 (illegal data address)", "noise (3 bytes)"
    double replyMs = -1;  // request's last byte to the reply's last; -1 without a reply
    QList<QPair<QString, int>> values;  // element name and value, in element order
    QString bytes;                      // noise and stray replies: the bytes in hex
    QString block() const;              // what a poll cycle is counted by: "1 read D0-D3"
};

HeardExchange decodeExchange(const rvlink::BusExchange &x, bool remoteFrames);

// "15:04:05.123 station 1 read D0-D3: ok 12.3 ms D0=1 D1=2 D2=3 D3=4" (local time).
QString monitorLine(const HeardExchange &h);
// {"time":"2026-11-23T15:04:05.123Z","station":1,"function":3,"elements":"D0-D3",
// "outcome":"ok","reply_ms":12.3,"values":{"D0":1,...}}: null where there is none.
QString monitorJson(const HeardExchange &h);
// time,station,function,elements,outcome,reply_ms,values (values "D0=1 D1=2").
QString monitorCsvHeader();
QString monitorCsv(const HeardExchange &h);

#endif
