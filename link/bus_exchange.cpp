#include "bus_exchange.h"

namespace rvlink {

const char *outcomeText(BusExchange::Outcome outcome)
{
    switch (outcome) {
    case BusExchange::Ok: return "ok";
    case BusExchange::NoReply: return "no reply";
    case BusExchange::Exception: return "exception";
    case BusExchange::BadCrc: return "bad CRC";
    case BusExchange::Cut: return "cut short";
    case BusExchange::Broadcast: return "broadcast";
    case BusExchange::Noise: return "noise";
    case BusExchange::Stray: break;
    }
    return "stray reply";
}

void ExchangePairer::closeWaiting()
{
    if (waiting_)
        out_.push_back(open_);
    waiting_ = false;
}

void ExchangePairer::add(const BusFrame &frame)
{
    BusExchange x;
    if (frame.kind == BusFrame::Request) {
        closeWaiting();
        x.request = frame.bytes;
        x.requestUs = frame.firstUs;
        x.expected = frame.expected;
        if (frame.expected == 0) {
            x.outcome = BusExchange::Broadcast;
            out_.push_back(x);
            return;
        }
        open_ = x;
        openEndUs_ = frame.lastUs;
        waiting_ = true;
        return;
    }
    const bool late = frame.firstUs - openEndUs_ > timeoutUs_;
    if (frame.kind == BusFrame::Noise || frame.request.empty() || !waiting_ ||
        frame.request != open_.request || late) {
        if (frame.kind != BusFrame::Noise && waiting_ && late)
            closeWaiting();
        // Only a whole reply is one; the rest answers nothing.
        x.outcome = frame.kind == BusFrame::Reply || frame.kind == BusFrame::Exception
                        ? BusExchange::Stray
                        : BusExchange::Noise;
        x.requestUs = frame.firstUs;
        x.reply = frame.bytes;
        x.replyUs = frame.firstUs;
        out_.push_back(x);
        return;
    }
    x = open_;
    waiting_ = false;
    x.reply = frame.bytes;
    x.replyUs = frame.firstUs;
    x.replyMs = double(frame.lastUs - openEndUs_) / 1000.0;
    switch (frame.kind) {
    case BusFrame::Reply: x.outcome = BusExchange::Ok; break;
    case BusFrame::Exception:
        x.outcome = BusExchange::Exception;
        x.exception = frame.bytes[2];
        break;
    case BusFrame::BadCrc: x.outcome = BusExchange::BadCrc; break;
    default: x.outcome = BusExchange::Cut; break;
    }
    out_.push_back(x);
}

void ExchangePairer::finish()
{
    closeWaiting();
}

std::vector<BusExchange> ExchangePairer::take()
{
    std::vector<BusExchange> taken;
    taken.swap(out_);
    return taken;
}

}  // namespace rvlink
