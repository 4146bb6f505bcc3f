// What the operator sees: the values of the polled elements as a table, as
// one JSON object per scan, and the values read out of the driver.
#ifndef RVPOLL_TABLE_VIEW_H
#define RVPOLL_TABLE_VIEW_H

#include <QList>
#include <QString>

#include "driver_api.h"
#include "poll_stats.h"
#include "common/varspec.h"
#include "write_tracker.h"

class ReadState;

typedef QList<QList<int>> ValueTable;  // one list of element values per variable range
const int kUnknown = -1;               // a value whose last read did not succeed

// Current values from the driver's local area (GetRegisterData): 0/1 for
// bits, 0..65535 for words, kUnknown where `state` does not know the value.
ValueTable readValues(const DriverApi &api, const QList<VarSpec> &vars, int defaultStation,
                      const ReadState &state);

// Rows of 8 words (4 32-bit values, 1 string), 8 octal bits (X, Y) or 16
// bits, each led by the name of its first element ("2:D8" with stations
// shown), in each range's format; unknown values as "--" ("?" for bits).
QString renderTable(const QList<VarSpec> &vars, const ValueTable &values, bool showStation);

// One CSV row per scan: time, scan and each value (empty when unknown,
// strings quoted); with `header` the line of names first.
QString renderCsv(const QList<VarSpec> &vars, const ValueTable &values, long long scan,
                  bool showStation, bool header);

// One line: {"scan":N,"scan_ms":..,...,"values":{"D0":1,"D1":null,
// "D50:uint32":..},"problems":[...],"line":{per station},"writes":{...},
// "write_events":[...]}. A value in a format other than uint16 carries the
// format in its key, so no key repeats.
QString renderJson(const QList<VarSpec> &vars, const ValueTable &values, const PollStats &stats,
                   bool showStation, const QStringList &problems, const WriteCounts *writes,
                   const QStringList &writeEvents, const QString &lineJson);

#endif
