// Rebuilding the cyclic read list: worked examples of both final passes,
// hostile variable lists, and the fast passes against a plain quadratic
// transcription on random lists.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <utility>
#include <vector>

#include "lists/lists.h"
#include "lists/read_list_passes.h"
#include "localarea/local_area.h"
#include "support/driver_reset.h"

namespace {

const char *const areaNames[] = {"X",  "Y",  "M",  "S",   "T",   "C",  "ET", "SM", "HM",
                                 "HS", "HT", "HC", "HSC", "SEM", "D",  "TD", "CD", "FD",
                                 "ETD", "SD", "HD", "SFD", "ID",  "QD", "HSD", "FS"};

VarInfo var(int areaType, const QString &address, int count, int station = 1)
{
    VarInfo v;
    v.areaType = (unsigned char)areaType;
    v.station = (unsigned char)station;
    v.addressText = address;
    v.areaName = QString::fromLatin1(areaType < 26 ? areaNames[areaType] : "?");
    v.count = count;
    return v;
}

VarInfo var(int areaType, int address, int count, int station = 1)
{
    return var(areaType, QString::number(address, areaType <= 1 ? 8 : 10), count, station);
}

// (station, address, count) of every entry from `from` on.
std::vector<std::vector<int> > blocks(int from = 0)
{
    std::vector<std::vector<int> > out;
    const QList<RW_VAR> &r = PLC_driver.readList;
    for (int i = from; i < r.size(); ++i)
        out.push_back({r.at(i).station, r.at(i).address, r.at(i).count});
    return out;
}

typedef std::vector<std::vector<int> > Blocks;

class ReadList : public ::testing::Test {
protected:
    void SetUp() override { info = resetDriver(); }
    ComInfo *info;
    QList<VarInfo> vars;
};

TEST_F(ReadList, GroupingPassMergesWordVariablesUnderTheDefaultStation)
{
    info->blockUnits = 32;
    info->defaultStation = 4;
    info->remoteLink = 1;
    info->localLinkNo = 6;
    vars << var(14, 40, 2, 9) << var(14, 100, 70) << var(14, 0, 2) << var(14, 10, 4)
         << var(2, 0, 8);
    const int last = ReCreatReadVarList(&vars);
    Blocks all = blocks();
    all.resize(5);
    EXPECT_EQ(Blocks({{4, 0, 14}, {4, 40, 2}, {4, 100, 32}, {4, 132, 32}, {4, 164, 6}}), all);
    const RW_VAR &first = PLC_driver.readList.at(0);
    EXPECT_EQ(-1, first.ownerId);
    EXPECT_EQ(1, first.remoteLink);
    EXPECT_EQ(6, first.linkNo);
    EXPECT_EQ(QString("0"), first.addressText);  // texts of the variable it starts with
    // The single-station pass follows: M byte first, then its own D blocks.
    EXPECT_EQ(Blocks({{4, 0, 1}, {4, 0, 14}, {4, 40, 2}, {4, 100, 32}, {4, 132, 32}, {4, 164, 6}}),
              blocks(5));
    EXPECT_EQ(PLC_driver.readList.size(), last);
}

TEST_F(ReadList, SingleStationPassMergesByAreaRules)
{
    info->defaultStation = 0;  // no grouping pass; blocks carry station 0
    info->blockUnits = 2;
    vars << var(2, 40, 30) << var(2, 3, 1) << var(2, 20, 1) << var(2, 5, 2);
    EXPECT_EQ(4, ReCreatReadVarList(&vars));
    EXPECT_EQ(Blocks({{0, 0, 1}, {0, 16, 1}, {0, 40, 2}, {0, 56, 2}}), blocks());

    info->blockUnits = 4;
    vars.clear();
    vars << var(0, 070, 4) << var(0, 0100, 2) << var(2, 56, 4) << var(2, 64, 2) << var(3, 3, 32);
    ReCreatReadVarList(&vars);
    // X never spans two 64-element groups; M does. 32 bits from bit 3 need 5 bytes.
    EXPECT_EQ(Blocks({{0, 56, 1}, {0, 64, 1}, {0, 56, 2}, {0, 0, 5}}), blocks());

    info->blockUnits = 10;
    vars.clear();
    vars << var(14, 0, 2) << var(14, 5, 2) << var(14, 8, 4) << var(14, 20, 3) << var(15, 0, 10)
         << var(15, 10, 1) << var(16, 0, 10) << var(16, 2, 3);
    ReCreatReadVarList(&vars);
    EXPECT_EQ(Blocks({{0, 0, 7}, {0, 8, 4}, {0, 20, 3}, {0, 0, 10}, {0, 10, 1}, {0, 0, 10}}),
              blocks());
    EXPECT_EQ(0, PLC_driver.scanCounter);
}

TEST_F(ReadList, PerVariablePassReadsEachVariableFromItsStation)
{
    info->multiStation = 1;
    info->blockUnits = 2;
    vars << var(2, 13, 20, 3) << var(2, 8, 8, 5) << var(2, 8, 8, 5) << var(0, 074, 8, 2)
         << var(14, 0, 3, 0) << var(30, 1, 1, 3);
    // Grouping under default station 1 comes first: D0..D2 as (0,2), (2,1).
    EXPECT_EQ(8, ReCreatReadVarList(&vars));
    EXPECT_EQ(Blocks({{1, 0, 2}, {1, 2, 1}, {3, 8, 2}, {3, 24, 2}, {5, 8, 2}, {2, 56, 2},
                      {0, 0, 2}, {0, 2, 1}}),
              blocks());
    // A word variable named as bits steps by bytes; its twin in units does not.
    info->blockUnits = 1;
    vars.clear();
    vars << var(14, 8, 8, 2) << var(14, 8, 2, 2);
    vars[0].areaName = QString::fromLatin1("M");
    ReCreatReadVarList(&vars);
    EXPECT_EQ(Blocks({{2, 8, 1}, {2, 16, 1}, {2, 9, 1}}), blocks(10));
}

TEST_F(ReadList, HostileListsGiveBoundedBlocksAndNeverHang)
{
    PLC_driver.scanCounter = 7;
    info->scanComplete = 1;
    EXPECT_EQ(0, ReCreatReadVarList(&vars));
    EXPECT_EQ(0, ReCreatReadVarList(nullptr));
    EXPECT_EQ(7, PLC_driver.scanCounter);
    EXPECT_EQ(1, info->scanComplete);

    vars << var(14, "-4", 3) << var(0, "9", 3) << var(14, "zz", 2) << var(14, 7990, 20)
         << var(2, 7999, 1) << var(14, 0, 0) << var(15, 3, -8) << var(40, 1, 5)
         << var(255, 1, INT_MAX) << var(17, 6000, 1) << var(16, 10, INT_MAX);
    for (int multi = 0; multi <= 1; ++multi) {
        for (int units = -5; units <= 1; ++units) {
            info->multiStation = multi;
            info->blockUnits = units;
            ReCreatReadVarList(&vars);
            EXPECT_EQ(0, info->scanComplete);
            const QList<RW_VAR> &r = PLC_driver.readList;
            ASSERT_FALSE(r.isEmpty());
            for (int i = 0; i < r.size(); ++i) {
                const RW_VAR &b = r.at(i);
                ASSERT_TRUE(isArea(b.areaType));
                const long long end = (long long)b.address + (isBitArea(b.areaType) ? 8LL : 1LL) * b.count;
                EXPECT_GE(b.address, 0);
                EXPECT_GE(b.count, 1);
                EXPECT_LE(end, areaCapacity(b.areaType)) << b.areaType << " " << b.address;
            }
            // "zz" parses as 0 and is read; "-4", "9" (not octal: 0) and the rest follow
            // the rules, but D7990 is only read up to the area's end.
            bool sawEnd = false;
            for (int i = 0; i < r.size(); ++i)
                sawEnd |= r.at(i).areaType == 14 && r.at(i).address + r.at(i).count == 8000;
            EXPECT_TRUE(sawEnd);
        }
    }
    // The helpers alone stay bounded too.
    RW_VAR v;
    v.address = INT_MAX - 1;
    v.count = 5;
    PLC_driver.readList.clear();
    addressAdd(v, 2, true);
    EXPECT_EQ(1, PLC_driver.readList.size());
    QList<RW_VAR> none;
    WhetherGroup(0, 4, &v, &none);
    WhetherGroup(-9, 0, &v, &none);
    BitVarReCreat(&none, 8);
    EXPECT_TRUE(none.isEmpty());
}

// The passes written out as plainly as they read: bubble sort, a scan of the
// whole list for repeats. The driver's passes must give the same list.
struct Reference {
    QList<RW_VAR> out;
    int last = 0;

    static void bubble(QList<RW_VAR> &l)
    {
        for (int i = 0; i + 1 < l.size(); ++i)
            for (int j = l.size() - 1; j > i; --j)
                if (l[j].address < l[j - 1].address)
                    std::swap(l[j], l[j - 1]);
    }
    // Pieces of `total` from `a`, `size` each (no cutting below 1), as requests.
    static void cut(QList<RW_VAR> &to, RW_VAR v, int a, int total, int size, int step = 1)
    {
        const int p = size < 1 ? total : size, n = total / p + (total % p ? 1 : 0);
        for (int k = 0; k < n; ++k) {
            v.address = a + step * k * p;
            v.count = k == n - 1 ? total - k * p : p;
            to.append(v);
        }
    }
    void grouping(const QList<VarInfo> &vars, const RW_VAR &t, int st, int bu)
    {
        for (int type = 14; type < 26 && st != 0 && bu >= 1; ++type) {
            QList<RW_VAR> l;
            int a, c;
            for (int i = 0; i < vars.size(); ++i)
                if (vars[i].areaType == type && readableVariable(vars[i], a, c))
                    l.append(requestFor(t, vars[i], st, a, c));
            if (l.isEmpty())
                continue;
            bubble(l);
            RW_VAR cur = l[0];
            flush(cur, bu, false);
            for (int i = 1; i < l.size(); ++i) {
                const int start = cur.address, end = start + cur.count;
                if (cur.count == 0)
                    cur = l[i];
                else if (l[i].address <= end || l[i].address <= start + bu)
                    cur.count = std::max(end, l[i].address + l[i].count) - start;
                else {
                    flush(cur, bu, true);
                    cur = l[i];
                }
            }
            flush(cur, bu, true);
        }
    }
    void flush(RW_VAR &v, int p, bool rest)
    {
        for (; v.count >= p; v.address += p, v.count -= p)
            cut(out, v, v.address, p, p);
        if (rest && v.count > 0)
            out.append(v);
    }
    int perVariable(const QList<VarInfo> &vars, const RW_VAR &t, int bu)
    {
        for (int i = 0; i < vars.size(); ++i) {
            int a, c;
            if (!readableVariable(vars[i], a, c))
                continue;
            bool bitName = false, bytes = vars[i].areaType <= 13;
            for (int k = 0; k < 14; ++k)
                bitName |= vars[i].areaName == QLatin1String(areaNames[k]);
            int S = bytes ? a & ~7 : a, T = bytes ? (a % 8 + c + 7) / 8 : c;
            if (bitName)
                S = a & ~7, T = (a % 8 + c) / 8 + 1, bytes = true;
            else if (vars[i].areaName != QLatin1String("FS"))
                S = a, T = c;
            QList<RW_VAR> pieces;
            cut(pieces, requestFor(t, vars[i], vars[i].station, 0, 0), S, T, bu, bytes ? 8 : 1);
            for (int k = 0; k < pieces.size(); ++k) {
                bool repeat = !fitRequestToArea(pieces[k]);
                for (int j = 0; j < out.size() && !repeat; ++j)
                    repeat = out[j].station == pieces[k].station &&
                             out[j].areaType == pieces[k].areaType &&
                             out[j].address == pieces[k].address && out[j].count == pieces[k].count;
                if (!repeat)
                    out.append(pieces[k]);
            }
        }
        return out.size();
    }
    int single(const QList<VarInfo> &vars, const RW_VAR &t, int st, int bu)
    {
        QList<RW_VAR> lists[26];
        for (int i = 0; i < vars.size(); ++i) {
            int a, c;
            if (readableVariable(vars[i], a, c))
                cut(lists[vars[i].areaType], requestFor(t, vars[i], st, a, c), a, c,
                    vars[i].areaType <= 13 ? 8 * bu : bu);
        }
        for (int type = 0; type < 26; ++type) {
            bubble(lists[type]);
            const bool bits = type <= 13, xy = type <= 1;
            for (int i = 0, blk = -1; i < lists[type].size(); ++i) {
                RW_VAR p = lists[type][i];
                const int a = p.address, e = a + p.count;
                if (blk >= 0) {
                    RW_VAR &b = out[blk];
                    const int B = b.address, E = bits ? B + 8 * b.count : B + b.count;
                    const bool inside = xy ? e <= E : (E > a && E >= e);
                    const bool split = xy && a / 64 != B / 64;
                    if (inside && !split)
                        continue;
                    if (!inside && !split && e - B <= (bits ? 8 * bu : bu)) {
                        b.count = bits ? (e - B + 7) / 8 : e - B;
                        continue;
                    }
                }
                if (bits)
                    p.count = (a % 8 + p.count + 7) / 8, p.address = a & ~7;
                out.append(p);
                last = out.size();
                blk = out.size() - 1;
            }
        }
        return last;
    }
};
QString randomAddress(int type, int capacity)
{
    switch (std::rand() % 16) {
    case 0: return QString::fromLatin1("-3");
    case 1: return QString::fromLatin1("q");
    default: break;
    }
    const int a = std::rand() % 4 ? std::rand() % 300 : std::rand() % (capacity + 40);
    return QString::number(a, type <= 1 ? 8 : 10);
}

TEST_F(ReadList, FastPassesMatchThePlainAlgorithmsOnRandomLists)
{
    std::srand(20261123);
    const int units[] = {-2, 0, 1, 2, 3, 8, 32, 64, 125};
    for (int trial = 0; trial < 160; ++trial) {
        info->multiStation = trial % 2;
        info->blockUnits = units[std::rand() % 9];
        info->defaultStation = std::rand() % 5 ? 1 + std::rand() % 3 : 0;
        info->remoteLink = trial % 3 == 0;
        vars.clear();
        const int n = 1 + std::rand() % 250;
        for (int i = 0; i < n; ++i) {
            if (i > 0 && std::rand() % 8 == 0) {
                vars << vars.at(std::rand() % i);  // an exact repeat
                continue;
            }
            const int type = std::rand() % 28;
            const int cap = areaCapacity(type);
            const int longest = info->blockUnits >= 8 ? cap + 100 : 300;
            const int count = std::rand() % 15 ? std::rand() % 70 - 2 : std::rand() % longest;
            VarInfo v = var(type, randomAddress(type, cap), count, std::rand() % 4);
            if (std::rand() % 12 == 0)
                v.areaName = QString::fromLatin1(areaNames[std::rand() % 26]);
            vars << v;
        }
        Reference ref;
        const RW_VAR t = blockTemplate(*info);
        ref.grouping(vars, t, info->defaultStation, info->blockUnits);
        const int expected = info->multiStation
                                 ? ref.perVariable(vars, t, info->blockUnits)
                                 : ref.single(vars, t, info->defaultStation, info->blockUnits);
        ASSERT_EQ(expected, ReCreatReadVarList(&vars)) << "trial " << trial;
        const QList<RW_VAR> &got = PLC_driver.readList;
        ASSERT_EQ(ref.out.size(), got.size()) << "trial " << trial;
        for (int i = 0; i < got.size(); ++i) {
            const RW_VAR &g = got.at(i), &r = ref.out.at(i);
            ASSERT_TRUE(g.ownerType == r.ownerType && g.ownerId == r.ownerId &&
                        g.rwMode == r.rwMode && g.remoteLink == r.remoteLink &&
                        g.linkNo == r.linkNo && g.result == r.result &&
                        g.areaName == r.areaName && g.addressText == r.addressText &&
                        g.areaType == r.areaType && g.address == r.address &&
                        g.station == r.station && g.count == r.count && g.spare1 == r.spare1 &&
                        g.spare2 == r.spare2 && g.value == r.value)
                << "trial " << trial << " entry " << i << ": " << g.address << "/" << g.count
                << " vs " << r.address << "/" << r.count;
        }
    }
}

}  // namespace
