// Requests paired with what answered them, from the frames a listener
// found (frame_finder.h): one record per exchange on the bus, with its
// outcome, and one for each run of bytes that answered nothing. A reply
// that starts later than the master waits for was not taken by it: its
// request had no reply, and the reply is a stray one.
#ifndef RV_LINK_BUS_EXCHANGE_H
#define RV_LINK_BUS_EXCHANGE_H

#include <vector>

#include "frame_finder.h"

namespace rvlink {

struct BusExchange {
    enum Outcome {
        Ok,         // a whole reply with a good CRC
        NoReply,    // nothing answered before the next request (or the end)
        Exception,  // the controller refused: `exception` holds the code
        BadCrc,     // a reply whose CRC does not close
        Cut,        // a reply that stopped short
        Broadcast,  // station 0: nobody answers
        Noise,      // bytes that start no frame, or a broken reply nobody awaits; no request
        Stray       // a whole reply no request was waiting for: late, repeated; no request
    };
    Outcome outcome = NoReply;
    Bytes request;            // empty for Noise and Stray
    long long requestUs = 0;  // first byte of the request (of the bytes, without one)
    Bytes reply;              // what answered, or the noise or stray bytes
    long long replyUs = 0;    // first byte of the reply; 0 without one
    double replyMs = -1;      // the request's last byte to the reply's last; -1 without one
    int expected = 0;         // bytes the reply called for
    int exception = -1;
};

// "ok", "no reply", "exception", "bad CRC", "cut short", "broadcast",
// "noise", "stray reply".
const char *outcomeText(BusExchange::Outcome outcome);

class ExchangePairer {
public:
    // `replyTimeoutUs`: the master's wait for a reply to start.
    explicit ExchangePairer(long long replyTimeoutUs = 500000) : timeoutUs_(replyTimeoutUs) {}

    void add(const BusFrame &frame);
    // The end of the stream: a request still waiting had no reply.
    void finish();
    // The exchanges complete so far, in the order they ended, taken out.
    std::vector<BusExchange> take();

private:
    void closeWaiting();

    long long timeoutUs_;
    bool waiting_ = false;
    BusExchange open_;
    long long openEndUs_ = 0;
    std::vector<BusExchange> out_;
};

}  // namespace rvlink

#endif
