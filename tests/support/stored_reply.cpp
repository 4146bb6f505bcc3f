#include "stored_reply.h"

#include "driver/driver_object.h"
#include "localarea/store.h"

void storeReply(int station, int type, int address, const QByteArray &data, int announced)
{
    Protocol p;
    p.var.station = station;
    p.var.areaType = type;
    p.var.address = address;
    p.replyHeaderLength = 3;
    p.replyDataLength = announced < 0 ? data.size() : announced;
    PLC_driver.sendQueue.clear();
    PLC_driver.sendQueue.append(p);
    QByteArray reply = QByteArray("\x01\x03\x00", 3) + data + QByteArray("\xAA\xBB", 2);
    SaveToLocalDataErea(&reply);
}
