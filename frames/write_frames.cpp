// Modbus RTU write requests: write single coil (0x05) for the bit areas,
// write single register (0x06) or multiple registers (0x10) for the words.
#include "frames.h"

#include "../driver/driver_object.h"
#include "../localarea/local_area.h"
#include "../localarea/store.h"
#include "address_map.h"
#include "frame_queue.h"
#include "wire.h"

namespace {

// Above 127 registers the one-byte byte count of a 0x10 frame wraps and
// above 65535 the quantity is cut to 16 bits, as the controller format has
// it; the frame still carries every register. Only a frame the panel could
// not hold in memory (8 MiB of registers) is not built.
const int maxWriteRegisters = 1 << 22;

void appendHeader(QByteArray &frame, const RW_VAR &var, unsigned char function, int address)
{
    frame.append(static_cast<char>(var.station & 0xFF));
    frame.append(static_cast<char>(function));
    appendBigEndian(frame, static_cast<unsigned>(address) & 0xFFFF, 2);
}

}  // namespace

bool buildWrite(RW_VAR *var)
{
    if (!var)
        return false;
    bool queued = false;
    if (isBitArea(var->areaType))
        queued = buildWriteBit(var);
    else if (isWordArea(var->areaType))
        queued = buildWriteWords(var);
    // While the link is down the runtime's own write path keeps the mirror.
    if (!commErrorSet())
        WriteDataToLocal(var);
    return queued;
}

bool buildWriteBit(RW_VAR *var)
{
    if (!var)
        return false;
    // One coil per frame; only the value 1 switches it on.
    QByteArray frame;
    frame.reserve(8);
    appendHeader(frame, *var, 0x05, BitElementToCoil(var->areaType, var->address));
    frame.append(static_cast<char>(valueByte(*var, 0) == 1 ? 0xFF : 0x00));
    frame.append('\0');
    appendCrc(frame);
    return queueFrame(*var, frame, writeEchoLength, 0, 0);
}

bool buildWriteWords(RW_VAR *var)
{
    if (!var || var->count < 0 || var->count > maxWriteRegisters)
        return false;
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
        appendBigEndian(frame, static_cast<unsigned>(count) & 0xFFFF, 2);
        frame.append(static_cast<char>((2 * count) & 0xFF));
        // Values are held low byte first; registers go out high byte first.
        frame.resize(7 + 2 * count);
        char *registers = frame.data() + 7;
        for (int i = 0; i < count; ++i) {
            registers[2 * i] = static_cast<char>(valueByte(*var, 2 * i + 1));
            registers[2 * i + 1] = static_cast<char>(valueByte(*var, 2 * i));
        }
    }
    // The CRC covers as many bytes as a 16-bit length reaches.
    appendCrc(frame);
    return queueFrame(*var, frame, writeEchoLength, 0, 0);
}
