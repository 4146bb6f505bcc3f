// ReCreatReadVarList and its two final passes: the per-variable pass for
// several stations and the single-station pass that merges per area.
#include <climits>

#include <QSet>

#include "../driver/driver_object.h"
#include "../driver/locks.h"
#include "../localarea/local_area.h"
#include "lists.h"
#include "read_list_passes.h"

namespace {

// Identity of a cyclic read: the per-variable pass adds no request twice.
struct ReadKey {
    int station;
    int areaType;
    int address;
    int count;
};

inline bool operator==(const ReadKey &a, const ReadKey &b)
{
    return a.station == b.station && a.areaType == b.areaType && a.address == b.address &&
           a.count == b.count;
}

inline uint qHash(const ReadKey &k)
{
    uint h = uint(k.station) * 0x9E3779B1u;
    h ^= uint(k.areaType) + 0x7F4A7C15u + (h << 6) + (h >> 2);
    h ^= uint(k.address) + 0x85EBCA6Bu + (h << 6) + (h >> 2);
    h ^= uint(k.count) + 0xC2B2AE35u + (h << 6) + (h >> 2);
    return h;
}

ReadKey keyOf(const RW_VAR &v)
{
    ReadKey k = {v.station, v.areaType, v.address, v.count};
    return k;
}

// Pieces of `total` units of at most `size` each; a size below 1 means no
// cutting. A total below 1 has no piece.
long long pieceCount(long long total, long long size)
{
    if (total < 1)
        return 0;
    if (size < 1)
        return 1;
    return total / size + (total % size ? 1 : 0);
}

bool isBitName(const QString &name)
{
    static const char *const names[] = {"X",  "Y",  "M",  "S",  "T",  "C",   "ET",
                                        "SM", "HM", "HS", "HT", "HC", "HSC", "SEM"};
    for (unsigned i = 0; i < sizeof names / sizeof names[0]; ++i)
        if (name == QLatin1String(names[i]))
            return true;
    return false;
}

// Opens a new block in readList from one piece in bits: whole bytes from
// the byte that holds the piece's first bit.
int appendBitBlock(const RW_VAR &piece)
{
    RW_VAR block = piece;
    block.address = piece.address & ~7;
    block.count = int(((long long)(piece.address & 7) + piece.count + 7) / 8);
    return AddListReadVar(&block);
}

// Merges one area's sorted pieces into blocks appended to readList.
// X and Y never join pieces of different 64-element groups into one block.
int mergeArea(const QList<RW_VAR> &pieces, int areaType, int blockUnits, int last)
{
    const bool bits = isBitArea(areaType);
    const bool grouped = areaType == 0 || areaType == 1;
    const long long limit = bits ? 8LL * blockUnits : blockUnits;
    QList<RW_VAR> &readList = PLC_driver.readList;
    int block = -1;
    for (int i = 0; i < pieces.size(); ++i) {
        const RW_VAR &p = pieces.at(i);
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
                        b.count = int((e - B + 7) / 8);
                } else {
                    open = !sameGroup;
                }
            } else if (!(E > a && E >= e)) {
                if (e - B > limit)
                    open = true;
                else
                    b.count = int(bits ? (e - B + 7) / 8 : e - B);
            }
            if (!open)
                continue;
        }
        if (bits) {
            last = appendBitBlock(p);
        } else {
            RW_VAR copy = p;
            last = AddListReadVar(&copy);
        }
        block = readList.size() - 1;
    }
    return last;
}

}  // namespace

void WhetherGroup(int total, int pieceSize, RW_VAR *var, QList<RW_VAR> *list)
{
    if (!var || !list)
        return;
    const long long n = pieceCount(total, pieceSize);
    const long long start = var->address;
    const long long size = pieceSize < 1 ? total : pieceSize;
    for (long long k = 0; k < n; ++k) {
        const long long address = start + k * size;
        if (address > INT_MAX)
            break;
        var->address = int(address);
        var->count = int(k == n - 1 ? total - k * size : size);
        list->append(*var);
    }
}

int perVariablePass(const QList<VarInfo> &vars, const RW_VAR &tmpl, int blockUnits)
{
    QList<RW_VAR> &readList = PLC_driver.readList;
    // What readList holds already, so a repeat is found without a scan.
    QSet<ReadKey> present;
    for (int i = 0; i < readList.size(); ++i)
        present.insert(keyOf(readList.at(i)));
    // A variable cut exactly like an earlier one only gives repeats.
    QSet<ReadKey> variablesDone;
    for (int i = 0; i < vars.size(); ++i) {
        const VarInfo &item = vars.at(i);
        int a, count;
        if (!readableVariable(item, a, count))
            continue;
        long long start = a;
        long long total = count;
        bool byBytes = false;
        if (isBitArea(item.areaType)) {
            start = a & ~7;
            total = ((a & 7) + (long long)count + 7) / 8;
            byBytes = true;
        }
        if (isBitName(item.areaName)) {
            // Bit variables named as such read one byte more than they need.
            start = a & ~7;
            total = ((a & 7) + (long long)count) / 8 + 1;
            byBytes = true;
        } else if (item.areaName != QLatin1String("FS")) {
            start = a;
            total = count;
        }
        // Totals never exceed an area's size, so the sign can carry the step.
        const ReadKey variableKey = {item.station, item.areaType, int(start),
                                     byBytes ? -int(total) : int(total)};
        if (variablesDone.contains(variableKey))
            continue;
        variablesDone.insert(variableKey);

        RW_VAR piece = tmpl;
        piece.station = item.station;
        piece.areaName = item.areaName;
        piece.addressText = item.addressText;
        piece.areaType = item.areaType;
        const long long n = pieceCount(total, blockUnits);
        const long long size = blockUnits < 1 ? total : blockUnits;
        for (long long k = 0; k < n; ++k) {
            piece.address = int(start + (byBytes ? 8 : 1) * k * size);
            piece.count = int(k == n - 1 ? total - k * size : size);
            if (!fitRequestToArea(piece))
                break;
            const ReadKey key = keyOf(piece);
            if (present.contains(key))
                continue;
            present.insert(key);
            readList.append(piece);
        }
    }
    return readList.size();
}

int singleStationPass(const QList<VarInfo> &vars, const RW_VAR &tmpl, int defaultStation,
                      int blockUnits)
{
    // One block limit in bits never needs more than an int: no variable is
    // longer than its area.
    const int bitLimit =
        blockUnits < 1 ? 0 : (blockUnits > INT_MAX / 8 ? INT_MAX : 8 * blockUnits);
    QList<RW_VAR> pieces[AreaTypeCount];
    for (int i = 0; i < vars.size(); ++i) {
        const VarInfo &item = vars.at(i);
        int a, count;
        if (!readableVariable(item, a, count))
            continue;
        RW_VAR v = tmpl;
        v.station = defaultStation;
        v.areaName = item.areaName;
        v.addressText = item.addressText;
        v.areaType = item.areaType;
        v.address = a;
        v.count = count;
        WhetherGroup(count, isBitArea(item.areaType) ? bitLimit : blockUnits, &v,
                     &pieces[item.areaType]);
    }
    int last = 0;
    for (int type = 0; type < AreaTypeCount; ++type) {
        if (pieces[type].isEmpty())
            continue;
        Bubble_Sort(&pieces[type]);
        last = mergeArea(pieces[type], type, blockUnits, last);
    }
    return last;
}

extern "C" int ReCreatReadVarList(QList<VarInfo> *vars)
{
    Quorvel_RV_Series &d = PLC_driver;
    MutexHold hold(d.listMutex);
    d.readList = QList<RW_VAR>();
    ComInfo *info = d.comInfo;
    if (!vars || vars->isEmpty() || !info)
        return 0;
    d.scanCounter = 0;
    info->scanComplete = 0;
    const RW_VAR tmpl = blockTemplate(*info);
    const int blockUnits = info->blockUnits;
    const int defaultStation = info->defaultStation;
    groupingPass(*vars, tmpl, defaultStation, blockUnits);
    if (info->multiStation != 0)
        return perVariablePass(*vars, tmpl, blockUnits);
    return singleStationPass(*vars, tmpl, defaultStation, blockUnits);
}
