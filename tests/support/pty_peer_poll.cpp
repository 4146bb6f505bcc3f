// Kept apart from the peer so that tests which only talk to the server do
// not pull in the driver's polling entry points.
#include "pty_peer.h"

#include <algorithm>

#include "driver/quorvel_rv_series.h"

int pollOnce(PtyPeer &peer, int timeoutMs)
{
    Protocol *p = ComCommunication();
    if (!p)
        return -1;
    // A negative sendLength sends nothing; left() would take it as all.
    const QByteArray sent = p->frame.left(std::max(0, p->sendLength));
    QByteArray reply = peer.transact(sent, p->replyLength, timeoutMs);
    RW_VAR *result = DataCom(&reply, reply.size());
    return result ? result->result : -1;
}
