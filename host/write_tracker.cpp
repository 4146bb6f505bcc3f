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

QString WriteTracker::replacedBy(const Entry &newer)
{
    return "replaced by a newer write, " + newer.text + ", before it landed";
}

bool WriteTracker::overlap(const Entry &a, const Entry &b)
{
    const VarSpec &x = a.write.target, &y = b.write.target;
    return a.station == b.station && x.areaType == y.areaType && x.address < y.address + y.count &&
           y.address < x.address + x.count;
}

bool WriteTracker::queue(const WriteSpec &w, QString &message)
{
    std::lock_guard<std::mutex> lock(mutex_);
    Entry e;
    e.write = w;
    e.text = w.text;
    e.station = w.target.station ? w.target.station : defaultStation_;
    entries_.append(e);
    const int index = entries_.size() - 1;
    // An older write to the same elements must not land after this one: one
    // waiting to be queued again is replaced now; one still in the driver's
    // list lands first or is replaced there, which its missing result tells.
    for (int i = 0; i < index; ++i) {
        Entry &old = entries_[i];
        if (old.outcome != Pending || !overlap(old, entries_[index]))
            continue;
        if (old.waiting)
            finish(old, Dropped, replacedBy(e));
        else
            old.newer = index;
    }
    Entry &added = entries_[index];
    if (!queueEntry(added, index + 1)) {
        message = "write " + added.text + ": refused (" + added.detail + ")";
        return false;
    }
    message = "write " + added.text + ": queued";
    return true;
}

void WriteTracker::closeReplaced(int index)
{
    for (int i = 0; i < index; ++i) {
        Entry &old = entries_[i];
        if (old.outcome == Pending && old.newer == index) {
            queuedParts_ -= old.parts - old.partsDone;
            finish(old, Dropped, replacedBy(entries_.at(index)));
        }
    }
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
    if (full || elements <= 0 || !takesQueuedWrite(t.areaType)) {
        finish(e, Refused,
               full            ? "the driver's write list is full"
               : elements <= 0 ? "past the end of the " + areaNameOf(t.areaType) + " area"
                               : "X and SEM cannot be written");
        return false;
    }
    QByteArray bytes = writeBytes(e.write);
    // The driver gives a queued write its own link number; for another
    // link, the number is swapped in for the call. DataCom, the one reader
    // of it, runs under the same lock.
    const int ownLink = info_ ? info_->localLinkNo : 0;
    if (info_)
        info_->localLinkNo = linkNo_;
    const int queued = api_.SetRegisterData(areaNameOf(t.areaType), t.areaType, address, e.station,
                                            &bytes, t.count, 0, id);
    if (info_)
        info_->localLinkNo = ownLink;
    if (queued <= 0) {
        finish(e, Refused, "the driver did not queue it");
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
    static const char *const names[] = {"queued",  "written", "failed",
                                        "dropped", "refused", "not confirmed"};
    e.outcome = outcome;
    e.waiting = false;
    e.detail = detail;
    e.endedAt = std::chrono::steady_clock::now();
    QString line = "write " + e.text + ": " + names[outcome];
    if (!detail.isEmpty())
        line += " (" + detail + ")";
    if (e.requeues > 0)
        line += QString(", queued again %1 time%2").arg(e.requeues).arg(e.requeues > 1 ? "s" : "");
    events_.append(line);
    lastEvent_ = line;
}

RW_VAR *WriteTracker::dataCom(QByteArray *reply, const QString &line)
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
            // An echo that could be a stray copy, not confirmed by reading
            // the written elements back: whether it landed is not known.
            // The controller's refusal is its own, not a wrong length.
            const QString detail =
                line.startsWith("exception")
                    ? "refused by the controller: " + line + QString("; driver code %1").arg(code)
                    : (line.isEmpty() ? QString() : line + ", ") +
                          QString("code %1: %2").arg(code).arg(codeMeaning(code));
            finish(e, line.startsWith("not confirmed") ? NotConfirmed : Failed, detail);
        } else if (e.partsDone >= e.parts) {
            finish(e, Written,
                   e.station == 0 ? "broadcast: every station takes it, none answers" : QString());
        }
        if (e.outcome != Pending)
            closeReplaced(own);
    }
    for (int i = 0; i < entries_.size(); ++i) {
        Entry &e = entries_[i];
        if (i == own || e.outcome != Pending || !sameStation(e.station, r->station))
            continue;
        if (!ok && !e.waiting) {
            // The give-up took the station's pending writes with it.
            queuedParts_ -= e.parts - e.partsDone;
            if (e.newer >= 0) {
                finish(e, Dropped, replacedBy(entries_.at(e.newer)));
            } else if (e.requeues < requeueLimit_) {
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
        case Failed:
        case NotConfirmed: ++c.failed; break;
        case Dropped: ++c.dropped; break;
        case Refused: ++c.refused; break;
        }
    }
    return c;
}

QList<UnsettledWrite> WriteTracker::unsettled() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    QList<UnsettledWrite> list;
    for (int i = 0; i < entries_.size(); ++i) {
        const Entry &e = entries_.at(i);
        if (e.outcome == Written || e.outcome == Refused)
            continue;
        UnsettledWrite u;
        u.station = e.station;
        u.areaType = e.write.target.areaType;
        u.address = e.write.target.address;
        u.count = e.write.target.count;
        u.pending = e.outcome == Pending;
        u.endedAt = e.endedAt;
        list.append(u);
    }
    return list;
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
