// One request and its reply at a time on a port, as a runtime must run its
// link for the driver:
// - a reply is read by the length the driver expects (reply_reader.h),
//   never ended by a silence once that length is known;
// - the line is kept silent for 3.5 characters between frames, and what
//   waits on it before a request is dropped and counted;
// - after an exchange that failed, nothing is sent until the late-reply
//   window has passed since its request (and the line is quiet), so a late
//   reply never meets the next request;
// - a reply that could be a stray copy (byte for byte one of the window
//   taken for another request, or with bytes before or after it) is
//   confirmed by a read whose answer cannot be a copy of it
//   (confirm_read.h) before it is handed on; one that cannot be confirmed
//   is not handed on at all.
// Only where taking a doubtful reply shows nothing new (it repeats the last
// answer to the same request) on a line that has shown no stray bytes is it
// taken without asking: equal values cost nothing on a clean line.
#ifndef RV_LINK_LINE_H
#define RV_LINK_LINE_H

#include <stdio.h>

#include <chrono>
#include <string>

#include "line_tap.h"
#include "line_timing.h"
#include "port.h"
#include "reply_reader.h"
#include "stray_guard.h"

namespace rvlink {

struct LineOptions {
    LineFormat format;
    int timeoutMs = 500;        // wait for the first reply byte
    int byteTimeoutMs = 500;    // wait between pieces of one reply
    long long gapUs = -1;       // silence kept between frames; -1: 3.5 characters
    int windowMs = -1;          // late-reply window; -1: 4 x timeoutMs
    bool discardEcho = false;   // 2-wire adapters that hear their own frame
    bool remoteFrames = false;  // requests are a remote link's descriptions
    LineTap *tap = nullptr;     // told every frame sent and every piece read
};

// What became of one request on the line.
struct Exchange {
    enum Outcome {
        Answered,     // `reply` holds a whole frame of the expected shape
        Broadcast,    // no reply expected
        NoAnswer,     // nothing that could start the reply came in time
        Cut,          // the reply started and stopped short: `reply` holds its bytes
        Unconfirmed,  // `reply` could be a stray copy and was not confirmed
        Lost          // the port failed (unplugged): close and reopen
    };
    Outcome outcome = NoAnswer;
    Bytes reply;
    int expected = 0;          // bytes the reply needed (5 for an exception reply)
    double rttMs = 0;          // request drained to the reply's last byte
    double silenceMs = 0;      // Cut: how long the line then stayed silent
    int strayBefore = 0;       // bytes waiting on the line before the request went out
    int strayAfter = 0;        // bytes that came with the reply, after its end
    int skipped = 0;           // bytes read that could not start the reply
    int otherStation = 0;      // skips that were replies of another station
    int otherFrame = 0;        // skips that were replies to another frame
    int late = 0;              // bytes that came while the line settled
    int checks = 0;            // confirming reads sent
    int framesSent = 0;        // frames put on the line: the request and the checks
    int repliesHeard = 0;      // whole replies read, exceptions included
    bool echoMissing = false;  // an echo was to come first, and other bytes came
    bool echoHeard = false;    // the request itself came back before the reply
    bool doubted = false;      // the reply could have been a stray copy
    bool confirmed = false;    // ... and the confirming reads showed it was not
    std::string doubt;         // why it was doubted
};

class Line {
public:
    Line(Port &port, const LineOptions &options);

    // Bytes out and in, with milliseconds since the request, go to `sink`.
    void setTrace(FILE *sink) { trace_ = sink; }
    // Sends `frame` and reads the reply the driver expects to be
    // `replyLength` bytes (0 none, -1 any: a byte timeout of silence ends it).
    Exchange exchange(const Bytes &frame, int replyLength);
    // Listens for `ms` (default: about two round trips) for bytes that no
    // request waits for, and returns how many came: after a reply has been
    // taken, any are a sign it may have answered another frame.
    int listen(int ms = -1);
    // After the port was (re)opened: nothing is in flight.
    void restart();

    int windowMs() const { return guard_.windowMs(); }
    bool showsStrays() { return guard_.showsStrays(nowMs()); }

private:
    typedef std::chrono::steady_clock Clock;

    long long nowMs() const;
    void waitForGap();
    bool send(const Bytes &frame);
    // The port's read, with what came shown to the tap.
    int readPort(std::uint8_t *buf, std::size_t max, int timeoutMs);
    // Reads until the reply is whole or a timeout passed, starting from the
    // bytes in `buf`; false if the port failed. Skipped bytes that begin
    // with `request` are its echo.
    bool readReply(const Expectation &expect, Exchange &x, Bytes buf = Bytes(),
                   const Bytes *request = nullptr);
    // Drops what waits before a request; the bytes and any replies in them
    // are strays.
    int takeStrays();
    // Bytes that answered nothing: noted, replies in them remembered; that
    // one of them is `answer`, the late answer to `request`, when given.
    void noteStrayBytes(const Bytes &bytes, const Bytes *request = nullptr,
                        const Bytes &answer = Bytes());
    // Waits until `untilMs` has come and the line has been quiet for
    // `quietMs` after the last byte; returns the bytes discarded. Their
    // lateness counts from `sentMs` when that is not negative. Once the late
    // answer to `request` (a whole reply `late` describes, and no copy of a
    // reply seen) has come, the wait ends with the quiet after it.
    int settle(long long untilMs, int quietMs, long long sentMs, const Bytes *request = nullptr,
               const Expectation *late = nullptr);
    // After a failed exchange: until the window has passed since `sentMs`,
    // or until the failed request's own late answer has come.
    int settleAfterFailure(long long sentMs, const Bytes *request = nullptr,
                           const Expectation *late = nullptr);
    int confirmQuietMs() const;
    // Confirms the doubtful `x.reply` to `frame`; true when it holds.
    bool confirm(const Bytes &frame, Exchange &x);
    // One confirming read: its whole checked reply, or false.
    bool checkRead(const Bytes &request, int replyLength, Bytes &reply, bool &refused, Exchange &x);
    Expectation expectationOf(const Bytes &frame, int replyLength) const;
    void trace(const Bytes &bytes, char open, char close, long long sinceMs);

    Port &port_;
    LineOptions options_;
    StrayGuard guard_;
    FILE *trace_ = nullptr;
    long long gapUs_;
    Clock::time_point start_;
    Clock::time_point quietSince_;  // the line's last byte, in or out
    double slowestMs_ = -1;         // the slowest whole reply so far; -1 none yet
};

}  // namespace rvlink

#endif
