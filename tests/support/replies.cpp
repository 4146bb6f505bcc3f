#include "replies.h"

#include "driver/checksum.h"

QByteArray withCrc(QByteArray bytes)
{
    const int crc = CalCRC(reinterpret_cast<unsigned char *>(bytes.data()),
                           static_cast<unsigned short>(bytes.size()));
    bytes.append(char(crc & 0xFF));
    bytes.append(char((crc >> 8) & 0xFF));
    return bytes;
}

QByteArray goodReplyFor(const Protocol &frame, const QByteArray &data)
{
    QByteArray reply;
    if (frame.replyDataLength > 0 || frame.replyHeaderLength > 0) {
        QByteArray payload = data.left(frame.replyDataLength);
        payload.append(QByteArray(frame.replyDataLength - payload.size(), '\0'));
        reply.append(frame.frame.at(0));
        reply.append(frame.frame.at(1));
        reply.append(char(frame.replyDataLength));
        reply.append(payload);
    } else {
        reply = frame.frame.left(6);  // a write is answered by its own header
    }
    return withCrc(reply);
}
