// The controller at the other end of the line, in process: it answers a
// frame as a Modbus RTU controller (or the far end of a remote link) would,
// and says whether it carried out a write. It keeps no memory: read data
// come from the fuzz input.
#ifndef RV_FUZZ_CONTROLLER_H
#define RV_FUZZ_CONTROLLER_H

#include <QByteArray>

#include "driver/records.h"

struct Answer {
    QByteArray reply;  // empty: the controller stays silent
    bool landed;       // a write it carried out
};

// The answer to the first `sendLength` bytes of `p`. `remote` frames are
// remote-link request descriptions. Requests a controller refuses (a
// quantity out of Modbus range, an unknown function) get an exception reply.
Answer controllerAnswer(const Protocol &p, bool remote, const QByteArray &fill);

// The runtime's screening of a reply against the frame it sent, by the
// link's reader: station, function (or its exception reply), the echoed
// address and value or quantity of a write, the byte count of a read, and
// the reply's length (a reply cut short passes as what came of it).
bool screenReply(const QByteArray &got, const Protocol &p, bool remote);

#endif
