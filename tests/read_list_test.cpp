// Rebuilding the cyclic read list: worked examples of both final passes,
// hostile variable lists, and the fast passes against a plain quadratic
// transcription on random lists.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <tuple>
#include <vector>

#include "lists/grouping_pass.h"
#include "lists/read_list_passes.h"
#include "localarea/local_area.h"
#include "support/driver_reset.h"
#include "support/variable.h"

namespace {

// Written out here, not taken from the driver's area table: the test's oracle.
const char *const areaNames[] = {"X",   "Y",  "M",  "S",   "T",   "C",  "ET",  "SM", "HM",
                                 "HS",  "HT", "HC", "HSC", "SEM", "D",  "TD",  "CD", "FD",
                                 "ETD", "SD", "HD", "SFD", "ID",  "QD", "HSD", "FS"};

// `text` stands in for the address when given (hostile or garbage addresses).
VarInfo var(int areaType, int address, int count, int station = 1, const char *text = nullptr)
{
    const QByteArray number = QByteArray::number(address, areaType <= 1 ? 8 : 10);
    return variable(areaType < 26 ? areaNames[areaType] : "?", areaType,
                    text ? text : number.constData(), count, station);
}

typedef std::vector<std::vector<int>> Blocks;  // (station, address, count) per entry

class ReadList : public ::testing::Test {
protected:
    void SetUp() override { info = resetDriver(); }
    ComInfo *info;
    QList<VarInfo> vars;
};

TEST_F(ReadList, WorkedExamplesOfTheGroupingAndBothFinalPasses)
{
    info->remoteLink = 1;
    info->localLinkNo = 6;
    VarInfo namedM = var(14, 8, 8, 2);
    namedM.areaName = QString::fromLatin1("M");
    VarInfo notM = var(14, 24, 2, 2);
    notM.areaName = QString(QChar(0x14D));  // "M" in its low byte only
    // Default station 0 skips the grouping pass; single-station blocks then carry 0.
    // clang-format off
    const struct {
        int station, multi, units;
        QList<VarInfo> vars;
        Blocks want;
    } cases[] = {
        {0, 0, 2, {var(2, 40, 30), var(2, 3, 1), var(2, 20, 1), var(2, 5, 2)},
         {{0, 0, 1}, {0, 16, 1}, {0, 40, 2}, {0, 56, 2}}},
        // X never spans two 64-element groups; M does. 32 bits from bit 3 need 5 bytes.
        {0, 0, 4, {var(0, 070, 4), var(0, 0100, 2), var(2, 56, 4), var(2, 64, 2), var(3, 3, 32)},
         {{0, 56, 1}, {0, 64, 1}, {0, 56, 2}, {0, 0, 5}}},
        {0, 0, 10, {var(14, 0, 2), var(14, 5, 2), var(14, 8, 4), var(14, 20, 3), var(15, 0, 10),
                    var(15, 10, 1), var(16, 0, 10), var(16, 2, 3)},
         {{0, 0, 7}, {0, 8, 4}, {0, 20, 3}, {0, 0, 10}, {0, 10, 1}, {0, 0, 10}}},
        // Grouping under default station 1 comes first: D0..D2 as (0,2), (2,1).
        {1, 1, 2, {var(2, 13, 20, 3), var(2, 8, 8, 5), var(2, 8, 8, 5), var(0, 074, 8, 2),
                   var(14, 0, 3, 0), var(30, 1, 1, 3)},
         {{1, 0, 2}, {1, 2, 1}, {3, 8, 2}, {3, 24, 2}, {5, 8, 2}, {2, 56, 2}, {0, 0, 2},
          {0, 2, 1}, {3, 1, 1}}},
        // A word variable named as bits steps by bytes; its twin in units does not.
        {0, 1, 1, {namedM, var(14, 8, 2, 2), notM},
         {{2, 8, 1}, {2, 16, 1}, {2, 9, 1}, {2, 24, 1}, {2, 25, 1}}},
        // Counts of 0 and below take part; nothing is cut at an area's end.
        {1, 0, 32,
         {var(14, 0, 2), var(14, 20, 0), var(14, 7990, 20), var(15, 0, -5), var(15, 3, 2)},
         {{1, 0, 20}, {1, 7990, 20}, {1, 0, 5}, {1, 0, 2}, {1, 7990, 20}, {1, 0, 5}}},
        // Per variable: M3 of 0 bits is one byte, a type above 25 takes the word rule.
        {0, 1, 32, {var(2, 3, 0, 3), var(2, 7984, 16, 3), var(30, 1, 5, 3), var(14, 7990, 20, 3)},
         {{3, 0, 1}, {3, 7984, 3}, {3, 1, 5}, {3, 7990, 20}}},
        // Far addresses are told apart from other areas' near ones.
        {0, 1, 32, {var(14, 262144, 1, 3), var(15, 0, 1, 3)}, {{3, 262144, 1}, {3, 0, 1}}},
        // Grouped D blocks first, then the single-station pass: M byte, then D again.
        {4, 0, 32,
         {var(14, 40, 2, 9), var(14, 100, 70), var(14, 0, 2), var(14, 10, 4), var(2, 0, 8)},
         {{4, 0, 14}, {4, 40, 2}, {4, 100, 32}, {4, 132, 32}, {4, 164, 6},
          {4, 0, 1}, {4, 0, 14}, {4, 40, 2}, {4, 100, 32}, {4, 132, 32}, {4, 164, 6}}},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.want.size());
        info->defaultStation = c.station;
        info->multiStation = c.multi;
        info->blockUnits = c.units;
        info->scanComplete = 1;
        PLC_driver.scanCounter = 5;
        vars = c.vars;
        EXPECT_EQ(int(c.want.size()), ReCreatReadVarList(&vars));
        EXPECT_TRUE(PLC_driver.scanCounter == 0 && info->scanComplete == 0);
        Blocks got;
        for (const RW_VAR &r : PLC_driver.readList) {
            got.push_back({r.station, r.address, r.count});
            EXPECT_TRUE(r.ownerId == -1 && r.remoteLink == 1 && r.linkNo == 6 && r.rwMode == 0);
        }
        EXPECT_EQ(c.want, got);
    }
    // A block keeps the texts of the variable it starts with.
    EXPECT_EQ(QString("0"), PLC_driver.readList.at(0).addressText);
}

TEST_F(ReadList, HostileListsGiveBoundedBlocksAndNeverHang)
{
    PLC_driver.scanCounter = 7;
    info->scanComplete = 1;
    EXPECT_EQ(0, ReCreatReadVarList(&vars));
    EXPECT_EQ(0, ReCreatReadVarList(nullptr));
    EXPECT_TRUE(PLC_driver.scanCounter == 7 && info->scanComplete == 1);  // nothing rebuilt

    // "zz" and "9" (not octal) parse as 0; nothing is cut at an area's end.
    vars << var(14, 0, 3, 1, "-4") << var(0, 0, 3, 1, "9") << var(14, 0, 2, 1, "zz")
         << var(14, 7990, 20) << var(2, 7999, 1) << var(14, 0, 0) << var(15, 3, -8) << var(40, 1, 5)
         << var(255, 1, INT_MAX) << var(17, 6000, 1) << var(16, 10, INT_MAX);
    // A count in the billions is cut into at most 65,536 pieces per run.
    for (int multi = 0; multi <= 1; ++multi) {
        for (int units = -5; units <= 1; ++units) {
            info->multiStation = multi;
            info->blockUnits = units;
            ReCreatReadVarList(&vars);
            ASSERT_FALSE(PLC_driver.readList.isEmpty());
            EXPECT_LT(PLC_driver.readList.size(), 3 * 65536);
        }
    }
    // The exported helpers alone stay bounded too.
    RW_VAR v;
    v.address = INT_MAX - 1;
    v.count = 5;
    PLC_driver.readList.clear();
    addressAdd(v, 2, true);
    EXPECT_EQ(1, PLC_driver.readList.size());
    QList<RW_VAR> none;
    WhetherGroup(0, 4, &v, &none);
    WhetherGroup(5, -2, &v, &none);
    WhetherGroup(5, 2, nullptr, &none);
    BitVarReCreat(&none, 8);
    EXPECT_TRUE(none.isEmpty() && PLC_driver.readList.size() == 1);
    RW_VAR many = v;
    many.address = 0;
    many.count = 70000;
    addressAdd(many, 1, true);  // 65,536 pieces at most
    EXPECT_EQ(1 + 65536, PLC_driver.readList.size());
    PLC_driver.readList.clear();
    for (int a : {0, 5, 30}) {
        v.address = a;
        v.count = a ? 4 : 3;
        none << v;
    }
    BitVarReCreat(&none, 8);  // (0,3) and (5,4) merge and are cut at 8; (30,4) is too far
    Blocks blocks;
    for (const RW_VAR &p : PLC_driver.readList)
        blocks.push_back({p.address, p.count});
    EXPECT_EQ(Blocks({{0, 8}, {8, 1}, {30, 4}}), blocks);
    none.clear();
    // WhetherGroup: a size of 0 gives one piece, also of nothing.
    v.address = 100;
    for (auto c : {std::make_pair(0, 0), std::make_pair(7, 0), std::make_pair(-5, -3)})
        WhetherGroup(c.first, c.second, &v, &none);
    Blocks got;
    for (const RW_VAR &p : none)
        got.push_back({p.address, p.count});
    EXPECT_EQ(Blocks({{100, 0}, {100, 7}, {100, -3}, {97, -2}}), got);
    none.clear();
    v.address = INT_MAX - 1;
    WhetherGroup(6, 2, &v, &none);  // the next piece would start past INT_MAX
    v.address = 0;
    WhetherGroup(70000, 1, &v, &none);  // 65,536 pieces at most
    ASSERT_EQ(1 + 65536, none.size());
    EXPECT_EQ(INT_MAX - 1, none.first().address);
    EXPECT_EQ(65535, none.last().address);
}

// The passes written out as plainly as they read: a stable sort, a scan of the
// whole list for repeats. The driver's passes must give the same list.
struct Reference {
    QList<RW_VAR> out;
    RW_VAR t;
    int st, bu, result;

    Reference(const QList<VarInfo> &vars, const ComInfo &info)
    {
        t = blockTemplate(info), st = info.defaultStation, bu = info.blockUnits;
        grouping(vars);
        result = info.multiStation ? perVariable(vars) : single(vars);
    }
    static void sort(QList<RW_VAR> &l)
    {
        std::stable_sort(l.begin(), l.end(),
                         [](const RW_VAR &x, const RW_VAR &y) { return x.address < y.address; });
    }
    // Pieces of `total` from `a`, `size` each (size 0: one piece), as requests.
    static void cut(QList<RW_VAR> &to, RW_VAR v, int a, int total, int size, int step = 1)
    {
        const int n = size == 0 ? 1 : total / size + (total % size ? 1 : 0);
        const int last = size == 0 ? total : total % size ? total % size : size;
        for (int k = 0; k < n; ++k) {
            v.address = a + step * k * size;
            v.count = k == n - 1 ? last : size;
            to.append(v);
        }
    }
    static int bytes(int bits) { return bits >= 0 ? (bits + 7) / 8 : -(-bits / 8); }
    static bool parse(const VarInfo &v, int &a, int &c)
    {
        a = StringAddressToInt(v.areaType, v.addressText), c = v.count;
        return a >= 0;
    }
    void grouping(const QList<VarInfo> &vars)
    {
        for (int type = 14; type < 26 && st != 0 && bu >= 1; ++type) {
            QList<RW_VAR> l;
            int a, c;
            for (const VarInfo &v : vars)
                if (v.areaType == type && parse(v, a, c))
                    l.append(requestFor(t, v, st, a, c));
            if (l.isEmpty())
                continue;
            sort(l);
            RW_VAR cur = l[0];
            flush(cur, false);
            for (int i = 1; i < l.size(); ++i) {
                const int start = cur.address, end = start + cur.count;
                if (cur.count != 0 && (l[i].address <= end || l[i].address <= start + bu))
                    cur.count = std::max(end, l[i].address + l[i].count) - start;
                else {
                    flush(cur, true);
                    cur = l[i];
                }
            }
            flush(cur, true);
        }
    }
    void flush(RW_VAR &v, bool rest)
    {
        for (; v.count >= bu; v.address += bu, v.count -= bu)
            cut(out, v, v.address, bu, bu);
        if (rest && v.count > 0)
            out.append(v);
    }
    int perVariable(const QList<VarInfo> &vars)
    {
        for (const VarInfo &v : vars) {
            int a, c;
            if (!parse(v, a, c))
                continue;
            bool bitName = false, bytes = v.areaType <= 13;
            for (int k = 0; k < 14; ++k)
                bitName |= v.areaName == QLatin1String(areaNames[k]);
            int S = a, T = c;
            if (bitName)
                S = a & ~7, T = (a % 8 + c) / 8 + 1, bytes = true;
            else if (bytes && v.areaName == QLatin1String("FS"))
                S = a & ~7, T = (a % 8 + c) / 8 + ((a % 8 + c) % 8 ? 1 : 0);
            QList<RW_VAR> pieces;
            cut(pieces, requestFor(t, v, v.station, 0, 0), S, T, bu, bytes ? 8 : 1);
            for (RW_VAR &p : pieces) {
                const auto same = [&p](const RW_VAR &o) {
                    return std::tie(p.station, p.areaType, p.address, p.count) ==
                           std::tie(o.station, o.areaType, o.address, o.count);
                };
                if (std::none_of(out.begin(), out.end(), same))
                    out.append(p);
            }
        }
        return out.size();
    }
    int single(const QList<VarInfo> &vars)
    {
        QList<RW_VAR> lists[26];
        for (const VarInfo &v : vars) {
            int a, c;
            if (v.areaType < 26 && parse(v, a, c))
                cut(lists[v.areaType], requestFor(t, v, st, a, c), a, c,
                    v.areaType <= 13 ? 8 * bu : bu);
        }
        int last = 0;
        for (int type = 0; type < 26; ++type) {
            sort(lists[type]);
            const bool bits = type <= 13, xy = type <= 1;
            for (int i = 0, blk = -1; i < lists[type].size(); ++i) {
                RW_VAR p = lists[type][i];
                const int a = p.address, e = a + p.count;
                if (blk >= 0) {
                    RW_VAR &b = out[blk];
                    const int B = b.address, E = bits ? B + 8 * b.count : B + b.count;
                    const bool inside = xy ? e <= E : (E > a && E >= e);
                    if (!(xy && a / 64 != B / 64) && (inside || e - B <= (bits ? 8 * bu : bu))) {
                        if (!inside)  // grow the block to take the piece
                            b.count = bits ? bytes(e - B) : e - B;
                        continue;
                    }
                }
                if (bits)
                    p.count = bytes((a & 7) + p.count), p.address = a & ~7;
                out.append(p);
                last = out.size();
                blk = out.size() - 1;
            }
        }
        return last;
    }
};

auto fields(const RW_VAR &v)
{
    return std::tie(v.ownerType, v.ownerId, v.rwMode, v.remoteLink, v.linkNo, v.result, v.areaName,
                    v.addressText, v.areaType, v.address, v.station, v.count, v.spare1, v.spare2,
                    v.value);
}

// Whole records, in order.
void expectSameList(const QList<RW_VAR> &want, const QList<RW_VAR> &got, int trial)
{
    ASSERT_EQ(want.size(), got.size()) << "trial " << trial;
    for (int i = 0; i < got.size(); ++i)
        ASSERT_TRUE(fields(got.at(i)) == fields(want.at(i)))
            << "trial " << trial << " entry " << i << ": " << got.at(i).address << "/"
            << got.at(i).count << " vs " << want.at(i).address << "/" << want.at(i).count;
}

TEST_F(ReadList, FastPassesAndBubbleSortMatchThePlainAlgorithmsOnRandomLists)
{
    std::srand(20261123);
    const int units[] = {-2, 0, 1, 2, 3, 8, 32, 64, 125};
    const char *const garbage[] = {"-3", "q"};
    for (int trial = 0; trial < 160; ++trial) {
        info->multiStation = trial % 2;
        info->blockUnits = units[std::rand() % 9];
        info->defaultStation = std::rand() % 5 ? 1 + std::rand() % 3 : 0;
        info->remoteLink = trial % 3 == 0;
        vars.clear();
        const int n = 1 + std::rand() % 250;
        for (int i = 0; i < n; ++i) {
            // Mostly small addresses so variables overlap; some past the area's end or garbage.
            const int type = std::rand() % 28, cap = areaCapacity(type), r = std::rand() % 16;
            const int a = std::rand() % 4 ? std::rand() % 300 : std::rand() % (cap + 40);
            const int longest = info->blockUnits >= 8 ? cap + 100 : 300;
            const int count = std::rand() % 15 ? std::rand() % 70 - 2 : std::rand() % longest;
            VarInfo v = var(type, a, count, std::rand() % 4, r < 2 ? garbage[r] : nullptr);
            if (std::rand() % 12 == 0)
                v.areaName = QString::fromLatin1(areaNames[std::rand() % 26]);
            vars << v;
        }
        for (int i = 0; i < n / 8; ++i)  // exact repeats
            vars.insert(std::rand() % vars.size(), vars.at(std::rand() % vars.size()));
        const Reference ref(vars, *info);
        ASSERT_EQ(ref.result, ReCreatReadVarList(&vars)) << "trial " << trial;
        ASSERT_NO_FATAL_FAILURE(expectSameList(ref.out, PLC_driver.readList, trial));
    }

    // Bubble_Sort: small and large lists, narrow and full-width addresses, repeats.
    Bubble_Sort(nullptr);
    for (int n : {0, 1, 2, 5, 63, 64, 300, 5000})
        for (int wide = 0; wide < 3; ++wide) {
            QList<RW_VAR> list;
            for (int i = 0; i < n; ++i) {
                RW_VAR v;
                v.address = wide == 0   ? std::rand() % 50
                            : wide == 1 ? std::rand() % 9000
                                        : int(unsigned(std::rand()) * 2654435761u);
                if (i % 97 == 1)  // so a list of two is out of order
                    v.address = i % 2 ? INT_MIN : INT_MAX;
                v.ownerId = i;
                list << v;
            }
            QList<RW_VAR> want = list;
            Reference::sort(want);
            Bubble_Sort(&list);
            ASSERT_NO_FATAL_FAILURE(expectSameList(want, list, n * 10 + wide));
        }
}

}  // namespace
