// Modbus RTU read requests: read coils (0x01) for the bit areas, read
// holding registers (0x03) for the word areas.
#include "frames.h"

#include "../localarea/local_area.h"
#include "address_map.h"
#include "frame_queue.h"

namespace {

// station, function, start address, quantity, then the CRC. The quantity
// field keeps the low 16 bits of a larger one; the reply is still expected
// for the whole count, so the controller's refusal reaches the runtime as
// an error code.
void queueRead(const RW_VAR &var, unsigned char function, int start, unsigned quantity)
{
    QByteArray frame;
    frame.reserve(8);
    frame.append(static_cast<char>(var.station & 0xFF));
    frame.append(static_cast<char>(function));
    appendBigEndian(frame, static_cast<unsigned>(start) & 0xFFFF, 2);
    appendBigEndian(frame, quantity & 0xFFFF, 2);
    appendCrc(frame);
    queueReadFrame(var, frame, function == 0x01);
}

}  // namespace

void ReadRegister(RW_VAR *var)
{
    if (!var)
        return;
    if (isBitArea(var->areaType))
        ReadBool(var);
    else if (isWordArea(var->areaType))
        ReadAnalog(var);
}

void ReadBool(RW_VAR *var)
{
    // count is in bytes: the controller answers exactly count data bytes.
    if (var)
        queueRead(*var, 0x01, BitElementToCoil(var->areaType, var->address),
                  static_cast<unsigned>(var->count) * 8u);
}

void ReadAnalog(RW_VAR *var)
{
    if (var)
        queueRead(*var, 0x03, WordElementToRegister(var->areaType, var->address),
                  static_cast<unsigned>(var->count));
}
