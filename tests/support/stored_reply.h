// Stores a read reply as the reply handling does, for the frame it answers.
#ifndef RV_TEST_STORED_REPLY_H
#define RV_TEST_STORED_REPLY_H

#include <QByteArray>

// Puts a read of (station, type, address) announcing `announced` data bytes
// (default: data's size) at the head of sendQueue and stores a reply of a
// 3-byte header, `data` and two CRC bytes.
void storeReply(int station, int type, int address, const QByteArray &data, int announced = -1);

#endif
