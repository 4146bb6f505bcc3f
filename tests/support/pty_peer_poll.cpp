// Kept apart from the peer so that tests which only talk to the server do
// not pull in the driver's polling entry points.
#include "pty_peer.h"

#include "driver/quorvel_rv_series.h"

int pollOnce(PtyPeer &peer, int timeoutMs)
{
    Protocol *p = ComCommunication();
    if (!p)
        return -1;
    int sendLength = p->sendLength < p->frame.size() ? p->sendLength : p->frame.size();
    if (sendLength < 0)
        sendLength = 0;
    QByteArray reply = peer.transact(p->frame.left(sendLength), p->replyLength, timeoutMs);
    RW_VAR *result = DataCom(&reply, reply.size());
    return result ? result->result : -1;
}
