// The controller's end of the line on a file descriptor, with what a real
// serial line does that a pseudo-terminal does not: every character takes
// its wire time at the line's speed, the controller thinks before it
// answers, a USB adapter hands a reply over in pieces. Pacing is off by
// default: replies go out at once and whole.
//
// One frame is on the line at a time. A send can be left to the port's own
// thread for later, while the server goes on reading and answering; it
// waits for the line if another frame is going out when it falls due.
#ifndef RV_SIM_LINE_PORT_H
#define RV_SIM_LINE_PORT_H

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "link/line_timing.h"
#include "request_framing.h"

struct LineSettings {
    bool pace = false;  // characters take their wire time
    rvlink::LineFormat format;
    // On a pseudo-terminal: a request sent at a speed or stop bits other
    // than the format's is not understood, as at a controller's receiver.
    bool ownSettingsOnly = false;
    int turnaroundMs = 0;  // controller's think time before each reply
    int jitterMs = 0;      // 0..jitterMs more, drawn for each reply
    int pieceBytes = 0;    // a reply reaches the master in pieces this big; 0: whole
    int pieceGapMs = 0;    // silence between two pieces
};

// "9600 baud, 2 stop bits": what a pseudo-terminal shows of a format.
std::string speedText(const rvlink::LineFormat &f);

class LinePort {
public:
    typedef std::chrono::steady_clock Clock;

    explicit LinePort(int fd);  // fd stays owned by the caller
    ~LinePort();
    LinePort(const LinePort &) = delete;
    LinePort &operator=(const LinePort &) = delete;

    void setLine(const LineSettings &line);
    LineSettings line() const;

    // Starts the port's thread; false if it could not be set up.
    bool start();
    // Ends every wait at once, even mid-frame, and drops what is scheduled.
    void stop();
    bool running() const { return running_; }

    // One frame as `framing` delimits it, or what came of it before the line
    // fell silent; false when nothing came.
    bool readFrame(const RequestFraming &framing, std::vector<uint8_t> &frame);
    // Skips to the next silence, so the following frame is read from its first byte.
    void skipToSilence();
    // Microseconds `bytes` characters take; 0 when not paced.
    long long wireTimeUs(size_t bytes) const;
    // True, with what was heard, when the master's end is set to another
    // speed or stop bits than the line's and ownSettingsOnly is set.
    bool heardAtOtherSettings(rvlink::LineFormat &heard) const;

    // Writes `bytes` at the line's pace from `start` on (or once the line is
    // free); false once stopping. A reply is remembered for lastReply().
    bool send(const std::vector<uint8_t> &bytes, Clock::time_point start, bool reply = true);
    // The same by the port's thread, returning at once.
    void sendLater(const std::vector<uint8_t> &bytes, Clock::time_point start);
    // The bytes of the last reply put on the line; empty before the first.
    std::vector<uint8_t> lastReply() const;
    // Frames written, replies or not.
    uint64_t framesSent() const { return sent_; }

private:
    // Sleeps `us` microseconds unless stopped first; false once stopping.
    bool pauseUs(long long us);
    bool readByte(uint8_t &byte, int timeoutMs);
    void writeLine(const uint8_t *data, size_t length);
    void sendScheduled();

    int fd_;
    int wake_[2];
    std::atomic<bool> running_;
    std::atomic<uint64_t> sent_;
    mutable std::mutex mutex_;  // line_, lastReply_, scheduled_
    LineSettings line_;
    std::vector<uint8_t> lastReply_;
    std::multimap<Clock::time_point, std::vector<uint8_t>> scheduled_;
    std::condition_variable due_;
    std::mutex busy_;  // held while a frame goes out
    std::thread sender_;
};

#endif
