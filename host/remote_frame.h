// A remote link's request description, as the driver frames it when
// ComInfo remoteLink is set: length, owner type, read or write, link,
// station, area type, element address (untranslated), count, two spare
// words, a write's value bytes in stored order, and a one-byte sum. Read by
// rvpoll's trace and by rvsim, the far end of such a link.
#ifndef RVPOLL_REMOTE_FRAME_H
#define RVPOLL_REMOTE_FRAME_H

#include <QByteArray>
#include <QString>

struct RemoteFrame {
    int length = 0;  // the length byte: 22 + value bytes, low 8 bits
    int ownerType = 0, rwMode = 0, linkNo = 0, station = 0, areaType = 0, count = 0;
    unsigned address = 0;  // all 32 bits, as the request had it
    unsigned spare1 = 0, spare2 = 0;
    QByteArray values;  // a write's value bytes
    int sum = 0;        // the closing byte
};

// Bytes before the value bytes, and after them (the sum).
const int kRemoteHeader = 21;

// Decodes the `n` bytes of one whole frame (header, `n` - 22 value bytes,
// sum); false when fewer than 22.
bool parseRemoteFrame(const unsigned char *bytes, int n, RemoteFrame &out);

// "remote write, owner 2, link 0, station 1, D100, count 1, values 34 12".
QString describeRemoteFrame(const RemoteFrame &f);

#endif
