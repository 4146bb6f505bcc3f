// The serial line to the controller: one termios path for every device
// (USB adapters, UARTs, pseudo-terminals), one request/reply exchange at a
// time. A reply is read by its expected length (examples/reply_reader.h),
// never ended by a silence once that length is known; the line is kept
// silent for 3.5 characters between frames, and after anything went wrong
// it is left to settle so that a late or repeated reply is never taken for
// the answer to the next request.
#ifndef RVPOLL_SERIAL_LINK_H
#define RVPOLL_SERIAL_LINK_H

#include <stdio.h>

#include <QByteArray>
#include <chrono>
#include <string>

namespace rvreply {
struct Expectation;
}

struct LinkSettings {
    std::string port;
    int baud = 19200;
    int dataBits = 8;
    char parity = 'E';  // 'N', 'E' or 'O'
    int stopBits = 1;
    int timeoutMs = 500;        // wait for the first reply byte
    int byteTimeoutMs = 500;    // wait between pieces of one reply
    int gapUs = -1;             // silence kept between frames; -1 = 3.5 characters
    int settleMs = -1;          // quiet wanted after a failed exchange; -1 = timeoutMs
    bool discardEcho = false;   // 2-wire adapters that hear their own frame
    bool rs485 = false;         // the kernel's RS-485 mode (TIOCSRS485)
    bool remoteFrames = false;  // requests are a remote link's descriptions
    int rtsDelayBefore = 0;     // ms, in RS-485 mode
    int rtsDelayAfter = 0;
};

// Bits one character takes on the line: start, data, parity, stop.
int bitsPerCharacter(const LinkSettings &s);
// Silence between frames in microseconds: 3.5 characters, and 1750 above
// 19200 baud, where the standard fixes it.
int frameGapUs(const LinkSettings &s);

// What became of one request on the line.
struct Exchange {
    enum Outcome {
        Answered,   // `reply` holds a whole frame of the expected shape
        Broadcast,  // no reply expected
        NoAnswer,   // nothing that could start the reply arrived in time
        Cut,        // the reply started and stopped short: `reply` holds its bytes
        Lost        // the device failed (unplugged): close and reopen
    };
    Outcome outcome = NoAnswer;
    QByteArray reply;
    int expected = 0;         // bytes the reply needed (5 for an exception reply)
    double rttMs = 0;         // request drained to the reply's last byte
    double silenceMs = 0;     // Cut: how long the line then stayed silent
    int strayBefore = 0;      // bytes waiting on the line before the request went out
    int strayAfter = 0;       // bytes that came with the reply, after its end
    int skipped = 0;          // bytes read that could not start the reply
    int otherStation = 0;     // of those, replies of another station
    int otherFunction = 0;    // of those, replies of another function or frame
    int late = 0;             // bytes that arrived while the line settled afterwards
    bool askedAgain = false;  // the first reply could be a repeat: the frame went out twice
};

class SerialLink {
public:
    SerialLink() {}
    ~SerialLink() { close(); }

    bool open(const LinkSettings &settings, std::string &error);
    void close();
    bool isOpen() const { return fd_ >= 0; }
    // Bytes out and in, with milliseconds since the request, go to `sink`.
    void setTrace(FILE *sink) { trace_ = sink; }

    // Sends `frame` once the line has been silent for the frame gap, and
    // reads the reply the driver expects to be `replyLength` bytes long (0
    // none, -1 any: then a silence of the byte timeout ends it). A reply
    // byte-identical to the previous one but answering another frame could
    // be a repeat of that one: the line settles and the frame goes out again.
    Exchange exchange(const QByteArray &frame, int replyLength);
    // Waits until nothing has arrived for a response timeout (or `quietMs`),
    // discarding what comes; returns the bytes discarded. After a failed
    // exchange a late reply must not meet the next request.
    int settle(int quietMs = -1);

private:
    SerialLink(const SerialLink &);
    SerialLink &operator=(const SerialLink &);

    typedef std::chrono::steady_clock Clock;

    bool configure(std::string &error);
    bool setRs485(std::string &error);
    bool send(const QByteArray &frame);
    int takeStray();
    // 0 timeout, -1 device error, else bytes read.
    int readSome(char *buf, int max, int timeoutMs);
    bool readReply(const rvreply::Expectation &expect, Exchange &x);
    void traceBytes(const char *bytes, int n, char open, char close, Clock::time_point since);
    void waitForGap();

    LinkSettings settings_;
    int fd_ = -1;
    FILE *trace_ = nullptr;
    int gapUs_ = 1750;
    Clock::time_point quietSince_;  // the line's last byte, in or out
    QByteArray lastRequest_, lastReply_;
    double slowestMs_ = -1;  // the slowest whole reply so far; -1 none yet
};

#endif
