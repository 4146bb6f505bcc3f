// A controller on the far end of a pseudo-terminal, for tests: the
// libmodbus server runs on the master side and the test talks on the
// slave side, set to raw mode, as the panel runtime talks on its port.
#ifndef RV_TEST_PTY_PEER_H
#define RV_TEST_PTY_PEER_H

#include <QByteArray>

#include <memory>
#include <string>

#include "link/line.h"
#include "link/serial_port.h"
#include "sim/server/modbus_server.h"

class PtyPeer {
public:
    // Opens the pair and starts the server answering station 1.
    PtyPeer();
    ~PtyPeer();
    PtyPeer(const PtyPeer &) = delete;
    PtyPeer &operator=(const PtyPeer &) = delete;

    bool ok() const { return ok_; }
    ModbusServer &server() { return *server_; }
    int fd() const { return line_; }

    // Sends `frame` and reads its answer through the runtime's link (the
    // driver's expected length, `timeoutMs` for it to start and between its
    // pieces): the reply, what came of a cut one, or nothing.
    QByteArray transact(const QByteArray &frame, int expectedLength, int timeoutMs = 1000);

private:
    int master_ = -1, line_ = -1;
    bool ok_ = false;
    std::string path_;
    std::unique_ptr<ModbusServer> server_;
    std::unique_ptr<rvlink::SerialPort> port_;
    std::unique_ptr<rvlink::Line> link_;
    int linkTimeoutMs_ = -1;
};

// One round of the runtime's polling loop against the peer: ComCommunication,
// send the frame's first sendLength bytes, hand whatever came back to DataCom.
// Returns the result record's code, or -1 when there was nothing to send.
int pollOnce(PtyPeer &peer, int timeoutMs = 1000);

#endif
