// The polling loop over a lossy line. The input sets every word of the
// runtime's record (any int), queues requests of any shape, then plays the
// line turn by turn: clean, request lost, reply lost, reply one frame late,
// reply twice, reply cut short, a byte changed, or bytes of the runtime's
// own making with a length of their own; between turns it queues more and
// rewrites words of the record. The session checks the driver after every
// step; at the end a clean line must empty the queues.
#include "session.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    countExecution();
    FuzzInput in(data, size);
    Session s(in);
    const int requests = in.u8() % 8;
    for (int i = 0; i < requests; ++i)
        s.queueRequest(in.u8());
    for (int step = 0; step < 96 && !in.empty(); ++step) {
        const uint8_t op = in.u8();
        if (op < 200)
            s.exchange(op);
        else if (op < 230)
            s.queueRequest(in.u8());
        else if (op < 245)
            s.rewriteWord();
        else
            s.hostAccess(op & 1);
    }
    s.drain();
    s.finish();
    return 0;
}
