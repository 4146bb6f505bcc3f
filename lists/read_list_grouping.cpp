// The grouping pass of the read-list rebuild: word variables of the default
// station, sorted by address and merged into blocks of at most blockUnits
// registers.
#include <algorithm>
#include <climits>
#include <cstddef>
#include <vector>

#include "../driver/driver_object.h"
#include "../localarea/local_area.h"
#include "grouping_pass.h"
#include "read_list_passes.h"

namespace {

// Runs of a request list, as the merge sees them.
struct RequestRuns {
    const QList<RW_VAR> &list;
    int size() const { return list.size(); }
    int address(int i) const { return list.at(i).address; }
    int count(int i) const { return list.at(i).count; }
    RW_VAR request(int i) const { return list.at(i); }
};

// Sorted spans of the runtime's variables of one area under one station.
struct VariableRuns {
    const std::vector<Span> &spans;
    const QList<VarInfo> &vars;
    const RW_VAR &tmpl;
    int station;
    int size() const { return int(spans.size()); }
    int address(int i) const { return spans[i].address; }
    int count(int i) const { return spans[i].count; }
    RW_VAR request(int i) const
    {
        const Span &s = spans[i];
        return requestFor(tmpl, vars.at(s.item), station, s.address, s.count);
    }
};

// Merges sorted runs into blocks of at most `limit` units and appends them
// to readList. A full request is made only when a block starts.
template <class Runs>
void mergeSortedRuns(const Runs &runs, int limit)
{
    // Without a block limit there is no safe block size to merge into.
    if (runs.size() < 1 || limit < 1)
        return;
    RW_VAR cur = runs.request(0);
    addressAdd(cur, limit, false);
    for (int i = 1; i < runs.size(); ++i) {
        if (cur.count == 0) {
            cur = runs.request(i);
            continue;
        }
        const long long start = cur.address;
        const long long end = start + cur.count;
        const long long next = runs.address(i);
        if (next <= end || next <= start + limit) {
            // Reading the gap costs less than another frame. A current block
            // of negative count is merged into like any other.
            const long long merged = std::max(end, next + runs.count(i)) - start;
            cur.count = merged > INT_MAX ? INT_MAX : int(merged);
        } else {
            addressAdd(cur, limit, true);
            cur = runs.request(i);
        }
    }
    addressAdd(cur, limit, true);
}

}  // namespace

void Bubble_Sort(QList<RW_VAR> *list)
{
    if (!list || list->size() < 2)
        return;
    const int n = list->size();
    std::vector<Span> order(n);
    for (int i = 0; i < n; ++i) {
        Span s = {list->at(i).address, 0, i};
        order[i] = s;
    }
    sortByAddress(order);
    QList<RW_VAR> sorted;
    sorted.reserve(n);
    for (int i = 0; i < n; ++i)
        sorted.append(list->at(order[i].item));
    *list = sorted;
}

void addressAdd(RW_VAR &var, int pieceSize, bool appendRemainder)
{
    if (pieceSize >= 1) {
        for (long long k = 0; var.count >= pieceSize; ++k) {
            if (k == MaxPieces) {
                var.count = 0;  // the memory guard: the rest is not cut
                break;
            }
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
    if (!list)
        return;
    const RequestRuns runs = {*list};
    mergeSortedRuns(runs, limit);
}

void groupingPass(const std::vector<Polled> &polled, const QList<VarInfo> &vars, const RW_VAR &tmpl,
                  int defaultStation, int blockUnits)
{
    // Bit variables are left to the final pass, which emits them in the
    // byte units the read frames take, and types above 25 name no area to
    // group; without a limit nothing is merged.
    if (defaultStation == 0 || blockUnits < 1)
        return;
    std::vector<Span> groups[AreaTypeCount];
    for (std::size_t i = 0; i < polled.size(); ++i) {
        const Polled &p = polled[i];
        if (p.readable && isWordArea(p.areaType)) {
            const Span s = {p.address, p.count, int(i)};
            groups[p.areaType].push_back(s);
        }
    }
    for (int type = FirstWordArea; type < AreaTypeCount; ++type) {
        sortByAddress(groups[type]);
        const VariableRuns runs = {groups[type], vars, tmpl, defaultStation};
        mergeSortedRuns(runs, blockUnits);
    }
}
