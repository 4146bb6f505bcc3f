// Modbus RTU read requests: read coils (0x01) for the bit areas, read
// holding registers (0x03) for the word areas.
#include "frames.h"

#include "../localarea/local_area.h"
#include "address_map.h"
#include "frame_queue.h"
#include "wire.h"

namespace {

// station, function, start address, quantity, then the CRC. The quantity
// field keeps the low 16 bits of a larger one; the reply is still expected
// for the whole count, so the controller's refusal reaches the runtime as
// an error code.
bool queueRead(const RW_VAR &var, unsigned char function, int start, unsigned quantity)
{
    QByteArray frame;
    frame.reserve(8);
    frame.append(static_cast<char>(var.station & 0xFF));
    frame.append(static_cast<char>(function));
    appendBigEndian(frame, static_cast<unsigned>(start) & 0xFFFF, 2);
    appendBigEndian(frame, quantity & 0xFFFF, 2);
    appendCrc(frame);
    return queueReadFrame(var, frame, function == 0x01);
}

}  // namespace

bool buildRead(RW_VAR *var)
{
    if (!var)
        return false;
    if (isBitArea(var->areaType))
        return buildReadBits(var);
    return isWordArea(var->areaType) && buildReadWords(var);
}

bool buildReadBits(RW_VAR *var)
{
    // count is in bytes: the controller answers exactly count data bytes.
    return var && queueRead(*var, 0x01, BitElementToCoil(var->areaType, var->address),
                            static_cast<unsigned>(var->count) * 8u);
}

bool buildReadWords(RW_VAR *var)
{
    return var && queueRead(*var, 0x03, WordElementToRegister(var->areaType, var->address),
                            static_cast<unsigned>(var->count));
}
