#include "write_tracker.h"

#include <QByteArray>

#include "localarea/areas.h"
#include "poll_stats.h"

namespace {

// The driver's write list holds this many entries; past it a write is dropped.
const int kWriteListSize = 1024;

}  // namespace

WriteTracker::WriteTracker(const DriverApi &api, int defaultStation, bool multiStation,
                           int blockUnits, int requeueLimit)
    : api_(api),
      defaultStation_(defaultStation),
      multiStation_(multiStation),
      blockUnits_(blockUnits),
      requeueLimit_(requeueLimit)
{}

bool WriteTracker::queue(const WriteSpec &w, QString &message)
{
    std::lock_guard<std::mutex> lock(mutex_);
    Entry e;
    e.write = w;
    e.text = w.text;
    e.station = w.target.station ? w.target.station : defaultStation_;
    // A newer write to the same elements replaces a pending one in the
    // driver's list, which then never gets a result.
    for (int i = 0; i < entries_.size(); ++i) {
        Entry &old = entries_[i];
        if (old.outcome == Pending && !old.waiting && old.station == e.station &&
            old.write.target.areaType == w.target.areaType &&
            old.write.target.address == w.target.address &&
            old.write.target.count == w.target.count) {
            queuedParts_ -= old.parts - old.partsDone;
            finish(old, Dropped, "replaced by " + e.text);
        }
    }
    entries_.append(e);
    Entry &added = entries_.last();
    if (!queueEntry(added, entries_.size())) {
        message = "write " + added.text + ": refused (" + added.detail + ")";
        return false;
    }
    message = "write " + added.text + ": queued";
    return true;
}

bool WriteTracker::queueEntry(Entry &e, int id)
{
    const VarSpec &t = e.write.target;
    const QString address = addressTextOf(t.areaType, t.address);
    // The elements inside the area: the driver cuts a write at the area's end.
    QByteArray probe;
    api_.GetRegisterData(QString(), t.areaType, address, e.station, &probe, t.count);
    const int elements = isBitArea(t.areaType) ? probe.size() : probe.size() / 2;
    const bool full = queuedParts_ >= kWriteListSize;
    QByteArray bytes = writeBytes(e.write);
    const int pending = api_.SetRegisterData(areaNameOf(t.areaType), t.areaType, address, e.station,
                                             &bytes, t.count, 0, id);
    if (pending <= 0 || full || elements <= 0) {
        finish(e, Refused,
               elements <= 0 ? "past the end of the " + areaNameOf(t.areaType) + " area"
               : full        ? "the driver's write list is full"
                             : "X and SEM cannot be written");
        return false;
    }
    const int unit = blockUnits_ > 0 ? blockUnits_ : elements;
    e.parts = isBitArea(t.areaType) ? elements : (elements + unit - 1) / unit;
    e.partsDone = 0;
    e.waiting = false;
    queuedParts_ += e.parts;
    return true;
}

void WriteTracker::finish(Entry &e, Outcome outcome, const QString &detail)
{
    static const char *const names[] = {"queued", "written", "failed", "dropped", "refused"};
    e.outcome = outcome;
    e.waiting = false;
    e.detail = detail;
    QString line = "write " + e.text + ": " + names[outcome];
    if (!detail.isEmpty())
        line += " (" + detail + ")";
    if (e.requeues > 0)
        line += QString(", queued again %1 time%2").arg(e.requeues).arg(e.requeues > 1 ? "s" : "");
    events_.append(line);
    lastEvent_ = line;
}

RW_VAR *WriteTracker::dataCom(QByteArray *reply)
{
    std::lock_guard<std::mutex> lock(mutex_);
    RW_VAR *r = api_.DataCom(reply, reply->size());
    const int code = r ? r->result : -1;
    if (code == 0 || code == -1)
        return r;  // retry pending: nothing finished
    const bool ok = code == 1 || code == 100;
    const int own =
        r->rwMode == 1 && r->ownerId >= 1 && r->ownerId <= entries_.size() ? r->ownerId - 1 : -1;
    if (own >= 0 && entries_[own].outcome == Pending && !entries_[own].waiting) {
        Entry &e = entries_[own];
        ++e.partsDone;
        --queuedParts_;
        if (!ok) {
            queuedParts_ -= e.parts - e.partsDone;
            finish(e, Failed, QString("code %1: %2").arg(code).arg(codeMeaning(code)));
        } else if (e.partsDone >= e.parts) {
            finish(e, Written, QString());
        }
    }
    for (int i = 0; i < entries_.size(); ++i) {
        Entry &e = entries_[i];
        if (i == own || e.outcome != Pending || !sameStation(e.station, r->station))
            continue;
        if (!ok && !e.waiting) {
            // The give-up took the station's pending writes with it.
            queuedParts_ -= e.parts - e.partsDone;
            if (e.requeues < requeueLimit_) {
                e.waiting = true;
                lastEvent_ = "write " + e.text +
                             ": dropped by a give-up, queued again once station " +
                             QString::number(e.station) + " answers";
                events_.append(lastEvent_);
            } else {
                finish(e, Dropped,
                       "a give-up on station " + QString::number(r->station) + " removed it");
            }
        } else if (ok && e.waiting) {
            ++e.requeues;
            queueEntry(e, i + 1);
        }
    }
    return r;
}

WriteCounts WriteTracker::counts() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    WriteCounts c;
    for (int i = 0; i < entries_.size(); ++i) {
        switch (entries_.at(i).outcome) {
        case Pending: ++c.pending; break;
        case Written: ++c.written; break;
        case Failed: ++c.failed; break;
        case Dropped: ++c.dropped; break;
        case Refused: ++c.refused; break;
        }
    }
    return c;
}

bool WriteTracker::busy() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    for (int i = 0; i < entries_.size(); ++i)
        if (entries_.at(i).outcome == Pending && !entries_.at(i).waiting)
            return true;
    return false;
}

QStringList WriteTracker::takeEvents()
{
    std::lock_guard<std::mutex> lock(mutex_);
    QStringList taken = events_;
    events_.clear();
    return taken;
}

QString WriteTracker::lastEvent() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return lastEvent_;
}

int WriteTracker::unfinished(QStringList &lines) const
{
    std::lock_guard<std::mutex> lock(mutex_);
    int n = 0;
    for (int i = 0; i < entries_.size(); ++i) {
        const Entry &e = entries_.at(i);
        if (e.outcome == Written)
            continue;
        ++n;
        if (e.outcome == Pending)
            lines << "write " + e.text +
                         (e.waiting ? ": dropped (its station never answered again)"
                                    : ": still queued");
    }
    return n;
}
