// The runtime's communication thread: ComCommunication, send, receive with
// a timeout, DataCom, over and over, counting what happens on the line.
#ifndef RVPOLL_POLLER_H
#define RVPOLL_POLLER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "driver_api.h"
#include "poll_stats.h"
#include "serial_link.h"

class Poller {
public:
    // `blocks` is the number of block reads in the driver's read list: that
    // many finished cyclic reads make one scan.
    Poller(const DriverApi &api, const LinkSettings &link, int blocks, bool trace, int intervalMs);
    ~Poller() { stop(); }

    bool openLink(std::string &error) { return link_.open(settings_, error); }
    // Called on the polling thread after every complete scan, before the
    // next request goes out, so each scan's values can be shown exactly.
    void setScanHandler(const std::function<void(const PollStats &)> &handler) { onScan_ = handler; }
    // Stop sending once this many scans are complete; 0 = never.
    void setScanLimit(long long scans) { scanLimit_ = scans; }
    void start();
    void stop();

    PollStats stats() const;
    // True once any reply was accepted.
    bool everAnswered() const;
    // True when the last complete scan gave up on a block.
    bool lastScanFailed() const;
    // Waits until more than `seen` scans are complete; returns the count.
    long long waitScan(long long seen, int timeoutMs);

private:
    Poller(const Poller &);
    Poller &operator=(const Poller &);

    void run();
    bool ensureLink();
    // Both return true when the reply completed a scan.
    bool exchange(Protocol *p);
    bool finished(const RW_VAR *r, int code);
    void traceBytes(const QByteArray &bytes, char open, char close) const;

    DriverApi api_;
    LinkSettings settings_;
    SerialLink link_;
    int blocks_;
    bool trace_;
    int intervalMs_;
    long long scanLimit_ = 0;
    std::function<void(const PollStats &)> onScan_;

    mutable std::mutex mutex_;
    std::condition_variable scanDone_;
    PollStats stats_;
    int cyclicInScan_ = 0;
    bool scanFailure_ = false;
    bool lastScanFailed_ = false;
    bool stopping_ = false;
    int backoffMs_ = 250;
    std::chrono::steady_clock::time_point scanStart_;
    std::thread thread_;
};

#endif
