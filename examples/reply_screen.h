// Screening a reply against the frame it answers, before DataCom sees it.
//
// The driver accepts a reply by its length and CRC alone. A late answer to
// an earlier frame of the same shape therefore passes as the answer to the
// frame now in flight: a write echo that arrives after its timeout, while
// the next write was lost on the line, would mark that next write done
// though the controller never got it. A runtime that hands such a reply
// over as no reply (length 0) makes the driver send the frame again.
//
// Plain C++ with no dependencies, so a runtime can take it as it is.
#ifndef QUORVEL_RV_REPLY_SCREEN_H
#define QUORVEL_RV_REPLY_SCREEN_H

// True when `reply` can be the controller's answer to the Modbus RTU frame
// `request` (as sent, CRC included): the same station; the same function,
// or the function with its top bit set (an exception reply); for writes
// (0x05, 0x06, 0x0F, 0x10) the echoed address and value or quantity; for
// reads (0x01 to 0x04) the byte count the quantity asks for. Bytes a short
// reply lacks are not compared: its length is the driver's to judge. An
// empty reply passes (it already is no reply), and so does any frame that
// is no Modbus request: remote-link frames have another layout and are
// not screened.
inline bool replyMatchesRequest(const unsigned char *request, int requestLength,
                                const unsigned char *reply, int replyLength)
{
    if (!request || !reply || requestLength < 6 || replyLength < 1)
        return true;
    const unsigned function = request[1];
    const unsigned quantity = (unsigned(request[4]) << 8) | request[5];
    unsigned byteCount = 0;  // for reads
    int echoed = 0;          // for writes: bytes 2..5 come back as sent
    switch (function) {
    case 0x01:
    case 0x02: byteCount = (quantity + 7) / 8; break;
    case 0x03:
    case 0x04: byteCount = 2 * quantity; break;
    case 0x05:
    case 0x06:
    case 0x0F:
    case 0x10: echoed = 4; break;
    default: return true;
    }
    if (reply[0] != request[0])
        return false;
    if (replyLength < 2 || reply[1] == (function | 0x80))
        return true;
    if (reply[1] != function)
        return false;
    for (int i = 2; i < 2 + echoed && i < replyLength; ++i)
        if (reply[i] != request[i])
            return false;
    return echoed > 0 || replyLength < 3 || reply[2] == byteCount;
}

#endif
