// The integrator's guide promises layouts, names and codes that runtimes are
// written against. Its Markdown tables are read here and held against the
// records, the exported set and the return-code functions, so a change on
// either side shows up as a failure instead of a wrong guide.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/driver_reset.h"

namespace {

struct Table {
    std::string heading;  // the nearest heading above the table
    std::vector<std::string> columns;
    std::vector<std::vector<std::string>> rows;
    int column(const std::string &name) const
    {
        for (size_t i = 0; i < columns.size(); ++i)
            if (columns[i] == name)
                return int(i);
        return -1;
    }
};

std::string trim(std::string s)
{
    const size_t a = s.find_first_not_of(" \t\n`");
    const size_t b = s.find_last_not_of(" \t\n`");
    return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

std::vector<std::string> cells(const std::string &line)
{
    std::vector<std::string> out;
    std::stringstream in(line.substr(1));
    std::string cell;
    while (std::getline(in, cell, '|'))
        out.push_back(trim(cell));
    if (!out.empty() && out.back().empty() && line.back() == '|')
        out.pop_back();
    return out;
}

std::vector<Table> readTables(const char *path)
{
    std::ifstream in(path);
    std::vector<Table> tables;
    std::string line, heading;
    bool inTable = false;
    while (std::getline(in, line)) {
        if (line.rfind("#", 0) == 0)
            heading = trim(line.substr(line.find(' ') + 1));
        if (line.rfind("|", 0) != 0) {
            inTable = false;
            continue;
        }
        if (!inTable) {
            tables.push_back(Table{heading, cells(line), {}});
            inTable = true;
        } else if (line.find("---") == std::string::npos) {
            tables.back().rows.push_back(cells(line));
        }
    }
    return tables;
}

const Table *findTable(const std::vector<Table> &tables, const std::string &headingStart,
                       const std::string &firstColumn)
{
    for (const Table &t : tables)
        if (t.heading.rfind(headingStart, 0) == 0 && !t.columns.empty() &&
            t.columns[0] == firstColumn)
            return &t;
    return nullptr;
}

typedef std::vector<std::pair<std::string, size_t>> Fields;
#define FIELD(rec, f) {#f, offsetof(rec, f)}

// Every field of the boundary records, as compiled.
std::map<std::string, Fields> recordFields()
{
    std::map<std::string, Fields> r;
    r["RW_VAR"] = {FIELD(RW_VAR, ownerType), FIELD(RW_VAR, ownerId), FIELD(RW_VAR, rwMode),
                   FIELD(RW_VAR, remoteLink), FIELD(RW_VAR, linkNo), FIELD(RW_VAR, result),
                   FIELD(RW_VAR, areaName), FIELD(RW_VAR, addressText), FIELD(RW_VAR, areaType),
                   FIELD(RW_VAR, address), FIELD(RW_VAR, station), FIELD(RW_VAR, count),
                   FIELD(RW_VAR, spare1), FIELD(RW_VAR, spare2), FIELD(RW_VAR, value)};
    r["Protocol"] = {FIELD(Protocol, frame), FIELD(Protocol, sendLength),
                     FIELD(Protocol, replyLength), FIELD(Protocol, replyHeaderLength),
                     FIELD(Protocol, replyDataLength), FIELD(Protocol, var),
                     FIELD(Protocol, reserved)};
    r["EXTENDVAR"] = {FIELD(EXTENDVAR, station), FIELD(EXTENDVAR, areaType),
                      FIELD(EXTENDVAR, address), FIELD(EXTENDVAR, data)};
    r["VarInfo"] = {FIELD(VarInfo, kind), FIELD(VarInfo, areaType), FIELD(VarInfo, station),
                    FIELD(VarInfo, flags), FIELD(VarInfo, reserved), FIELD(VarInfo, addressText),
                    FIELD(VarInfo, areaName), FIELD(VarInfo, count)};
    // Only the words the driver uses; the runtime's own words are not listed.
    r["ComInfo"] = {FIELD(ComInfo, blockUnits), FIELD(ComInfo, defaultStation),
                    FIELD(ComInfo, retryLimit), FIELD(ComInfo, retryCount),
                    FIELD(ComInfo, multiStation), FIELD(ComInfo, spareA),
                    FIELD(ComInfo, framesPerRequest), FIELD(ComInfo, framesDone),
                    FIELD(ComInfo, spareB), FIELD(ComInfo, remoteLink),
                    FIELD(ComInfo, localLinkNo), FIELD(ComInfo, writeMode),
                    FIELD(ComInfo, scanComplete), FIELD(ComInfo, callbackContext)};
    return r;
}

const bool panelLayout = sizeof(void *) == 4;

class IntegrationDoc : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetDriver();
        tables = readTables(RV_INTEGRATION_DOC);
        ASSERT_FALSE(tables.empty()) << "no tables in " << RV_INTEGRATION_DOC;
    }
    void TearDown() override { resetDriver(); }
    std::vector<Table> tables;
};

TEST_F(IntegrationDoc, RecordTablesMatchTheCompiledLayoutAndSizes)
{
    const std::map<std::string, Fields> compiled = recordFields();
    for (const auto &record : compiled) {
        const Table *t = findTable(tables, record.first, "Word");
        ASSERT_NE(t, nullptr) << "no layout table for " << record.first;
        const int word = t->column("Word"), offset = t->column("Offset"), field = t->column("Field");
        ASSERT_GE(word, 0);
        ASSERT_GE(offset, 0);
        ASSERT_GE(field, 0);
        ASSERT_EQ(t->rows.size(), record.second.size()) << record.first;
        for (size_t i = 0; i < t->rows.size(); ++i) {
            const std::vector<std::string> &row = t->rows[i];
            const std::string where = record.first + "." + row[field];
            // Same fields, same order: holds on every build.
            EXPECT_EQ(row[field], record.second[i].first) << record.first << " row " << i;
            EXPECT_EQ(std::stoi(row[word]), std::stoi(row[offset]) / 4) << where;
            if (panelLayout) {
                EXPECT_EQ(size_t(std::stoi(row[offset])), record.second[i].second) << where;
            } else if (i > 0) {
                EXPECT_LT(record.second[i - 1].second, record.second[i].second) << where;
            }
        }
    }

    const Table *t = findTable(tables, "Records on the 32-bit panel", "Record");
    ASSERT_NE(t, nullptr);
    std::map<std::string, size_t> sizes = {{"RW_VAR", sizeof(RW_VAR)},
                                           {"Protocol", sizeof(Protocol)},
                                           {"ComInfo", sizeof(ComInfo)},
                                           {"EXTENDVAR", sizeof(EXTENDVAR)},
                                           {"VarInfo", sizeof(VarInfo)}};
    ASSERT_EQ(t->rows.size(), sizes.size());
    for (const std::vector<std::string> &row : t->rows) {
        ASSERT_EQ(sizes.count(row[0]), 1u) << row[0];
        EXPECT_EQ(std::stoi(row[1]) * 4, std::stoi(row[2])) << row[0];
        if (panelLayout) {
            EXPECT_EQ(size_t(std::stoi(row[2])), sizes[row[0]]) << row[0];
        }
    }
}

TEST_F(IntegrationDoc, EntryPointsAreExactlyThePlainExportsAndResolve)
{
    const Table *t = findTable(tables, "Entry points", "Entry point");
    ASSERT_NE(t, nullptr);
    std::set<std::string> documented;
    for (const std::vector<std::string> &row : t->rows)
        documented.insert(row[0]);

    // Plain names in the linker map, less the four data symbols.
    std::ifstream map(RV_EXPORTS_MAP);
    std::string text((std::istreambuf_iterator<char>(map)), std::istreambuf_iterator<char>());
    text = text.substr(text.find("global:") + 7);
    text = text.substr(0, text.find("extern"));
    std::set<std::string> exported;
    std::stringstream in(text);
    std::string name;
    while (std::getline(in, name, ';')) {
        name = trim(name);
        if (!name.empty() && name != "PLC_driver" && name != "LB" && name != "LW" && name != "RWI")
            exported.insert(name);
    }
    EXPECT_EQ(documented, exported);

    void *lib = dlopen(RV_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    for (const std::string &entry : documented)
        EXPECT_NE(dlsym(lib, entry.c_str()), nullptr) << entry;
    dlclose(lib);
}

TEST_F(IntegrationDoc, ReturnCodeBandsAreWhatTheDriverReturns)
{
    const Table *t = findTable(tables, "Return codes", "Codes");
    ASSERT_NE(t, nullptr);
    const int outcomeColumn = t->column("Outcome");
    ASSERT_GE(outcomeColumn, 0);
    std::set<int> outcomes;
    // The band offset comes from the request of the frame in flight.
    Protocol head;
    PLC_driver.sendQueue.append(head);
    for (const std::vector<std::string> &row : t->rows) {
        const std::string &codes = row[0];
        const size_t dash = codes.find('-');
        const int low = std::stoi(codes.substr(0, dash));
        const int high = dash == std::string::npos ? low : std::stoi(codes.substr(dash + 1));
        if (row[outcomeColumn] == "-") {
            EXPECT_EQ(low, 0) << "only the retry code has no outcome";
            continue;
        }
        const int outcome = std::stoi(row[outcomeColumn]);
        outcomes.insert(outcome);
        for (int ownerType : {0, 5, 11, 12, -1}) {
            PLC_driver.sendQueue.first().var.ownerType = ownerType;
            const int expected = (ownerType >= 0 && ownerType <= 11) ? low + ownerType : low;
            const int code = GetDriverReturnValue(outcome);
            if (high == low) {
                EXPECT_EQ(code, low) << codes << " ownerType " << ownerType;
            } else {
                EXPECT_EQ(code, expected) << codes << " ownerType " << ownerType;
                EXPECT_EQ(SwitchErrorReturn(low - 1), expected) << codes;
            }
        }
        if (high != low) {
            EXPECT_EQ(high - low, 11) << codes << ": twelve requester categories per band";
        }
    }
    // Every outcome is documented, and anything past them is the unknown code.
    EXPECT_EQ(outcomes, (std::set<int>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(GetDriverReturnValue(-1), GetDriverReturnValue(8));
    EXPECT_EQ(GetDriverReturnValue(99), GetDriverReturnValue(8));
}

TEST_F(IntegrationDoc, PackageTableNamesThePackagesTheBuildMakes)
{
    const Table *t = findTable(tables, "What to install", "Package");
    ASSERT_NE(t, nullptr);
    std::set<std::string> names;
    for (const std::vector<std::string> &row : t->rows)
        names.insert(row[0]);
    EXPECT_EQ(names, (std::set<std::string>{RV_DEB_RUNTIME, RV_DEB_TOOLS}));
}

}  // namespace
