// Runtimes are written against the integrator's guide, so its record and
// return-code tables are held against the driver: a change on either side
// fails here, not on a panel.
#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <vector>

#include "support/driver_reset.h"

namespace {

typedef std::vector<std::string> Row;

std::string trim(const std::string &s)
{
    const size_t a = s.find_first_not_of(" \t\n`"), b = s.find_last_not_of(" \t\n`");
    return a == std::string::npos ? std::string() : s.substr(a, b - a + 1);
}

// Body rows of the first table under the heading starting `heading`, whose
// leading columns must be `columns`: the checks read cells by position.
std::vector<Row> tableRows(const std::string &heading, const Row &columns)
{
    std::ifstream in(RV_INTEGRATION_DOC);
    std::vector<Row> rows;
    bool under = false;
    for (std::string line, cell; std::getline(in, line);) {
        if (line.rfind("#", 0) == 0) {
            under = trim(line.substr(line.find(' ') + 1)).rfind(heading, 0) == 0;
        } else if (under && line.rfind("|", 0) == 0) {
            std::stringstream cells(line.substr(1));
            rows.emplace_back();
            while (std::getline(cells, cell, '|'))
                rows.back().push_back(trim(cell));
        } else if (!rows.empty()) {
            break;
        }
    }
    const bool found = rows.size() > 1 && rows[0].size() >= columns.size() &&
                       std::equal(columns.begin(), columns.end(), rows[0].begin());
    EXPECT_TRUE(found) << "no table under " << heading << " with columns " << columns[0] << "...";
    // Past the header and the |---| line.
    return found ? std::vector<Row>(rows.begin() + 2, rows.end()) : std::vector<Row>();
}

// Field names and offsets, in order.
typedef std::vector<std::pair<std::string, size_t>> Record;
// clang-format off
#define RECORD(R, ...) {#R, [] { typedef R Rec; return Record{__VA_ARGS__}; }()}
#define F(field) {#field, offsetof(Rec, field)}
// clang-format on

TEST(IntegrationDoc, RecordTablesMatchTheCompiledLayout)
{
    // Every field of the boundary records in declaration order (ComInfo:
    // only the words the driver uses).
    std::map<std::string, Record> compiled = {
        RECORD(RW_VAR, F(ownerType), F(ownerId), F(rwMode), F(remoteLink), F(linkNo), F(result),
               F(areaName), F(addressText), F(areaType), F(address), F(station), F(count),
               F(spare1), F(spare2), F(value)),
        RECORD(Protocol, F(frame), F(sendLength), F(replyLength), F(replyHeaderLength),
               F(replyDataLength), F(var), F(reserved)),
        RECORD(EXTENDVAR, F(station), F(areaType), F(address), F(data)),
        RECORD(VarInfo, F(kind), F(areaType), F(station), F(flags), F(reserved), F(addressText),
               F(areaName), F(count)),
        RECORD(ComInfo, F(blockUnits), F(defaultStation), F(retryLimit), F(retryCount),
               F(multiStation), F(spareA), F(framesPerRequest), F(framesDone), F(spareB),
               F(remoteLink), F(localLinkNo), F(writeMode), F(scanComplete), F(callbackContext))};
    // Offsets are the panel's (32-bit, sizes asserted at compile time);
    // other builds keep the order.
    const bool panel = sizeof(void *) == 4;
    for (const auto &record : compiled) {
        const std::vector<Row> t = tableRows(record.first, {"Word", "Offset", "Field"});
        const Record &fields = record.second;
        ASSERT_EQ(t.size(), fields.size()) << record.first;
        for (size_t i = 0; i < t.size(); ++i) {
            SCOPED_TRACE(record.first + "." + t[i][2]);
            EXPECT_EQ(t[i][2], fields[i].first);
            EXPECT_EQ(std::stoi(t[i][0]), std::stoi(t[i][1]) / 4);
            if (panel) {
                EXPECT_EQ(size_t(std::stoi(t[i][1])), fields[i].second);
            }
            EXPECT_TRUE(i == 0 || fields[i - 1].second < fields[i].second) << "out of order";
        }
    }
}

TEST(IntegrationDoc, ReturnCodeBandsAreWhatTheDriverReturns)
{
    std::set<int> outcomes;
    // The band offset comes from the request of the frame in flight.
    resetDriver();
    PLC_driver.sendQueue.append(Protocol());
    for (const Row &row : tableRows("Return codes", {"Codes", "Outcome"})) {
        SCOPED_TRACE(row[0]);
        const size_t dash = row[0].find('-');
        const int low = std::stoi(row[0]);
        const int high = dash == std::string::npos ? low : std::stoi(row[0].substr(dash + 1));
        if (row[1] == "-") {
            EXPECT_EQ(low, 0) << "only the retry code has no outcome";
            continue;
        }
        outcomes.insert(std::stoi(row[1]));
        EXPECT_TRUE(high == low || high - low == 11) << "twelve requester categories";
        for (int ownerType : {0, 5, 11, 12, -1}) {
            PLC_driver.sendQueue.first().var.ownerType = ownerType;
            const int want =
                high > low && ownerType >= 0 && ownerType <= 11 ? low + ownerType : low;
            EXPECT_EQ(GetDriverReturnValue(std::stoi(row[1])), want) << "owner " << ownerType;
            if (high > low) {
                EXPECT_EQ(SwitchErrorReturn(low - 1), want) << "owner " << ownerType;
            }
        }
    }
    // Every outcome is documented; anything else is the unknown code.
    EXPECT_EQ(outcomes, (std::set<int>{0, 1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(GetDriverReturnValue(-1), 200);
    EXPECT_EQ(GetDriverReturnValue(99), 200);
    resetDriver();
}

}  // namespace
