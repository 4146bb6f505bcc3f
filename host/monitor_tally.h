// What a listener has heard so far: each station's exchanges counted by
// outcome with reply times (the poll's own line counts, so both read
// alike), noise and stray replies, every element with its last value and
// when it came, and how often each block is read: the panel's poll cycle.
#ifndef RVPOLL_MONITOR_TALLY_H
#define RVPOLL_MONITOR_TALLY_H

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include "line_stats.h"
#include "monitor_decode.h"

class MonitorTally {
public:
    void note(const rvlink::BusExchange &x, const HeardExchange &h);

    // The live screen: counts, the blocks with their cycle, every element
    // with its value and age at `nowUs`, in `maxRows` rows of `width` columns.
    QString screen(long long nowUs, int maxRows, int width) const;
    // The end of a run: a line per station, then noise, then a line per block.
    QString summary() const;
    // {"summary":true,"exchanges":..,"noise":..,"stations":{..},"blocks":{..}}
    QString json() const;

    long long exchanges() const { return exchanges_; }

private:
    struct Seen {
        int value = 0;
        long long atUs = 0;
    };
    struct Block {
        long long reads = 0, firstUs = 0, lastUs = 0;
        double longestMs = 0;  // the longest time between two reads
        double cycleMs() const
        {
            return reads > 1 ? (lastUs - firstUs) / 1000.0 / (reads - 1) : -1;
        }
    };

    QString countsLine() const;

    LineStats line_;
    long long exchanges_ = 0, broadcasts_ = 0, noise_ = 0, noiseBytes_ = 0, stray_ = 0;
    QList<int> heardStations_;
    QStringList elementOrder_;  // "1:D0", in the order first heard
    QHash<QString, Seen> elements_;
    QStringList blockOrder_;
    QHash<QString, Block> blocks_;
};

#endif
