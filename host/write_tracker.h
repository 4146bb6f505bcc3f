// Every write rvpoll queues, followed to its outcome: written (all its
// blocks answered), failed (the driver gave it up with a code), dropped (a
// give-up of another request removed it without a result), or refused (the
// driver did not queue it). The driver reports no outcome for a dropped
// write, so rvpoll, which knows which of its writes were pending, does; with
// requeue on, a dropped write is queued again once its station answers.
#ifndef RVPOLL_WRITE_TRACKER_H
#define RVPOLL_WRITE_TRACKER_H

#include <QList>
#include <QString>
#include <QStringList>
#include <mutex>

#include "driver_api.h"
#include "varspec.h"

struct WriteCounts {
    int written = 0, failed = 0, dropped = 0, refused = 0, pending = 0;
};

class WriteTracker {
public:
    enum Outcome { Pending, Written, Failed, Dropped, Refused };

    // `requeueLimit` 0: a dropped write stays dropped.
    WriteTracker(const DriverApi &api, int defaultStation, bool multiStation, int blockUnits,
                 int requeueLimit);

    // Queues a write; `message` says "queued" or why it was refused.
    // Returns false when refused.
    bool queue(const WriteSpec &w, QString &message);

    // The communication thread's DataCom, with each write's outcome noted
    // from its result.
    RW_VAR *dataCom(QByteArray *reply);

    WriteCounts counts() const;
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
        Outcome outcome = Pending;
        QString detail;
    };

    bool queueEntry(Entry &e, int id);
    void finish(Entry &e, Outcome outcome, const QString &detail);
    bool sameStation(int a, int b) const { return !multiStation_ || a == b; }

    DriverApi api_;
    int defaultStation_;
    bool multiStation_;
    int blockUnits_;
    int requeueLimit_;
    mutable std::mutex mutex_;
    QList<Entry> entries_;  // index + 1 is the owner id
    int queuedParts_ = 0;
    QStringList events_;
    QString lastEvent_;
};

#endif
