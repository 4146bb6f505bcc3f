#include "poller.h"

#include <stdio.h>

#include <algorithm>
#include <chrono>

#include "localarea/areas.h"
#include "common/remote_text.h"
#include "link/port_factory.h"
#include "link/rtu_frame.h"

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

Poller::Poller(const DriverApi &api, WriteTracker &writes, ComInfo *info, const LinkSettings &link,
               int blocks, bool trace, int intervalMs)
    : api_(api),
      writes_(writes),
      info_(info),
      settings_(link),
      blocks_(blocks > 0 ? blocks : 1),
      trace_(trace),
      intervalMs_(intervalMs)
{}

bool Poller::openLink(std::string &error)
{
    if (!port_) {
        port_ = rvlink::makePort(settings_.portSettings(), error);
        if (!port_)
            return false;
        line_.reset(new rvlink::Line(*port_, settings_.lineOptions()));
        line_->setTrace(trace_ ? stderr : nullptr);
    }
    if (!port_->open(error))
        return false;
    line_->restart();
    return true;
}

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
    if (port_)
        port_->close();
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

LineStats Poller::lineStats() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return lineStats_;
}

bool Poller::ensureLink()
{
    if (port_ && port_->isOpen())
        return true;
    std::string error;
    if (openLink(error)) {
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

namespace {

// The driver's verdict on a reply it was handed: accepted, rejected for its
// CRC, or rejected otherwise (an exception reply, one not confirmed). A
// retried reply carries no code of its own, so the CRC is checked here with
// the driver's own function.
DriverVerdict verdictOf(const rvlink::Exchange &x, int code)
{
    if (code == 1 || code == 100)
        return DriverVerdict::Accepted;
    if (x.outcome != rvlink::Exchange::Answered || x.reply.size() < 3 || exceptionOf(x) >= 0)
        return DriverVerdict::Rejected;
    return rvlink::crcCloses(x.reply.data(), x.reply.size()) ? DriverVerdict::Rejected
                                                             : DriverVerdict::BadCrc;
}

}  // namespace

bool Poller::exchange(Protocol *p)
{
    // The frame belongs to the driver and is gone after DataCom: copy first.
    const int length = p->sendLength < p->frame.size() ? p->sendLength : p->frame.size();
    const rvlink::Bytes frame = rvlink::bytesOf(p->frame.constData(), size_t(std::max(length, 0)));
    const int replyLength = p->replyLength;
    const int station = p->var.station;

    rvlink::RemoteRequest remote;
    if (trace_ && settings_.remoteFrames &&
        rvlink::parseRemoteRequest(frame.data(), frame.size(), remote))
        fprintf(stderr, "         %s\n", describeRemoteRequest(remote).toLocal8Bit().constData());
    const rvlink::Exchange x = line_->exchange(frame, replyLength);
    if (x.outcome == rvlink::Exchange::Lost) {
        if (linkMessages_)
            fprintf(stderr, "rvpoll: link to %s lost, reopening\n", settings_.port.c_str());
        port_->close();
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stats_.framesSent += x.framesSent;
        stats_.repliesHeard += x.repliesHeard;
        if (x.outcome == rvlink::Exchange::Broadcast)
            ++stats_.broadcasts;
        if (x.outcome == rvlink::Exchange::Lost) {
            ++stats_.linkLost;
            stats_.linkUp = false;
            // Nothing read before is known to hold any longer.
            for (int i = 0; i < blockStates_.size(); ++i)
                blockStates_[i].linkLost = true;
        }
        // Bytes waiting before this request came after the last reply was
        // taken: that reply may have answered another frame.
        if (x.strayBefore > 0 && lastBlock_ >= 0 && lastBlock_ < blockStates_.size())
            blockStates_[lastBlock_].doubted = true;
        lastBlock_ = -1;
    }

    // Only a reply taken as this frame's goes to the driver; one that may
    // be a stray copy and was not confirmed counts as none.
    QByteArray reply;
    if (x.outcome != rvlink::Exchange::Unconfirmed && x.outcome != rvlink::Exchange::Lost)
        reply = QByteArray(reinterpret_cast<const char *>(x.reply.data()), int(x.reply.size()));
    // What the line did, should the driver turn the reply down.
    const QString failure = describeExchange(x, verdictOf(x, -1));
    RW_VAR *r = writes_.dataCom(&reply, failure);
    const int code = r ? r->result : -1;
    const DriverVerdict verdict = verdictOf(x, code);
    // The driver counts failures since its last give-up; a good reply starts
    // the count afresh, so --retries N is N retries of each request.
    if ((code == 1 || code == 100) && info_)
        info_->retryCount = 0;
    if (trace_ && x.outcome != rvlink::Exchange::Broadcast &&
        (x.outcome != rvlink::Exchange::Answered || verdict != DriverVerdict::Accepted ||
         x.doubted || x.strayBefore > 0))
        fprintf(stderr, "         %s%s%s\n", describeExchange(x, verdict).toLocal8Bit().constData(),
                x.confirmed ? QString(", doubted (%1), confirmed by %2 read%3")
                                  .arg(QString::fromStdString(x.doubt))
                                  .arg(x.checks)
                                  .arg(x.checks == 1 ? "" : "s")
                                  .toLocal8Bit()
                                  .constData()
                            : "",
                x.strayBefore > 0 ? ", stray bytes before the request" : "");
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (x.outcome != rvlink::Exchange::Lost && x.outcome != rvlink::Exchange::Broadcast)
            lineStats_.note(station, x, verdict);
        rvlink::NetworkFigures network;
        if (port_->network(network))
            lineStats_.noteNetwork(network);
    }
    bool scanComplete = finished(r, code, x, verdict);
    // A scan's values are shown once it is complete: bytes arriving just
    // after its last reply put that reply in doubt before anyone sees it.
    if (scanComplete && line_->listen() > 0) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (lastBlock_ >= 0 && lastBlock_ < blockStates_.size())
            blockStates_[lastBlock_].doubted = true;
    }
    if (replyLength == 0) {
        // Broadcast: nobody answers; give the stations time to act on it.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return scanComplete;
}

BlockState *Poller::blockAt(int station, int areaType, int address)
{
    for (int i = 0; i < blockStates_.size(); ++i) {
        BlockState &b = blockStates_[i];
        if (b.station == station && b.areaType == areaType && b.address == address)
            return &b;
    }
    BlockState b;
    b.station = station;
    b.areaType = areaType;
    b.address = address;
    blockStates_.append(b);
    return &blockStates_.last();
}

void Poller::noteBlock(const RW_VAR &r, int code, const rvlink::Exchange &x, DriverVerdict verdict)
{
    // Bit areas are read as whole bytes of 8 elements. The driver keeps
    // nothing past an area's end, so a block's values stop there even when
    // its request reaches further.
    const long long asked = isBitArea(r.areaType) ? 8LL * r.count : r.count;
    BlockState &b = *blockAt(r.station, r.areaType, r.address);
    b.elements =
        int(std::max(0LL, std::min(asked, (long long)areaCapacity(r.areaType) - r.address)));
    // A broadcast has no reply: nothing was read.
    b.lastCode = r.station == 0 ? -1 : code;
    b.linkLost = false;
    b.doubted = false;
    b.exception = exceptionOf(x);
    b.line = verdict == DriverVerdict::Accepted ? QString() : describeExchange(x, verdict);
    if (b.answered()) {
        // Answered on another link, a block is checked but held by no one here.
        b.everRead = b.everRead || b.lastCode == 1;
        b.readAt = Clock::now();
        lastBlock_ = int(&b - &blockStates_[0]);
    }
}

bool Poller::finished(const RW_VAR *r, int code, const rvlink::Exchange &x, DriverVerdict verdict)
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
        stats_.lastException = exceptionOf(x);
        const bool good = code == 1 || code == 100;
        if (r && isCyclic(r))
            noteBlock(*r, code, x, verdict);
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
