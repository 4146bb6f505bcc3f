#include "poller.h"

#include <stdio.h>

#include <algorithm>
#include <chrono>

#include "examples/reply_screen.h"
#include "localarea/areas.h"

namespace {

typedef std::chrono::steady_clock Clock;

double msSince(Clock::time_point t)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - t).count();
}

// Requests of the cyclic read list carry owner id -1.
bool isCyclic(const RW_VAR *r)
{
    return r->ownerId == -1;
}

}  // namespace

Poller::Poller(const DriverApi &api, WriteTracker &writes, const LinkSettings &link, int blocks,
               bool trace, int intervalMs)
    : api_(api),
      writes_(writes),
      settings_(link),
      blocks_(blocks > 0 ? blocks : 1),
      trace_(trace),
      intervalMs_(intervalMs)
{}

void Poller::start()
{
    stopping_ = false;
    thread_ = std::thread(&Poller::run, this);
}

void Poller::stop()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    scanDone_.notify_all();
    if (thread_.joinable())
        thread_.join();
    link_.close();
}

PollStats Poller::stats() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return stats_;
}

bool Poller::running() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return !stopping_;
}

QList<BlockState> Poller::blocks() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return blockStates_;
}

bool Poller::everAnswered() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return stats_.repliesGood > 0;
}

bool Poller::lastScanFailed() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return lastScanFailed_;
}

long long Poller::waitScan(long long seen, int timeoutMs)
{
    std::unique_lock<std::mutex> lock(mutex_);
    scanDone_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                       [&] { return stats_.scans > seen || stopping_; });
    return stats_.scans;
}

void Poller::traceBytes(const QByteArray &bytes, char open, char close) const
{
    QByteArray line;
    for (int i = 0; i < bytes.size(); ++i)
        line += open +
                QByteArray::number(static_cast<unsigned char>(bytes.at(i)), 16)
                    .toUpper()
                    .rightJustified(2, '0') +
                close;
    fprintf(stderr, "%s\n",
            line.isEmpty() ? (open == '<' ? "<no reply>" : "[]") : line.constData());
}

bool Poller::ensureLink()
{
    if (link_.isOpen())
        return true;
    std::string error;
    if (link_.open(settings_, error)) {
        backoffMs_ = 250;
        std::lock_guard<std::mutex> lock(mutex_);
        stats_.linkUp = true;
        stats_.reopenAttempts = 0;
        return true;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++stats_.reopenAttempts;
    }
    // Unplugged adapters come back; wait longer each time, never spin.
    std::this_thread::sleep_for(std::chrono::milliseconds(backoffMs_));
    if (backoffMs_ < 4000)
        backoffMs_ *= 2;
    return false;
}

void Poller::run()
{
    Clock::time_point window = Clock::now();
    long long sentAtWindow = 0;
    scanStart_ = Clock::now();
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (stopping_)
                return;
            // Frames per second over the last second or so; a first
            // estimate after a quarter of a second.
            const double elapsed = msSince(window);
            if (elapsed >= 250)
                stats_.framesPerSecond = (stats_.framesSent - sentAtWindow) * 1000.0 / elapsed;
            if (elapsed >= 1000) {
                sentAtWindow = stats_.framesSent;
                window = Clock::now();
            }
        }
        if (!ensureLink())
            continue;
        Protocol *p = api_.ComCommunication();
        if (!p) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        if (exchange(p)) {
            const PollStats now = stats();
            if (onScan_)
                onScan_(now);
            if (scanLimit_ > 0 && now.scans >= scanLimit_ && !writes_.busy()) {
                std::lock_guard<std::mutex> lock(mutex_);
                stopping_ = true;
                scanDone_.notify_all();
                return;
            }
            // The pause between scans is not part of the scan time.
            if (intervalMs_ > 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(intervalMs_));
            scanStart_ = Clock::now();
        }
    }
}

bool Poller::exchange(Protocol *p)
{
    // The frame belongs to the driver and is gone after DataCom: copy first.
    const int length = p->sendLength < p->frame.size() ? p->sendLength : p->frame.size();
    const QByteArray frame = p->frame.left(length > 0 ? length : 0);
    const int replyLength = p->replyLength;

    QByteArray reply;
    if (trace_)
        traceBytes(frame, '[', ']');
    const SerialLink::Status status = link_.transact(frame, replyLength, reply);
    if (trace_ && replyLength != 0)
        traceBytes(reply, '<', '>');
    // A reply that cannot answer this frame (a late answer to an earlier
    // one) goes to the driver as no reply, so the frame is sent again.
    const bool screened = !replyMatchesRequest(
        reinterpret_cast<const unsigned char *>(frame.constData()), frame.size(),
        reinterpret_cast<const unsigned char *>(reply.constData()), reply.size());
    if (screened) {
        if (trace_)
            fprintf(stderr, "<screened out: does not answer this frame>\n");
        reply.clear();
    }
    // The driver takes an exception reply for one of the wrong length; its
    // code is the controller's own reason, kept for the report.
    lastException_ =
        !screened && reply.size() >= 3 && (uchar(reply.at(1)) & 0x80) ? uchar(reply.at(2)) : -1;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++stats_.framesSent;
        if (status == SerialLink::Lost) {
            ++stats_.linkLost;
            stats_.linkUp = false;
        }
        if (screened)
            ++stats_.screened;
    }
    if (status == SerialLink::Lost) {
        if (linkMessages_)
            fprintf(stderr, "rvpoll: link to %s lost, reopening\n", settings_.port.c_str());
        link_.close();
        reply.clear();
    }

    RW_VAR *r = writes_.dataCom(&reply);
    const bool scanComplete = finished(r, r ? r->result : -1);
    if (replyLength == 0) {
        // Broadcast: nobody answers; give the stations time to act on it.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return scanComplete;
}

void Poller::noteBlock(const RW_VAR &r, int code)
{
    // Bit areas are read as whole bytes of 8 elements. The driver keeps
    // nothing past an area's end, so a block's values stop there even when
    // its request reaches further.
    const long long asked = isBitArea(r.areaType) ? 8LL * r.count : r.count;
    const int elements =
        int(std::max(0LL, std::min(asked, (long long)areaCapacity(r.areaType) - r.address)));
    int at = 0;
    while (at < blockStates_.size() && !(blockStates_.at(at).station == r.station &&
                                         blockStates_.at(at).areaType == r.areaType &&
                                         blockStates_.at(at).address == r.address))
        ++at;
    if (at == blockStates_.size()) {
        BlockState b;
        b.station = r.station;
        b.areaType = r.areaType;
        b.address = r.address;
        blockStates_.append(b);
    }
    BlockState &b = blockStates_[at];
    b.elements = elements;
    // A broadcast has no reply: nothing was read.
    b.lastCode = r.station == 0 ? -1 : code;
    b.exception = b.good() ? -1 : lastException_;
    if (b.good()) {
        b.everRead = true;
        b.readAt = Clock::now();
    }
}

bool Poller::finished(const RW_VAR *r, int code)
{
    bool scanComplete = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (code == 0) {
            ++stats_.repliesBad;
            ++stats_.retries;
            return false;
        }
        stats_.lastCode = code;
        const bool good = code == 1 || code == 100;
        if (r && isCyclic(r))
            noteBlock(*r, code);
        if (good) {
            ++stats_.repliesGood;
        } else {
            ++stats_.repliesBad;
            ++stats_.givenUp;
            scanFailure_ = true;
        }
        if (r && isCyclic(r) && ++cyclicInScan_ >= blocks_) {
            cyclicInScan_ = 0;
            ++stats_.scans;
            lastScanFailed_ = scanFailure_;
            stats_.scanMs = msSince(scanStart_);
            scanFailure_ = false;
            scanComplete = true;
        }
    }
    if (scanComplete)
        scanDone_.notify_all();
    return scanComplete;
}
