// Telling a stray copy from an answer. Modbus RTU replies carry no request
// identity: a reply sent twice, one that comes late, or an earlier one sent
// again in place of the answer fits any request of its shape. The guard
// keeps the late-reply window (the longest a reply may trail its request
// and still be told apart: after a failure nothing is sent until it has
// passed), remembers every reply of the last minute (or 20 windows) with the
// request it was taken for, and when the line last showed stray bytes. No
// clock inside: every call says what time it is, in milliseconds.
#ifndef RV_LINK_STRAY_GUARD_H
#define RV_LINK_STRAY_GUARD_H

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
    // How long replies are remembered, and stray bytes mark the line.
    long long memoryMs() const;

    // How a reply came to be `request`'s.
    enum class Taken {
        AsItCame,   // taken as it came
        Confirmed,  // a read in another shape showed it is the request's alone
        Late        // came after the request had failed: its own, though not taken
    };
    // A reply taken as the answer to `request`.
    void noteAnswer(const Bytes &request, const Bytes &reply, long long nowMs,
                    Taken how = Taken::AsItCame);
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

    // Whether `reply` to `request` could be a copy: byte for byte a reply
    // remembered that was taken for another request, or for none.
    bool couldBeCopy(const Bytes &request, const Bytes &reply, long long nowMs) const;
    // Whether `reply` repeats the last answer taken for `request`: taking
    // it shows nothing that was not shown.
    bool repeatsLastAnswer(const Bytes &request, const Bytes &reply) const;
    // Whether the line has shown stray bytes within the memory.
    bool showsStrays(long long nowMs) const;
    // Byte counts of remembered read replies from `station` with
    // `function`: shapes a copy could have.
    std::vector<int> shapesRemembered(int station, int function, long long nowMs) const;

private:
    struct Seen {
        long long atMs;  // last seen
        Bytes request;   // the request it was taken for; empty: none, or several
    };
    void forgetOld(long long nowMs);

    int windowMs_;
    int maxWindowMs_;
    long long lastStrayMs_ = -1;
    std::map<Bytes, Seen> seen_;         // reply -> when and for what
    std::size_t sweepAt_ = 1024;         // forget old replies when this many are kept
    std::map<Bytes, Bytes> lastAnswer_;  // request -> its last answer
};

}  // namespace rvlink

#endif
