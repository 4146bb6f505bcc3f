#include "table_view.h"

#include <QByteArray>
#include <QDateTime>

#include "common/words.h"
#include "localarea/areas.h"
#include "read_state.h"

namespace {

QString label(const VarSpec &v, int offset, bool showStation)
{
    const QString name = elementName(v.areaType, v.address + offset);
    return showStation ? QString::number(v.station) + ":" + name : name;
}

// A JSON key: the element's label, with the format where it is not the
// plain one, so an element shown in two formats is two keys.
QString jsonKey(const VarSpec &v, const QString &label)
{
    const bool plain = isBitArea(v.areaType) || (v.format.kind == ValueFormat::Uint16);
    return plain ? label : label + ":" + formatName(v.format);
}

// Control bytes and bytes past ASCII as \xNN, so a string value can
// neither move the cursor nor depend on the terminal's character set.
QString printable(const QString &text)
{
    QString out;
    for (int i = 0; i < text.size(); ++i) {
        const ushort c = text.at(i).unicode();
        if (c < 0x20 || c >= 0x7F)
            out += QString("\\x%1").arg(c, 2, 16, QChar('0'));
        else if (c == '\\')
            out += "\\\\";
        else
            out += text.at(i);
    }
    return out;
}

// One shown value: a bit, a register, two registers or a whole string.
struct Cell {
    QString label;
    QString text;
    bool known;   // the last read of its registers succeeded
    bool quoted;  // a string, quoted in JSON and CSV
};

// The cells of one variable range and how many go on a table row.
QList<Cell> cellsOf(const VarSpec &v, const QList<int> &values, bool showStation, int &perRow)
{
    QList<Cell> cells;
    const bool bits = isBitArea(v.areaType);
    const int step = bits                               ? 1
                     : registersPerValue(v.format) == 0 ? v.count
                                                        : registersPerValue(v.format);
    perRow = bits ? (isOctalArea(v.areaType) ? 8 : 16) : step == 1 ? 8 : step == 2 ? 4 : 1;
    for (int k = 0; k + step <= values.size(); k += step) {
        const QList<int> words = values.mid(k, step);
        Cell c;
        c.label = label(v, k, showStation);
        c.quoted = v.format.kind == ValueFormat::String && !bits;
        c.known = !words.contains(kUnknown);
        if (c.known)
            c.text = bits ? QString::number(words.at(0)) : formatValue(v.format, words);
        cells.append(c);
    }
    return cells;
}

QString tableCell(const VarSpec &v, const Cell &c)
{
    if (isBitArea(v.areaType))
        return (c.known ? c.text : QString("?")).rightJustified(2);
    if (c.quoted)
        return " " + (c.known ? '"' + printable(c.text).replace('"', "\\\"") + '"' : QString("--"));
    const int width = registersPerValue(v.format) == 2 ? 12 : 7;
    return " " + (c.known ? c.text : QString("--")).rightJustified(width - 1);
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

QString renderTable(const QList<VarSpec> &vars, const ValueTable &values, bool showStation)
{
    QList<QStringList> rows;  // label, cells
    int width = 0;
    for (int i = 0; i < vars.size() && i < values.size(); ++i) {
        int perRow = 1;
        const QList<Cell> cells = cellsOf(vars.at(i), values.at(i), showStation, perRow);
        for (int k = 0; k < cells.size(); k += perRow) {
            QString line;
            for (int j = k; j < k + perRow && j < cells.size(); ++j)
                line += tableCell(vars.at(i), cells.at(j));
            rows.append(QStringList() << cells.at(k).label << line);
            width = qMax(width, cells.at(k).label.size());  // labels line up across all rows
        }
    }
    QString out;
    for (int r = 0; r < rows.size(); ++r)
        out += rows.at(r).at(0).leftJustified(width) + " |" + rows.at(r).at(1) + '\n';
    return out;
}

QString renderCsv(const QList<VarSpec> &vars, const ValueTable &values, long long scan,
                  bool showStation, bool header)
{
    QStringList labels, fields;
    for (int i = 0; i < vars.size() && i < values.size(); ++i) {
        int perRow = 1;
        const QList<Cell> cells = cellsOf(vars.at(i), values.at(i), showStation, perRow);
        for (int k = 0; k < cells.size(); ++k) {
            const Cell &c = cells.at(k);
            labels << jsonKey(vars.at(i), c.label);
            fields << (c.quoted && c.known ? '"' + printable(c.text).replace('"', "\"\"") + '"'
                                           : c.text);
        }
    }
    const QString row = QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddThh:mm:ss.zzzZ") + "," +
                        QString::number(scan) + "," + fields.join(",") + '\n';
    return header ? "time,scan," + labels.join(",") + '\n' + row : row;
}

QString renderJson(const QList<VarSpec> &vars, const ValueTable &values, const PollStats &s,
                   bool showStation, const QStringList &problems, const WriteCounts *writes,
                   const QStringList &writeEvents, const QString &lineJson)
{
    QString out = QString("{\"scan\":%1,\"time\":\"%2\",\"scan_ms\":%3,\"frames_per_s\":%4,"
                          "\"frames\":%5,\"received\":%6,\"retries\":%7,\"given_up\":%8,"
                          "\"last_code\":%9,\"last_meaning\":\"%10\",\"link_up\":%11,\"values\":{")
                      .arg(s.scans)
                      .arg(QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddThh:mm:ss.zzzZ"))
                      .arg(s.scanMs, 0, 'f', 2)
                      .arg(s.framesPerSecond < 0 ? QString("null")
                                                 : QString::number(s.framesPerSecond, 'f', 1))
                      .arg(s.framesSent)
                      .arg(s.repliesHeard)
                      .arg(s.retries)
                      .arg(s.givenUp)
                      .arg(s.lastCode)
                      .arg(lastMeaning(s))
                      .arg(s.linkUp ? "true" : "false");
    QStringList items;
    for (int i = 0; i < vars.size() && i < values.size(); ++i) {
        int perRow = 1;
        const QList<Cell> cells = cellsOf(vars.at(i), values.at(i), showStation, perRow);
        for (int k = 0; k < cells.size(); ++k) {
            const Cell &c = cells.at(k);
            QString value = c.text;
            if (!c.known || c.text == "nan" || c.text.contains("inf"))
                value = "null";
            else if (c.quoted)
                value = jsonString(c.text);
            else if (c.text.startsWith("0x"))
                value = QString::number(c.text.mid(2).toInt(nullptr, 16));
            items << jsonString(jsonKey(vars.at(i), c.label)) + ":" + value;
        }
    }
    out += items.join(",");
    out += "},\"problems\":" + jsonList(problems) + ",\"line\":" + lineJson;
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
