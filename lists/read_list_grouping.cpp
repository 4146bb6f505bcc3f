// The grouping pass of the read-list rebuild: word variables of the default
// station, sorted by address and merged into blocks of at most blockUnits
// registers.
#include <algorithm>
#include <climits>
#include <utility>
#include <vector>

#include "../driver/driver_object.h"
#include "../localarea/local_area.h"
#include "lists.h"
#include "read_list_passes.h"

namespace {

int toInt(long long v)
{
    return v > INT_MAX ? INT_MAX : (v < INT_MIN ? INT_MIN : int(v));
}

}  // namespace

void Bubble_Sort(QList<RW_VAR> *list)
{
    if (!list || list->size() < 2)
        return;
    // Ordering (address, position) keeps equal addresses in input order,
    // which is exactly the order adjacent swaps would leave, in n log n.
    const int n = list->size();
    std::vector<std::pair<int, int> > order(n);
    for (int i = 0; i < n; ++i)
        order[i] = std::make_pair(list->at(i).address, i);
    std::sort(order.begin(), order.end());
    QList<RW_VAR> sorted;
    sorted.reserve(n);
    for (int i = 0; i < n; ++i)
        sorted.append(list->at(order[i].second));
    *list = sorted;
}

void addressAdd(RW_VAR &var, int pieceSize, bool appendRemainder)
{
    if (pieceSize >= 1) {
        while (var.count >= pieceSize) {
            RW_VAR piece = var;
            piece.count = pieceSize;
            PLC_driver.readList.append(piece);
            var.count -= pieceSize;
            if (var.address > INT_MAX - pieceSize) {
                // No element lies past the largest address: nothing more to cut.
                var.count = 0;
                break;
            }
            var.address += pieceSize;
        }
    }
    if (appendRemainder && var.count > 0)
        PLC_driver.readList.append(var);
}

void BitVarReCreat(QList<RW_VAR> *list, int limit)
{
    // Without a block limit there is no safe block size to merge into.
    if (!list || list->isEmpty() || limit < 1)
        return;
    RW_VAR cur = list->at(0);
    addressAdd(cur, limit, false);
    for (int i = 1; i < list->size(); ++i) {
        const RW_VAR &nxt = list->at(i);
        if (cur.count <= 0) {
            cur = nxt;
            continue;
        }
        const long long start = cur.address;
        const long long end = start + cur.count;
        if (nxt.address <= end || nxt.address <= start + limit) {
            // Reading the gap costs less than another frame.
            const long long nxtEnd = (long long)nxt.address + nxt.count;
            cur.count = toInt(std::max(end, nxtEnd) - start);
        } else {
            addressAdd(cur, limit, true);
            cur = nxt;
        }
    }
    addressAdd(cur, limit, true);
}

void groupingPass(const QList<VarInfo> &vars, const RW_VAR &tmpl, int defaultStation,
                  int blockUnits)
{
    // Bit variables are left to the final pass, which emits them in the
    // byte units the read frames take; without a limit nothing is merged.
    if (defaultStation == 0 || blockUnits < 1)
        return;
    QList<RW_VAR> groups[AreaTypeCount];
    for (int i = 0; i < vars.size(); ++i) {
        const VarInfo &item = vars.at(i);
        int address, count;
        if (!isWordArea(item.areaType) || !readableVariable(item, address, count))
            continue;
        RW_VAR v = tmpl;
        v.station = defaultStation;
        v.areaName = item.areaName;
        v.addressText = item.addressText;
        v.areaType = item.areaType;
        v.address = address;
        v.count = count;
        groups[item.areaType].append(v);
    }
    for (int type = FirstWordArea; type < AreaTypeCount; ++type) {
        if (groups[type].isEmpty())
            continue;
        Bubble_Sort(&groups[type]);
        BitVarReCreat(&groups[type], blockUnits);
    }
}
