// What every fuzz target shares: a guard over the local area, a controller
// that answers any frame correctly, and a loud stop when a check fails.
#ifndef RV_FUZZ_HARNESS_H
#define RV_FUZZ_HARNESS_H

#include <QByteArray>
#include <cstring>

#include "driver/driver_object.h"

// Stops the run with a message; libFuzzer then saves the input as a crash.
[[noreturn]] void fuzzFail(const char *what, int detail = 0);

// Counts one execution; about once a second the count goes to the file
// named by RV_FUZZ_PROGRESS (scripts/fuzz shows it while a target runs).
void countExecution();

// The 26 blocks live side by side in one global object, so a write that
// runs past one block lands in its neighbour with no redzone in between.
// The guard remembers the whole area and, after an operation, names any
// block that changed although the operation had no business there.
class AreaGuard {
public:
    AreaGuard();
    void snapshot();
    void allow(int areaType);
    // Forgets what was allowed, keeping the snapshot.
    void allowNone();
    void allowAll();
    // True when no block changed since the snapshot (one comparison).
    bool unchanged() const;
    // Fails when a block not allowed changed since the snapshot.
    void check(const char *what) const;
    // Byte range [lo, hi) of the block of `areaType` that changed; false
    // when nothing changed.
    bool changedRange(int areaType, int &lo, int &hi) const;

private:
    LocalArea before_;
    bool allowed_[AreaTypeCount];
};

// Byte offset and size of an area's block inside LocalArea.
int blockOffset(int areaType);
int blockBytes(int areaType);

// A reply a well-behaved controller would give to `p`: read data taken
// from `fill` (repeated), a write echoed, CRC-16 fixed at the end. Empty
// for a frame that expects no reply or more than 32 KiB.
QByteArray goodReply(const Protocol &p, const QByteArray &fill);

// Hands `v` to one of the queuing entry points, chosen by `how`: a write,
// a one-off read or a cyclic read, de-duplicating or appending as given.
void queueRequest(RW_VAR &v, unsigned how);

// CRC-16/MODBUS by table, the harness's own (the driver's is checked
// against it, and it costs the fuzzer no traced branches).
unsigned short crc16(const unsigned char *data, int n);

// Checks a frame handed out by ComCommunication before it goes on the wire.
void checkFrame(const Protocol *p);

// Invariant of the per-station store: the index finds every entry.
void checkStore();

#endif
