// Every write rvpoll queues, followed to its outcome: written (all its
// blocks answered), failed (the driver gave it up with a code; "not
// confirmed" when its last echo could be a stray copy and reading the
// written elements back did not show them), dropped (a
// give-up of another request removed it without a result, or a newer write
// to the same elements replaced it before it landed), or refused (never
// queued: past its area's end, a read-only area, a full list). The driver
// reports no outcome for a dropped write, so rvpoll, which knows which of
// its writes were pending, does; with requeue on, a dropped write is queued
// again once its station answers, unless a newer write has replaced it, so
// an old value never lands over a newer one.
#ifndef RVPOLL_WRITE_TRACKER_H
#define RVPOLL_WRITE_TRACKER_H

#include <QList>
#include <QString>
#include <QStringList>
#include <chrono>
#include <mutex>

#include "driver_api.h"
#include "common/varspec.h"

struct WriteCounts {
    int written = 0, failed = 0, dropped = 0, refused = 0, pending = 0;
};

// Elements whose value in the driver's memory may not be the controller's:
// the driver takes a queued write's value at once, before it lands, and
// keeps it when the write fails.
struct UnsettledWrite {
    int station = 0, areaType = 0, address = 0, count = 0;
    bool pending = false;                           // still queued, or waiting to be
    std::chrono::steady_clock::time_point endedAt;  // when it failed or was dropped
};

class WriteTracker {
public:
    enum Outcome { Pending, Written, Failed, Dropped, Refused, NotConfirmed };

    // `requeueLimit` 0: a dropped write stays dropped.
    WriteTracker(const DriverApi &api, int defaultStation, bool multiStation, int blockUnits,
                 int requeueLimit);

    // Writes go out on link `linkNo` of the runtime's record `info`.
    void setLink(ComInfo *info, int linkNo)
    {
        info_ = info;
        linkNo_ = linkNo;
    }
    // Queues a write; `message` says "queued" or why it was refused.
    // Returns false when refused.
    bool queue(const WriteSpec &w, QString &message);

    // The communication thread's DataCom, with each write's outcome noted
    // from its result; `line` says what the line did when a write failed.
    RW_VAR *dataCom(QByteArray *reply, const QString &line = QString());

    WriteCounts counts() const;
    // Writes pending, and writes that ended without landing.
    QList<UnsettledWrite> unsettled() const;
    // True while a write is queued in the driver.
    bool busy() const;
    // Outcome lines ("write D100=0x1234: written") since the last call.
    QStringList takeEvents();
    // The last outcome line, for the live view.
    QString lastEvent() const;
    // "write D100=...: dropped" for each write that never landed, and their
    // number; for the end of a run.
    int unfinished(QStringList &lines) const;

private:
    struct Entry {
        WriteSpec write;
        QString text;
        int station = 0;
        int parts = 0;  // blocks the driver queued it as
        int partsDone = 0;
        int requeues = 0;
        bool waiting = false;  // dropped, to be queued again when the station answers
        int newer = -1;        // index of a newer write to some of the same elements
        Outcome outcome = Pending;
        QString detail;
        std::chrono::steady_clock::time_point endedAt;
    };

    bool queueEntry(Entry &e, int id);
    void finish(Entry &e, Outcome outcome, const QString &detail);
    bool sameStation(int a, int b) const { return !multiStation_ || a == b; }
    // Whether the two writes touch a common element.
    static bool overlap(const Entry &a, const Entry &b);
    static QString replacedBy(const Entry &newer);
    // Entries a finished write `e` (at `index`) replaced without their landing.
    void closeReplaced(int index);

    DriverApi api_;
    int defaultStation_;
    bool multiStation_;
    int blockUnits_;
    int requeueLimit_;
    ComInfo *info_ = nullptr;
    int linkNo_ = 0;
    mutable std::mutex mutex_;
    QList<Entry> entries_;  // index + 1 is the owner id
    int queuedParts_ = 0;
    QStringList events_;
    QString lastEvent_;
};

#endif
