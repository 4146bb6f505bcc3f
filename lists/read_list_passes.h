// The passes that rebuild the cyclic read list, and the two rules they share
// about which variables can be read and how far a request may reach. All of
// it runs inside ReCreatReadVarList with listMutex held; none of it locks.
#ifndef QUORVEL_RV_READ_LIST_PASSES_H
#define QUORVEL_RV_READ_LIST_PASSES_H

#include <QList>

#include "../driver/records.h"

// Parses the variable's address and cuts its extent [address, address+count)
// (bits or registers) to its area. False when there is nothing to read: no
// such area (type above 25), a negative address, a count below 1, or a start
// at or past the area's end.
bool readableVariable(const VarInfo &item, int &address, int &count);

// Cuts a request in frame units (bit areas: bit address and bytes; word
// areas: registers) so that it ends inside its area. False when nothing of
// it is left.
bool fitRequestToArea(RW_VAR &request);

// The block request every pass starts from: owner 0/-1, read, this
// rebuild's link fields, empty value.
RW_VAR blockTemplate(const ComInfo &info);

// Word variables under the default station, merged and cut to blockUnits.
void groupingPass(const QList<VarInfo> &vars, const RW_VAR &tmpl, int defaultStation,
                  int blockUnits);

// Every variable from its own station, cut but not merged, no repeats.
// Returns the number of entries in readList.
int perVariablePass(const QList<VarInfo> &vars, const RW_VAR &tmpl, int blockUnits);

// Every variable from the default station, cut, sorted and merged per area.
// Returns what the last append reported, or 0.
int singleStationPass(const QList<VarInfo> &vars, const RW_VAR &tmpl, int defaultStation,
                      int blockUnits);

#endif
