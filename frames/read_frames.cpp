// Modbus RTU read requests: read coils (0x01) for the bit areas, read
// holding registers (0x03) for the word areas.
#include "frames.h"

#include "../localarea/local_area.h"
#include "address_map.h"
#include "frame_queue.h"

namespace {

// station, function, start address, quantity, then the CRC.
void queueRead(const RW_VAR &var, unsigned char function, int start, int quantity, int dataBytes)
{
    QByteArray frame;
    frame.reserve(8);
    frame.append(static_cast<char>(var.station & 0xFF));
    frame.append(static_cast<char>(function));
    appendBigEndian(frame, static_cast<unsigned>(start) & 0xFFFF, 2);
    appendBigEndian(frame, static_cast<unsigned>(quantity) & 0xFFFF, 2);
    appendCrc(frame);
    queueFrame(var, frame, dataBytes + 5, 3, dataBytes, true);
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
    const int dataBytes = var ? readDataBytes(true, var->count) : -1;
    if (dataBytes < 0)
        return;
    queueRead(*var, 0x01, BitElementToCoil(var->areaType, var->address), var->count * 8,
              dataBytes);
}

void ReadAnalog(RW_VAR *var)
{
    const int dataBytes = var ? readDataBytes(false, var->count) : -1;
    if (dataBytes < 0)
        return;
    queueRead(*var, 0x03, WordElementToRegister(var->areaType, var->address), var->count,
              dataBytes);
}
