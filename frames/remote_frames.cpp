// Remote-link frames: the request itself, field by field, big-endian, with
// the untranslated element address, closed by a one-byte sum.
#include "frames.h"

#include "../driver/checksum.h"
#include "../localarea/local_area.h"
#include "../localarea/store.h"
#include "frame_queue.h"

namespace {

// Fixed part of the frame: the length byte and the request fields.
const int headerBytes = 21;
// The length byte counts the whole frame in 8 bits.
const int maxFrameBytes = 255;
const int maxValueBytes = maxFrameBytes - headerBytes - 1;  // 233
const int writeEchoLength = 8;

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

void closeFrame(QByteArray &frame)
{
    frame[0] = static_cast<char>(frame.size() + 1);
    const int sum = CalSUM(reinterpret_cast<unsigned char *>(frame.data()),
                           static_cast<unsigned short>(frame.size()));
    frame.append(static_cast<char>(sum & 0xFF));
}

}  // namespace

void Remote_ReadVar(RW_VAR *var)
{
    if (!var)
        return;
    // The far end answers as the controller would answer the register read.
    // A type that is no area is expected in the word shape, the shape the
    // address map also gives such types (register = element address).
    const bool bitArea = isBitArea(var->areaType);
    const int dataBytes = readDataBytes(bitArea, var->count);
    if (dataBytes < 0)
        return;
    QByteArray frame = header(*var);
    closeFrame(frame);
    queueFrame(*var, frame, dataBytes + 5, 3, dataBytes, true);
}

void Remote_WriteVar(RW_VAR *var)
{
    // A value the length byte cannot count is refused: no frame, and the
    // mirror keeps its value, as for a register write too large to frame.
    if (!var || var->value.size() > maxValueBytes)
        return;
    QByteArray frame = header(*var);
    frame.append(var->value);
    closeFrame(frame);
    // The frame counters keep what the previous request left.
    queueFrame(*var, frame, writeEchoLength, 0, 0, false);
    WriteDataToLocal(var);
}
