// Controller answers made by hand for a queued frame, for tests that run
// the reply path without a line.
#ifndef RV_TEST_REPLIES_H
#define RV_TEST_REPLIES_H

#include <QByteArray>

#include "driver/records.h"

// Appends the CRC, low byte first.
QByteArray withCrc(QByteArray bytes);

// The good answer to `frame`: a read reply carrying `data` (zero-filled to
// the expected size) or the echo of a write.
QByteArray goodReplyFor(const Protocol &frame, const QByteArray &data = QByteArray());

#endif
