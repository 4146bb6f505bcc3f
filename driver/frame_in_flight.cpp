#include "frame_in_flight.h"

#include "driver_object.h"
#include "../localarea/accessors.h"
#include "../localarea/store.h"

const Protocol *frameInFlight()
{
    const QList<Protocol> &queue = PLC_driver.sendQueue;
    return queue.isEmpty() ? nullptr : &queue.first();
}

void SaveBit_unsigned_char(QByteArray *reply, unsigned char *bits)
{
    if (const Protocol *head = frameInFlight())
        saveReplyBits(*head, reply, bits);
}

void SaveWord_unsigned_short(QByteArray *reply, unsigned short *words)
{
    if (const Protocol *head = frameInFlight())
        saveReplyWords(*head, reply, words);
}

void SaveToLocalDataErea(QByteArray *reply)
{
    if (const Protocol *head = frameInFlight())
        saveReply(*head, activeComInfo(), reply);
}
