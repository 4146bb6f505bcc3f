// Telling a stray copy from an answer. Modbus RTU replies carry no request
// identity: a reply sent twice, one that comes late, or an earlier one sent
// again in place of the answer fits any request of its shape. The guard
// keeps the replies of the late-reply window (the longest a copy may trail
// its original, or a reply its request) with the request each was taken
// for, and remembers when the line last showed stray bytes. No clock
// inside: every call says what time it is, in milliseconds.
#ifndef RV_LINK_STRAY_GUARD_H
#define RV_LINK_STRAY_GUARD_H

#include <deque>
#include <map>
#include <vector>

#include "bytes.h"

namespace rvlink {

class StrayGuard {
public:
    // The window starts at `windowMs` and grows to the lateness the line
    // shows, up to `maxWindowMs`.
    explicit StrayGuard(int windowMs = 2000, int maxWindowMs = 60000);

    int windowMs() const { return windowMs_; }

    // A reply taken as the answer to `request`.
    void noteAnswer(const Bytes &request, const Bytes &reply, long long nowMs);
    // A whole reply that answered none of our requests: late, repeated, or
    // taken and then disproved.
    void noteUnanswered(const Bytes &reply, long long nowMs);
    // Bytes that came when none were due (before a request, after a reply,
    // while the line settled): the line shows stray copies.
    void noteStrays(long long nowMs);
    // Bytes that came `latenessMs` after the request they may answer: the
    // window widens to twice that when it was narrower. Returns true when
    // it widened.
    bool noteLateness(long long latenessMs);

    // Whether `reply` to `request` could be a copy: byte for byte a reply of
    // the window that was taken for another request, or for none.
    bool couldBeCopy(const Bytes &request, const Bytes &reply, long long nowMs);
    // Whether `reply` repeats the last answer taken for `request`: taking
    // it shows nothing that was not shown.
    bool repeatsLastAnswer(const Bytes &request, const Bytes &reply) const;
    // Whether the line has shown stray bytes within the last minute (or 20
    // windows, when longer).
    bool showsStrays(long long nowMs) const;
    // Byte counts of read replies from `station` with `function` in the
    // window: shapes a copy could have.
    std::vector<int> shapesInWindow(int station, int function, long long nowMs);

private:
    struct Seen {
        long long atMs;
        Bytes request;  // empty: answered none of ours
        Bytes reply;
    };
    void forgetOld(long long nowMs);

    int windowMs_;
    int maxWindowMs_;
    long long lastStrayMs_ = -1;
    std::deque<Seen> seen_;
    std::map<Bytes, Bytes> lastAnswer_;  // request -> its last answer
};

}  // namespace rvlink

#endif
