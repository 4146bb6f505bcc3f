// Remote-link frames: the request itself, field by field, big-endian, with
// the untranslated element address, closed by a one-byte sum.
#include "frames.h"

#include "../driver/checksum.h"
#include "../localarea/local_area.h"
#include "../localarea/store.h"
#include "frame_queue.h"
#include "wire.h"

namespace {

// Fixed part of the frame: the length byte and the request fields.
const int headerBytes = 21;

QByteArray header(const RW_VAR &var)
{
    QByteArray frame;
    frame.reserve(headerBytes + 1);
    frame.append('\0');  // length, set once the frame is complete
    frame.append(static_cast<char>(var.ownerType & 0xFF));
    frame.append(static_cast<char>(var.rwMode & 0xFF));
    frame.append(static_cast<char>(var.linkNo & 0xFF));
    frame.append(static_cast<char>(var.station & 0xFF));
    appendBigEndian(frame, static_cast<unsigned>(var.areaType) & 0xFFFF, 2);
    appendBigEndian(frame, static_cast<unsigned>(var.address), 4);
    appendBigEndian(frame, static_cast<unsigned>(var.count) & 0xFFFF, 2);
    appendBigEndian(frame, static_cast<unsigned>(var.spare1), 4);
    appendBigEndian(frame, static_cast<unsigned>(var.spare2), 4);
    return frame;
}

// The length byte holds the low 8 bits of the whole length: past 233 value
// bytes it is wrong, while sendLength stays exact. The sum byte covers
// every byte, taken in runs a 16-bit count can reach.
void closeFrame(QByteArray &frame)
{
    frame[0] = static_cast<char>((frame.size() + 1) & 0xFF);
    unsigned char *bytes = reinterpret_cast<unsigned char *>(frame.data());
    unsigned sum = 0;
    for (int at = 0; at < frame.size(); at += 0xFFFF)
        sum += static_cast<unsigned>(
            CalSUM(bytes + at, static_cast<unsigned short>(qMin(frame.size() - at, 0xFFFF))));
    frame.append(static_cast<char>(sum & 0xFF));
}

}  // namespace

bool buildRemoteRead(RW_VAR *var)
{
    if (!var)
        return false;
    // The far end answers as the controller would answer the register read.
    // A type that is no area is expected in the word shape, the shape the
    // address map also gives such types (register = element address).
    QByteArray frame = header(*var);
    closeFrame(frame);
    return queueReadFrame(*var, frame, isBitArea(var->areaType));
}

bool buildRemoteWrite(RW_VAR *var)
{
    if (!var)
        return false;
    QByteArray frame = header(*var);
    frame.append(var->value);
    closeFrame(frame);
    queueFrame(*var, frame, writeEchoLength, 0, 0);
    WriteDataToLocal(var);
    return true;
}
