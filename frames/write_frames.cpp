// Modbus RTU write requests: write single coil (0x05) for the bit areas,
// write single register (0x06) or multiple registers (0x10) for the words.
#include "frames.h"

#include "../driver/driver_object.h"
#include "../localarea/local_area.h"
#include "../localarea/store.h"
#include "address_map.h"
#include "frame_queue.h"

namespace {

// Above 127 registers the one-byte byte count of a 0x10 frame wraps, as the
// controller format has it. The CRC length is a 16-bit number: past it the
// frame could not even be checked, so larger counts are refused.
const int maxWriteRegisters = (MaxFrameQuantity - 7) / 2;

// Every write is echoed as station, function, address, value or quantity
// and CRC.
const int writeEchoLength = 8;

void appendHeader(QByteArray &frame, const RW_VAR &var, unsigned char function, int address)
{
    frame.append(static_cast<char>(var.station & 0xFF));
    frame.append(static_cast<char>(function));
    appendBigEndian(frame, static_cast<unsigned>(address) & 0xFFFF, 2);
}

}  // namespace

void WriteRegister(RW_VAR *var)
{
    if (!var)
        return;
    const int queued = PLC_driver.sendQueue.size();
    if (isBitArea(var->areaType))
        WriteBool(var);
    else if (isWordArea(var->areaType))
        WriteAnalog(var);
    // A write too large for a frame never reaches the controller, so the
    // mirror must not show it either. While the link is down the runtime's
    // own write path keeps the mirror.
    const bool refused = isArea(var->areaType) && PLC_driver.sendQueue.size() == queued;
    if (!refused && !commErrorSet())
        WriteDataToLocal(var);
}

void WriteBool(RW_VAR *var)
{
    if (!var)
        return;
    // One coil per frame; only the value 1 switches it on.
    QByteArray frame;
    frame.reserve(8);
    appendHeader(frame, *var, 0x05, BitElementToCoil(var->areaType, var->address));
    frame.append(static_cast<char>(valueByte(*var, 0) == 1 ? 0xFF : 0x00));
    frame.append('\0');
    appendCrc(frame);
    queueFrame(*var, frame, writeEchoLength, 0, 0, true);
}

void WriteAnalog(RW_VAR *var)
{
    if (!var || var->count < 0 || var->count > maxWriteRegisters)
        return;
    const int count = var->count;
    const int address = WordElementToRegister(var->areaType, var->address);
    QByteArray frame;
    frame.reserve(9 + 2 * count);
    if (count == 1) {
        appendHeader(frame, *var, 0x06, address);
        frame.append(static_cast<char>(valueByte(*var, 1)));
        frame.append(static_cast<char>(valueByte(*var, 0)));
    } else {
        appendHeader(frame, *var, 0x10, address);
        appendBigEndian(frame, static_cast<unsigned>(count), 2);
        frame.append(static_cast<char>(2 * count));
        // Values are held low byte first; registers go out high byte first.
        for (int i = 0; i < count; ++i) {
            frame.append(static_cast<char>(valueByte(*var, 2 * i + 1)));
            frame.append(static_cast<char>(valueByte(*var, 2 * i)));
        }
    }
    appendCrc(frame);
    queueFrame(*var, frame, writeEchoLength, 0, 0, true);
}
