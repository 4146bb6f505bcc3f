// The runtime's side of a polling run, as the fuzz input plays it: it sets
// the communication record, queues requests, and polls through a line that
// loses, delays, repeats and cuts frames on the way to the in-process
// controller. The driver is checked after every step:
//
// - every write either reached the controller, is still queued, or left the
//   queue by a rule the runtime can know of: a give-up (with the station's
//   other pending writes), the full-list rule, a newer write to the same
//   place, or a head no frame can be built for. A write reported done whose
//   frame was lost counts as reached only when the reply handed in was the
//   very reply its own frame gets (no runtime could tell them apart);
// - return codes are in the table, in the band the reply calls for, and
//   retries and multi-frame requests follow the record's counters exactly
//   (computed without overflow);
// - the local mirror changes only where the step may write.
#ifndef RV_FUZZ_SESSION_H
#define RV_FUZZ_SESSION_H

#include <vector>

#include "fuzz_input.h"
#include "harness.h"

class Session {
public:
    // Resets the driver and fills the whole record from the input.
    explicit Session(FuzzInput &in);

    ComInfo &info() { return *info_; }
    FuzzInput &input() { return in_; }

    // A request of any shape from the input, sent through one of the five
    // queuing paths (`how`); writes are tagged for the ledger.
    void queueRequest(unsigned how);
    // `n` plain appends of one write (mode 1), to take the queue past its
    // 1,024-entry limit cheaply; then one de-duplicating write.
    void fillWrites(int n);
    // SetRegisterData or GetRegisterData with arguments from the input.
    void hostAccess(bool write);
    // The runtime changes one word of its record between frames.
    void rewriteWord();

    // One turn of the polling loop with the line fault `fault`. False when
    // the driver had nothing to send.
    bool exchange(uint8_t fault);

    // A clean line until the write and one-off queues are empty, within the
    // number of frames the record's limits allow (checked only when they
    // allow a bound at all).
    void drain();

    // Final checks (per-station store).
    void finish();
    // Leaves the driver empty, so that no input looks like a leak.
    ~Session();

private:
    struct Entry {
        int tag;
        int station, areaType, address, count;
    };
    // The ledger's copy of writeList: a vector whose head moves on, so that
    // taking the head costs nothing.
    struct Ledger {
        std::vector<Entry> items;
        size_t head = 0;
        size_t size() const { return items.size() - head; }
        bool empty() const { return size() == 0; }
        const Entry &operator[](size_t i) const { return items[head + i]; }
        Entry &at(size_t i) { return items[head + i]; }
        const Entry &front() const { return items[head]; }
        void pop_front() { ++head; }
        void assign(std::vector<Entry> &from)
        {
            items.swap(from);
            head = 0;
        }
    };
    void readWriteList(std::vector<Entry> &out);
    void verifyWrites(const char *what);
    // After calls that queued untagged writes (SetRegisterData) or many at
    // once: the whole queue against the ledger.
    void checkQueued(const char *what, int firstNew);
    // After one AddListWriteVar call with `offered`: appended, replaced a
    // pending equal write, or dropped by the full-list rule.
    void checkOffered(const RW_VAR &offered, int mode);
    void checkAfterReply(int code, int kind, bool finished, bool trusted);
    void checkMirror(int areaType, long long loByte, long long hiByte, const char *what);
    RW_VAR requestFromInput();

    FuzzInput &in_;
    ComInfo *info_;
    AreaGuard guard_;
    Ledger writes_;             // writeList as of the last check
    std::vector<char> landed_;  // by tag: the controller carried it out
    std::vector<Entry> scratch_;
    int nextTag_;
    bool frameRemote_;
    bool bigWrite_;     // one write of this input may be huge
    bool filled_;       // fillWrites ran
    bool checkMirror_;  // off while draining: a clean line, many frames            // the frame in
                        // flight is a remote-link frame
    std::vector<QByteArray> late_;  // replies still on their way
    QByteArray fill_;
};

#endif
