// ReCreatReadVarList and its two final passes: the per-variable pass for
// several stations and the single-station pass that merges per area.
#include <climits>
#include <cstddef>
#include <vector>


#include "../driver/driver_object.h"
#include "../driver/locks.h"
#include "../localarea/local_area.h"
#include "lists.h"
#include "read_key_set.h"
#include "read_list_passes.h"

namespace {

bool addIdentity(ReadKeySet &set, const RW_VAR &v)
{
    return set.insert(v.station, v.areaType, v.address, v.count);
}

bool isBitName(const QString &name)
{
    // Made once: comparing whole QStrings checks their lengths first.
    static const QString names[] = {
        QString::fromLatin1("X"),  QString::fromLatin1("Y"),  QString::fromLatin1("M"),
        QString::fromLatin1("S"),  QString::fromLatin1("T"),  QString::fromLatin1("C"),
        QString::fromLatin1("ET"), QString::fromLatin1("SM"), QString::fromLatin1("HM"),
        QString::fromLatin1("HS"), QString::fromLatin1("HT"), QString::fromLatin1("HC"),
        QString::fromLatin1("HSC"), QString::fromLatin1("SEM")};
    if (name.size() > 3)
        return false;
    for (unsigned i = 0; i < sizeof names / sizeof names[0]; ++i)
        if (name == names[i])
            return true;
    return false;
}

// Merges one area's sorted pieces into blocks appended to readList; a block
// starts as a full request made from the piece's variable. X and Y never
// join pieces of different 64-element groups into one block.
int mergeArea(const std::vector<Span> &pieces, const QList<VarInfo> &vars, const RW_VAR &tmpl,
              int station, int areaType, int blockUnits, int last)
{
    const bool bits = isBitArea(areaType);
    const bool grouped = areaType == 0 || areaType == 1;
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
        // A bit block reads whole bytes from the byte holding the first bit.
        RW_VAR blockRequest = requestFor(tmpl, vars.at(p.item), station,
                                         bits ? p.address & ~7 : p.address,
                                         bits ? int(((p.address & 7) + (long long)p.count + 7) / 8)
                                              : p.count);
        last = AddListReadVar(&blockRequest);
        block = readList.size() - 1;
    }
    return last;
}

}  // namespace

void WhetherGroup(int total, int pieceSize, RW_VAR *var, QList<RW_VAR> *list)
{
    if (!var || !list)
        return;
    const long long start = var->address;
    cutPieces(total, pieceSize, [&](long long offset, long long count) {
        if (start + offset > INT_MAX)
            return false;
        var->address = int(start + offset);
        var->count = int(count);
        list->append(*var);
        return true;
    });
}

int perVariablePass(const QList<VarInfo> &vars, const RW_VAR &tmpl, int blockUnits)
{
    QList<RW_VAR> &readList = PLC_driver.readList;
    // What readList holds already, so a repeat is found without a scan.
    ReadKeySet present(std::size_t(readList.size()) + vars.size());
    for (int i = 0; i < readList.size(); ++i)
        addIdentity(present, readList.at(i));
    ReadKeySet variablesDone(0);
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
        // A variable cut into several pieces exactly like an earlier one only
        // gives repeats: skip it whole. Byte stepping is told apart by an
        // area type moved past the real ones.
        if (blockUnits >= 1 && total > blockUnits &&
            !variablesDone.insert(item.station, item.areaType + (byBytes ? 32 : 0), int(start),
                                  int(total)))
            continue;

        RW_VAR piece = requestFor(tmpl, item, item.station, 0, 0);
        const int step = byBytes ? 8 : 1;
        cutPieces(total, blockUnits, [&](long long offset, long long size) {
            piece.address = int(start + step * offset);
            piece.count = int(size);
            if (!fitRequestToArea(piece))
                return false;  // later pieces lie further past the end
            if (addIdentity(present, piece))
                readList.append(piece);
            return true;
        });
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
    std::vector<Span> pieces[AreaTypeCount];
    for (int i = 0; i < vars.size(); ++i) {
        const VarInfo &item = vars.at(i);
        int a, count;
        if (!readableVariable(item, a, count))
            continue;
        std::vector<Span> &list = pieces[item.areaType];
        cutPieces(count, isBitArea(item.areaType) ? bitLimit : blockUnits,
                  [&](long long offset, long long size) {
                      const Span s = {int(a + offset), int(size), i};
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
