// Requests of any shape through every queuing path (AddListWriteVar in both
// modes, AddListOnceReadVar normalised and raw, AddListReadVar,
// SetRegisterData), queues taken past their 1,024-entry limit, then the
// polling loop: a line that loses requests and replies while the input
// lasts, then a clean one until the queues are empty. The session checks
// the write ledger, the codes and the mirror after every step.
#include "session.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    countExecution();
    FuzzInput in(data, size);
    Session s(in);
    const int calls = in.u8() % 24;
    for (int i = 0; i < calls; ++i) {
        const uint8_t op = in.u8();
        if (op < 150)
            s.queueRequest(op);
        else if (op < 230)
            s.hostAccess(op & 1);
        else if (op < 255)
            s.rewriteWord();
        else
            s.fillWrites(1000 + in.u8() % 64);
    }
    // Clean turns, lost requests and lost replies only.
    for (int round = 0; round < 64 && !in.empty(); ++round) {
        const uint8_t op = in.u8();
        s.exchange(op % 5);
        if (op >= 250)
            s.queueRequest(in.u8());
    }
    s.drain();
    s.finish();
    return 0;
}
