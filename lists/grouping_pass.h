// The grouping pass of the cyclic read-list rebuild and its helpers, as the
// runtime's layout exports them.
#ifndef QUORVEL_RV_GROUPING_PASS_H
#define QUORVEL_RV_GROUPING_PASS_H

#include <QList>

#include "../driver/export.h"
#include "../driver/records.h"

// Grouping pass and its helpers; run with listMutex held.
RV_EXPORT void Bubble_Sort(QList<RW_VAR> *list);
RV_EXPORT void BitVarReCreat(QList<RW_VAR> *list, int limit);
RV_EXPORT void addressAdd(RW_VAR &var, int pieceSize, bool appendRemainder);
RV_EXPORT void WhetherGroup(int total, int pieceSize, RW_VAR *var, QList<RW_VAR> *list);

#endif
