#include "table_view.h"

#include <QByteArray>
#include <QDateTime>

#include "localarea/local_area.h"
#include "read_state.h"

namespace {

QString label(const VarSpec &v, int offset, bool showStation)
{
    const QString name = elementName(v.areaType, v.address + offset);
    return showStation ? QString::number(v.station) + ":" + name : name;
}

int rowLength(int areaType)
{
    if (isWordArea(areaType))
        return 8;
    return isOctalArea(areaType) ? 8 : 16;
}

QString cell(int areaType, int value, bool hex)
{
    if (value == kUnknown)
        return isBitArea(areaType) ? QString(" ?") : QString(hex ? "     --" : "--").rightJustified(7);
    if (isBitArea(areaType))
        return QString::number(value).rightJustified(2);
    if (hex)
        return " 0x" + QString::number(value, 16).toUpper().rightJustified(4, '0');
    return QString::number(value).rightJustified(7);
}

QString jsonString(const QString &text)
{
    QString out = text;
    out.replace('\\', "\\\\").replace('"', "\\\"");
    return '"' + out + '"';
}

QString jsonList(const QStringList &items)
{
    QStringList quoted;
    for (int i = 0; i < items.size(); ++i)
        quoted << jsonString(items.at(i));
    return '[' + quoted.join(",") + ']';
}

}  // namespace

ValueTable readValues(const DriverApi &api, const QList<VarSpec> &vars, int defaultStation,
                      const ReadState &state)
{
    ValueTable table;
    for (int i = 0; i < vars.size(); ++i) {
        const VarSpec &v = vars.at(i);
        QByteArray bytes;
        api.GetRegisterData(QString(), v.areaType, addressTextOf(v.areaType, v.address),
                            v.station ? v.station : defaultStation, &bytes, v.count);
        QList<int> values;
        const bool word = isWordArea(v.areaType);
        for (int k = 0; k < v.count; ++k) {
            int value = 0;
            if (word && 2 * k + 1 < bytes.size())
                value = static_cast<unsigned char>(bytes.at(2 * k)) |
                        (static_cast<unsigned char>(bytes.at(2 * k + 1)) << 8);
            else if (!word && k < bytes.size())
                value = bytes.at(k) ? 1 : 0;
            values.append(state.known(v, k) ? value : kUnknown);
        }
        table.append(values);
    }
    return table;
}

QString renderTable(const QList<VarSpec> &vars, const ValueTable &values, bool hex, bool showStation)
{
    // Labels line up across all rows.
    int width = 0;
    for (int i = 0; i < vars.size(); ++i)
        for (int k = 0; k < vars.at(i).count; k += rowLength(vars.at(i).areaType))
            width = qMax(width, label(vars.at(i), k, showStation).size());
    QString out;
    for (int i = 0; i < vars.size() && i < values.size(); ++i) {
        const VarSpec &v = vars.at(i);
        const int row = rowLength(v.areaType);
        for (int k = 0; k < v.count && k < values.at(i).size(); k += row) {
            out += label(v, k, showStation).leftJustified(width) + " |";
            for (int j = k; j < k + row && j < values.at(i).size(); ++j)
                out += cell(v.areaType, values.at(i).at(j), hex);
            out += '\n';
        }
    }
    return out;
}

QString renderJson(const QList<VarSpec> &vars, const ValueTable &values, const PollStats &s,
                   bool showStation, const QStringList &problems, const WriteCounts *writes,
                   const QStringList &writeEvents)
{
    QString out = QString("{\"scan\":%1,\"time\":\"%2\",\"scan_ms\":%3,\"frames_per_s\":%4,"
                          "\"frames\":%5,\"received\":%6,\"retries\":%7,\"given_up\":%8,"
                          "\"last_code\":%9,\"last_meaning\":\"%10\",\"link_up\":%11,\"values\":{")
                      .arg(s.scans)
                      .arg(QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddThh:mm:ss.zzzZ"))
                      .arg(s.scanMs, 0, 'f', 2)
                      .arg(s.framesPerSecond, 0, 'f', 1)
                      .arg(s.framesSent)
                      .arg(s.repliesGood)
                      .arg(s.retries)
                      .arg(s.givenUp)
                      .arg(s.lastCode)
                      .arg(codeMeaning(s.lastCode))
                      .arg(s.linkUp ? "true" : "false");
    bool first = true;
    for (int i = 0; i < vars.size() && i < values.size(); ++i) {
        for (int k = 0; k < values.at(i).size(); ++k) {
            if (!first)
                out += ',';
            first = false;
            const int value = values.at(i).at(k);
            out += QString("\"%1\":%2")
                       .arg(label(vars.at(i), k, showStation))
                       .arg(value == kUnknown ? QString("null") : QString::number(value));
        }
    }
    out += "},\"problems\":" + jsonList(problems);
    if (writes)
        out += QString(",\"writes\":{\"written\":%1,\"failed\":%2,\"dropped\":%3,\"refused\":%4,"
                       "\"pending\":%5},\"write_events\":")
                   .arg(writes->written)
                   .arg(writes->failed)
                   .arg(writes->dropped)
                   .arg(writes->refused)
                   .arg(writes->pending) +
               jsonList(writeEvents);
    return out + "}";
}
