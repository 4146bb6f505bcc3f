// ReCreatReadVarList and its two final passes: the per-variable pass for
// several stations and the single-station pass that merges per area.
#include <climits>
#include <cstddef>
#include <vector>

#include "../driver/driver_object.h"
#include "../driver/locks.h"
#include "../localarea/local_area.h"
#include "grouping_pass.h"
#include "prefetch.h"
#include "read_key_set.h"
#include "read_list_passes.h"

namespace {

// The shared text blocks a request copied from the variable will count a
// reference in.
void prefetchTexts(const VarInfo &item)
{
    prefetch(const_cast<QString &>(item.areaName).data_ptr());
    prefetch(const_cast<QString &>(item.addressText).data_ptr());
}

// The smallest whole number of bytes at or above `bits` / 8, for any sign.
long long ceilBytes(long long bits)
{
    return bits >= 0 ? (bits + 7) / 8 : -(-bits / 8);
}

// Merges one area's sorted pieces into blocks appended to readList; a block
// starts as a full request made from the piece's variable. X and Y never
// join pieces of different 64-element groups into one block. Pieces and
// blocks of any count, 0 and below too, follow the same comparisons.
int mergeArea(const std::vector<Span> &pieces, const QList<VarInfo> &vars, const RW_VAR &tmpl,
              int station, int areaType, int blockUnits, int last)
{
    const bool bits = isBitArea(areaType);
    const bool grouped = isOctalArea(areaType);
    const long long limit = bits ? 8LL * blockUnits : blockUnits;
    QList<RW_VAR> &readList = PLC_driver.readList;
    int block = -1;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const Span &p = pieces[i];
        if (block >= 0) {
            RW_VAR &b = readList[block];
            const long long a = p.address;
            const long long e = a + p.count;
            const long long B = b.address;
            const long long E = bits ? B + 8LL * b.count : B + b.count;
            const bool sameGroup = (a >> 6) == (B >> 6);
            bool open = false;
            if (grouped) {
                if (e > E) {
                    if (e - B > limit || !sameGroup)
                        open = true;
                    else
                        b.count = int(ceilBytes(e - B));
                } else {
                    open = !sameGroup;
                }
            } else if (!(E > a && E >= e)) {
                if (e - B > limit)
                    open = true;
                else
                    b.count = int(bits ? ceilBytes(e - B) : e - B);
            }
            if (!open)
                continue;
        }
        // A bit block reads whole bytes from the byte holding the first bit.
        RW_VAR blockRequest =
            requestFor(tmpl, vars.at(p.item), station, bits ? p.address & ~7 : p.address,
                       bits ? int(ceilBytes((p.address & 7) + (long long)p.count)) : p.count);
        last = AddListReadVar(&blockRequest);
        block = readList.size() - 1;
    }
    return last;
}

// One piece the per-variable pass would append, with its packed identity.
struct Piece {
    unsigned long long key;
    int item, address, count;
};

// The bytes holding `count` bits from bit `a`, as the per-variable pass
// counts them: (a mod 8 + count) / 8, one more for a part byte, or always
// one more (`extraByte`, for a variable named as a bit area).
long long variableBytes(int a, int count, bool extraByte)
{
    const long long bits = (a & 7) + (long long)count;
    return bits / 8 + (extraByte || bits % 8 ? 1 : 0);
}

// Every piece the variables ask for, in list order, before the check for
// repeats: that check then knows its keys ahead and can fetch their slots
// early.
std::vector<Piece> variablePieces(const std::vector<Polled> &polled, int blockUnits)
{
    std::vector<Piece> pieces;
    pieces.reserve(polled.size());
    ReadKeySet variablesDone(0);
    for (std::size_t i = 0; i < polled.size(); ++i) {
        const Polled &item = polled[i];
        if (!item.readable)
            continue;
        const int a = item.address, count = item.count;
        // Type rule, then name rule; a type above 25 takes the word rule.
        long long start = a;
        long long total = count;
        bool byBytes = false;
        if (isBitArea(item.areaType)) {
            start = a & ~7;
            total = variableBytes(a, count, false);
            byBytes = true;
        }
        if (item.bitName) {
            // Bit variables named as such read one byte more than they need.
            start = a & ~7;
            total = variableBytes(a, count, true);
            byBytes = true;
        } else if (!item.fsName) {
            start = a;
            total = count;
        }
        // A variable cut into several pieces exactly like an earlier one only
        // gives repeats: skip it whole. Byte stepping is told apart by an
        // area type moved past the real ones.
        if (blockUnits >= 1 && total > blockUnits &&
            !variablesDone.insert(item.station, item.areaType + (byBytes ? 256 : 0), int(start),
                                  int(total)))
            continue;

        cutPieces(start, byBytes ? 8 : 1, total, blockUnits, [&](int address, int size) {
            const Piece p = {ReadKeySet::key(item.station, item.areaType, address, size), int(i),
                             address, size};
            pieces.push_back(p);
            return true;
        });
    }

    return pieces;
}

}  // namespace

void WhetherGroup(int total, int pieceSize, RW_VAR *var, QList<RW_VAR> *list)
{
    if (!var || !list)
        return;
    cutPieces(var->address, 1, total, pieceSize, [&](int address, int count) {
        var->address = address;
        var->count = count;
        list->append(*var);
        return true;
    });
}

int perVariablePass(const std::vector<Polled> &polled, const QList<VarInfo> &vars,
                    const RW_VAR &tmpl, int blockUnits)
{
    const std::vector<Piece> pieces = variablePieces(polled, blockUnits);
    QList<RW_VAR> &readList = PLC_driver.readList;
    // What readList holds already, so a repeat is found without a scan.
    ReadKeySet present(std::size_t(readList.size()) + pieces.size());
    for (int i = 0; i < readList.size(); ++i) {
        const RW_VAR &v = readList.at(i);
        present.insert(v.station, v.areaType, v.address, v.count);
    }
    // Slots, variables and their texts are fetched a few pieces ahead: with
    // tens of thousands of variables they are rarely in the cache.
    const std::size_t ahead = 16;
    for (std::size_t k = 0; k < pieces.size(); ++k) {
        if (k + ahead < pieces.size()) {
            present.prefetch(pieces[k + ahead].key);
            prefetch(&vars.at(pieces[k + ahead].item));
        }
        if (k + ahead / 2 < pieces.size())
            prefetchTexts(vars.at(pieces[k + ahead / 2].item));
        const Piece &p = pieces[k];
        const Polled &item = polled[std::size_t(p.item)];
        if (present.insert(item.station, item.areaType, p.address, p.count)) {
            // Filled in place: the texts are shared once instead of copied
            // through a temporary.
            readList.append(tmpl);
            describeRequest(readList.last(), vars.at(p.item), item.station, p.address, p.count);
        }
    }
    return readList.size();
}

int singleStationPass(const std::vector<Polled> &polled, const QList<VarInfo> &vars,
                      const RW_VAR &tmpl, int defaultStation, int blockUnits)
{
    std::vector<Span> pieces[AreaTypeCount];
    for (std::size_t i = 0; i < polled.size(); ++i) {
        const Polled &item = polled[i];
        if (!item.readable || !isArea(item.areaType))
            continue;
        std::vector<Span> &list = pieces[item.areaType];
        cutPieces(item.address, 1, item.count,
                  isBitArea(item.areaType) ? 8LL * blockUnits : blockUnits,
                  [&](int address, int size) {
                      const Span s = {address, size, int(i)};
                      list.push_back(s);
                      return true;
                  });
    }
    int last = 0;
    for (int type = 0; type < AreaTypeCount; ++type) {
        sortByAddress(pieces[type]);
        last = mergeArea(pieces[type], vars, tmpl, defaultStation, type, blockUnits, last);
    }
    return last;
}

extern "C" int ReCreatReadVarList(QList<VarInfo> *vars)
{
    Quorvel_RV_Series &d = PLC_driver;
    // The old list is freed after the lock is released: the polling thread
    // need not wait for tens of thousands of requests to be let go.
    QList<RW_VAR> old;
    MutexHold hold(d.listMutex);
    old.swap(d.readList);
    ComInfo *info = d.comInfo;
    if (!vars || vars->isEmpty() || !info)
        return 0;
    d.scanCounter = 0;
    info->scanComplete = 0;
    const RW_VAR tmpl = blockTemplate(*info);
    const int blockUnits = info->blockUnits;
    const int defaultStation = info->defaultStation;
    const bool multi = info->multiStation != 0;
    const std::vector<Polled> polled = pollVariables(*vars, multi);
    groupingPass(polled, *vars, tmpl, defaultStation, blockUnits);
    if (multi)
        return perVariablePass(polled, *vars, tmpl, blockUnits);
    return singleStationPass(polled, *vars, tmpl, defaultStation, blockUnits);
}
