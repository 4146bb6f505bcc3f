// The runtime's communication thread: ComCommunication, send, receive with
// a timeout, DataCom, over and over, counting what happens on the line.
#ifndef RVPOLL_POLLER_H
#define RVPOLL_POLLER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <QList>

#include "driver_api.h"
#include "line_stats.h"
#include "poll_stats.h"
#include "link_settings.h"
#include "write_tracker.h"

// One block read of the driver's cyclic list and how its last read ended.
struct BlockState {
    int station = 0;
    int areaType = 0;
    int address = 0;     // first element
    int elements = 0;    // elements the block reads
    int lastCode = -1;   // -1: not read yet
    int exception = -1;  // the controller's exception code when it refused the read
    QString line;        // what the line did on the last failed read: "cut short (..)"
    bool everRead = false;
    // The read succeeded, but bytes that came after it mean its reply may
    // have answered another frame: unknown until it is read again.
    bool doubted = false;
    bool linkLost = false;                         // the link went down after the last read
    std::chrono::steady_clock::time_point readAt;  // last good read
    bool holds(int st, int type, int element) const
    {
        return st == station && type == areaType && element >= address &&
               element < address + elements;
    }
    // Read, and its values held here: a reply on another link (code 100)
    // is checked but stored by no one in this driver.
    bool good() const { return lastCode == 1 && !doubted && !linkLost; }
    bool answered() const { return lastCode == 1 || lastCode == 100; }
};

class Poller {
public:
    // `blocks` is the number of block reads in the driver's read list: that
    // many finished cyclic reads make one scan.
    // `info` is the runtime's record the driver was given: after a good
    // reply its retry count starts afresh, so each request gets its own
    // retries.
    Poller(const DriverApi &api, WriteTracker &writes, ComInfo *info, const LinkSettings &link,
           int blocks, bool trace, int intervalMs);
    ~Poller() { stop(); }

    bool openLink(std::string &error);
    // Called on the polling thread after every complete scan, before the
    // next request goes out, so each scan's values can be shown exactly.
    void setScanHandler(const std::function<void(const PollStats &)> &handler)
    {
        onScan_ = handler;
    }
    // Stop sending once this many scans are complete and no write is
    // queued; 0 = never.
    void setScanLimit(long long scans) { scanLimit_ = scans; }
    // Whether "link lost" messages go to stderr (not under a live screen).
    void setLinkMessages(bool on) { linkMessages_ = on; }
    void start();
    void stop();

    PollStats stats() const;
    LineStats lineStats() const;
    // False once the scan limit stopped polling.
    bool running() const;
    QList<BlockState> blocks() const;
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
    bool finished(const RW_VAR *r, int code, const rvlink::Exchange &x, DriverVerdict verdict);
    void noteBlock(const RW_VAR &r, int code, const rvlink::Exchange &x, DriverVerdict verdict);
    BlockState *blockAt(int station, int areaType, int address);

    DriverApi api_;
    WriteTracker &writes_;
    ComInfo *info_;
    LinkSettings settings_;
    std::unique_ptr<rvlink::Port> port_;
    std::unique_ptr<rvlink::Line> line_;
    int blocks_;
    bool trace_;
    bool linkMessages_ = true;
    int intervalMs_;
    long long scanLimit_ = 0;
    std::function<void(const PollStats &)> onScan_;

    mutable std::mutex mutex_;
    std::condition_variable scanDone_;
    PollStats stats_;
    LineStats lineStats_;
    QList<BlockState> blockStates_;
    int lastBlock_ = -1;  // index of the block the last exchange read, if any
    int cyclicInScan_ = 0;
    bool scanFailure_ = false;
    bool lastScanFailed_ = false;
    bool stopping_ = false;
    int backoffMs_ = 250;
    std::chrono::steady_clock::time_point scanStart_;
    std::thread thread_;
};

#endif
