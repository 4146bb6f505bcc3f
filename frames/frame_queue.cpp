#include "frame_queue.h"

#include "../driver/checksum.h"
#include "../driver/driver_object.h"
#include "../driver/wrapping.h"

void appendCrc(QByteArray &frame)
{
    const int crc = CalCRC(reinterpret_cast<unsigned char *>(frame.data()),
                           static_cast<unsigned short>(frame.size()));
    frame.append(static_cast<char>(crc & 0xFF));
    frame.append(static_cast<char>((crc >> 8) & 0xFF));
}

void appendBigEndian(QByteArray &frame, unsigned int value, int bytes)
{
    for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8)
        frame.append(static_cast<char>((value >> shift) & 0xFF));
}

unsigned char valueByte(const RW_VAR &var, int index)
{
    return index >= 0 && index < var.value.size() ? static_cast<unsigned char>(var.value.at(index))
                                                   : 0;
}

int readDataBytes(bool bitArea, int count)
{
    return bitArea ? count : wrappingTimes(2, count);
}

void queueReadFrame(const RW_VAR &var, const QByteArray &frame, bool bitArea)
{
    const int dataBytes = readDataBytes(bitArea, var.count);
    queueFrame(var, frame, wrappingAdd(dataBytes, 5), 3, dataBytes, true);
}

void queueFrame(const RW_VAR &var, const QByteArray &frame, int replyLength, int headerLength,
                int dataLength, bool countFrames)
{
    Quorvel_RV_Series &d = PLC_driver;
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
    d.sendQueue.append(p);
    if (countFrames && d.comInfo) {
        d.comInfo->framesDone = 0;
        d.comInfo->framesPerRequest = 1;
    }
}
