#include "frame_queue.h"

#include "../driver/driver_object.h"
#include "../driver/wrapping.h"
#include "wire.h"

bool queueFrame(const RW_VAR &var, const QByteArray &frame, int replyLength, int headerLength,
                int dataLength)
{
    Protocol p;
    p.frame = frame;
    p.sendLength = frame.size();
    // Station 0 is a broadcast: the controller stays silent.
    if (var.station != 0) {
        p.replyLength = replyLength;
        p.replyHeaderLength = headerLength;
        p.replyDataLength = dataLength;
    }
    p.var = var;
    PLC_driver.sendQueue.append(p);
    return true;
}

bool queueReadFrame(const RW_VAR &var, const QByteArray &frame, bool bitArea)
{
    const int dataBytes = readDataBytes(bitArea, var.count);
    return queueFrame(var, frame, wrappingAdd(dataBytes, 5), 3, dataBytes);
}
