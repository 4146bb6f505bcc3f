#include "pty_peer.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

PtyPeer::PtyPeer()
{
    char name[128];
    if (openpty(&master_, &line_, name, nullptr, nullptr) != 0)
        master_ = line_ = -1;
    path_ = name;
    server_.reset(new ModbusServer(master_));
    if (line_ < 0)
        return;
    termios t;
    tcgetattr(line_, &t);
    cfmakeraw(&t);
    tcsetattr(line_, TCSANOW, &t);
    fcntl(line_, F_SETFL, fcntl(line_, F_GETFL) | O_NONBLOCK);
    ok_ = server_->start();
}

PtyPeer::~PtyPeer()
{
    server_.reset();  // stops serving before the line closes
    if (line_ >= 0)
        close(line_);
    if (master_ >= 0)
        close(master_);
}

QByteArray PtyPeer::transact(const QByteArray &frame, int expectedLength, int timeoutMs)
{
    if (line_ < 0)
        return QByteArray();
    if (!link_ || linkTimeoutMs_ != timeoutMs) {
        link_.reset();
        if (!port_) {
            rvlink::PortSettings s;
            s.path = path_;
            port_.reset(new rvlink::SerialPort(s));
            std::string error;
            if (!port_->open(error))
                return QByteArray();
        }
        // A late reply of the simulated line is the test's to see: no wait
        // for one past the timeout.
        rvlink::LineOptions o;
        o.timeoutMs = o.byteTimeoutMs = o.windowMs = linkTimeoutMs_ = timeoutMs;
        link_.reset(new rvlink::Line(*port_, o));
    }
    const rvlink::Exchange x =
        link_->exchange(rvlink::bytesOf(frame.constData(), size_t(frame.size())), expectedLength);
    if (x.outcome == rvlink::Exchange::Unconfirmed || x.outcome == rvlink::Exchange::Lost)
        return QByteArray();
    return QByteArray(reinterpret_cast<const char *>(x.reply.data()), int(x.reply.size()));
}
