#include "monitor_decode.h"

#include <QDateTime>
#include <QStringList>

#include "common/varspec.h"
#include "common/words.h"
#include "frames/address_map.h"
#include "link/remote_frame.h"
#include "link/rtu_frame.h"
#include "poll_stats.h"

namespace {

// One coil or register, or one element of a remote description.
struct Unit {
    int areaType = -1;  // -1: no element maps to it
    int element = 0;    // or the coil/register number
};

QString unitName(const Unit &u, bool coils)
{
    if (u.areaType >= 0)
        return elementName(u.areaType, u.element);
    return QString(coils ? "coil %1" : "register %1").arg(u.element);
}

// "D0-D3 register 9000-9001": runs of consecutive elements of one area.
QString runsOf(const QList<Unit> &units, bool coils)
{
    QStringList runs;
    for (int i = 0; i < units.size();) {
        int j = i + 1;
        while (j < units.size() && units[j].areaType == units[i].areaType &&
               units[j].element == units[j - 1].element + 1)
            ++j;
        QString run = unitName(units[i], coils);
        if (j - i > 1)
            run += "-" + (units[i].areaType >= 0 ? unitName(units[j - 1], coils)
                                                 : QString::number(units[j - 1].element));
        runs << run;
        i = j;
    }
    return runs.join(" ");
}

QString hexBytes(const rvlink::Bytes &b)
{
    QStringList hex;
    for (std::uint8_t x : b)
        hex << QString("%1").arg(x, 2, 16, QChar('0')).toUpper();
    return hex.join(" ");
}

// Bits packed eight to a byte, the first in the lowest bit.
int bitAt(const std::uint8_t *data, int i)
{
    return (data[i / 8] >> (i % 8)) & 1;
}

// What a request asked, and the values its data carries or its reply read.
struct Asked {
    int station = -1, function = -1;
    bool write = false, coils = false;
    QList<Unit> units;
    QList<int> values;  // one per unit where known
};

bool askedOfRtu(const rvlink::BusExchange &x, Asked &a)
{
    rvlink::RtuRequest r;
    if (!rvlink::parseRequest(x.request.data(), x.request.size(), r))
        return false;
    a.station = r.station;
    a.function = r.function;
    a.write = !r.reads();
    a.coils = r.coils();
    for (int i = 0; i < r.quantity; ++i) {
        Unit u;
        u.element = (r.address + i) & 0xFFFF;
        const bool known = a.coils ? CoilToBitElement(u.element, u.areaType, u.element)
                                   : RegisterToWordElement(u.element, u.areaType, u.element);
        if (!known)
            u.areaType = -1;
        a.units << u;
    }
    const std::uint8_t *data = r.data.data();
    const int n = int(r.data.size());
    for (int i = 0; a.write && i < r.quantity; ++i) {
        if (r.function == rvlink::WriteCoil)
            a.values << (data[0] == 0xFF ? 1 : 0);
        else if (r.function == rvlink::WriteRegister)
            a.values << int(rvlink::bigEndian16(data));
        else if (a.coils && i / 8 < n)
            a.values << bitAt(data, i);
        else if (!a.coils && 2 * i + 1 < n)
            a.values << int(rvlink::bigEndian16(data + 2 * i));
    }
    return true;
}

bool askedOfRemote(const rvlink::BusExchange &x, Asked &a)
{
    rvlink::RemoteRequest r;
    if (!rvlink::parseRemoteRequest(x.request.data(), x.request.size(), r))
        return false;
    a.station = r.station;
    a.write = r.rwMode == rvlink::remote::Write;
    a.coils = rvlink::remoteBitArea(r.areaType);
    a.function = a.write ? (a.coils ? rvlink::WriteCoils : rvlink::WriteRegisters)
                         : (a.coils ? rvlink::ReadCoils : rvlink::ReadRegisters);
    // A bit area's read counts bytes of eight elements; all else counts elements.
    const long long span = a.coils && !a.write ? 8LL * r.count : r.count;
    const bool inArea = isArea(r.areaType) && r.address < unsigned(areaCapacity(r.areaType));
    for (long long i = 0; i < span; ++i) {
        Unit u;
        u.areaType = inArea ? r.areaType : -1;
        u.element = int((r.address + i) & 0x7FFFFFFF);
        a.units << u;
    }
    // A write's values as the driver holds them: a byte per bit, words low byte first.
    const int n = int(r.values.size());
    for (int i = 0; a.write && i < span; ++i) {
        if (a.coils && i < n)
            a.values << (r.values[std::size_t(i)] == 1 ? 1 : 0);
        else if (!a.coils && 2 * i + 1 < n)
            a.values << (r.values[std::size_t(2 * i)] | r.values[std::size_t(2 * i + 1)] << 8);
    }
    return true;
}

// The values a read's good reply carries, one per unit.
QList<int> readValues(const Asked &a, const rvlink::Bytes &reply)
{
    QList<int> values;
    if (reply.size() < 5)
        return values;
    const int dataBytes = int(reply.size()) - 5;
    const std::uint8_t *data = reply.data() + 3;
    for (int i = 0; i < a.units.size(); ++i) {
        if (a.coils && i / 8 < dataBytes)
            values << bitAt(data, i);
        else if (!a.coils && 2 * i + 1 < dataBytes)
            values << int(rvlink::bigEndian16(data + 2 * i));
    }
    return values;
}

QString outcomeWords(const rvlink::BusExchange &x)
{
    switch (x.outcome) {
    case rvlink::BusExchange::Exception: return exceptionMeaning(x.exception);
    case rvlink::BusExchange::Cut:
        return QString("cut short (%1 of %2 bytes)").arg(x.reply.size()).arg(x.expected);
    case rvlink::BusExchange::Noise:
        return "noise (" + counted(long(x.reply.size()), "byte", "bytes") + ")";
    case rvlink::BusExchange::Stray: return "stray reply (no request awaited it)";
    default: return rvlink::outcomeText(x.outcome);
    }
}

QString nullOr(double v, int decimals)
{
    return v < 0 ? QString("null") : QString::number(v, 'f', decimals);
}

}  // namespace

QString HeardExchange::block() const
{
    return QString("%1 %2 %3").arg(station).arg(write ? "write" : "read", asked);
}

HeardExchange decodeExchange(const rvlink::BusExchange &x, bool remoteFrames)
{
    HeardExchange h;
    h.atUs = x.requestUs;
    h.outcome = x.outcome;
    h.outcomeText = outcomeWords(x);
    h.replyMs = x.replyMs;
    Asked a;
    if (x.request.empty() || !(remoteFrames ? askedOfRemote(x, a) : askedOfRtu(x, a))) {
        h.bytes = hexBytes(x.request.empty() ? x.reply : x.request);
        return h;
    }
    h.station = a.station;
    h.function = a.function;
    h.write = a.write;
    h.asked = runsOf(a.units, a.coils);
    const QList<int> values = a.write                                ? a.values
                              : x.outcome == rvlink::BusExchange::Ok ? readValues(a, x.reply)
                                                                     : QList<int>();
    for (int i = 0; i < values.size() && i < a.units.size(); ++i)
        h.values << qMakePair(unitName(a.units[i], a.coils), values[i]);
    return h;
}

QString monitorLine(const HeardExchange &h)
{
    QString line = QDateTime::fromMSecsSinceEpoch(h.atUs / 1000).toString("hh:mm:ss.zzz") + " ";
    if (h.station < 0)
        return line + h.outcomeText + ": " + h.bytes;
    line += QString("station %1 %2 %3: %4")
                .arg(h.station)
                .arg(h.write ? "write" : "read", h.asked, h.outcomeText);
    if (h.replyMs >= 0)
        line += QString(" %1 ms").arg(h.replyMs, 0, 'f', 1);
    for (int i = 0; i < h.values.size(); ++i)
        line += QString(" %1=%2").arg(h.values[i].first).arg(h.values[i].second);
    return line;
}

namespace {

QString utcTime(long long us)
{
    return QDateTime::fromMSecsSinceEpoch(us / 1000).toUTC().toString("yyyy-MM-ddThh:mm:ss.zzzZ");
}

}  // namespace

QString monitorJson(const HeardExchange &h)
{
    QStringList values;
    for (int i = 0; i < h.values.size(); ++i)
        values << jsonString(h.values[i].first) + ":" + QString::number(h.values[i].second);
    const bool asked = h.station >= 0;
    QString out = QString("{\"time\":\"%1\",\"station\":%2,\"function\":%3,\"elements\":%4,"
                          "\"outcome\":%5,\"reply_ms\":%6,\"values\":{%7}")
                      .arg(utcTime(h.atUs))
                      .arg(asked ? QString::number(h.station) : QString("null"))
                      .arg(asked ? QString::number(h.function) : QString("null"))
                      .arg(asked ? jsonString(h.asked) : QString("null"))
                      .arg(jsonString(h.outcomeText))
                      .arg(nullOr(h.replyMs, 2))
                      .arg(values.join(","));
    if (!h.bytes.isEmpty())
        out += ",\"bytes\":" + jsonString(h.bytes);
    return out + "}";
}

QString monitorCsvHeader()
{
    return "time,station,function,elements,outcome,reply_ms,values";
}

QString monitorCsv(const HeardExchange &h)
{
    QStringList values;
    for (int i = 0; i < h.values.size(); ++i)
        values << QString("%1=%2").arg(h.values[i].first).arg(h.values[i].second);
    const bool asked = h.station >= 0;
    // Only the outcome can hold a comma; none holds a quote.
    QStringList fields;
    fields << utcTime(h.atUs) << (asked ? QString::number(h.station) : QString())
           << (asked ? QString::number(h.function) : QString()) << h.asked
           << '"' + h.outcomeText + '"' << (h.replyMs < 0 ? QString() : nullOr(h.replyMs, 2))
           << (asked ? values.join(" ") : h.bytes);
    return fields.join(",");
}
