#include "common/varspec.h"

#include <QByteArray>
#include <QStringList>

namespace {

// Largest element address we accept at all; the driver cuts at the area's end.
const int kMaxAddress = 0xFFFF;

bool parseNumber(const QString &text, int base, int &out)
{
    if (text.isEmpty())
        return false;
    for (int i = 0; i < text.size(); ++i)
        if (!text.at(i).isDigit())
            return false;
    bool ok = false;
    out = text.toInt(&ok, base);
    return ok && out <= kMaxAddress;
}

// Splits "HSC12" into "HSC" and "12".
bool splitElement(const QString &text, QString &area, QString &digits)
{
    int i = 0;
    while (i < text.size() && text.at(i).isLetter())
        ++i;
    area = text.left(i).toUpper();
    digits = text.mid(i);
    return !area.isEmpty() && !digits.isEmpty();
}

bool parseElement(const QString &text, int &type, int &address, QString &error)
{
    QString area, digits;
    if (!splitElement(text, area, digits)) {
        error = QString("'%1' is not an element (expected e.g. D100, M5, X17)").arg(text);
        return false;
    }
    type = areaTypeByName(area);
    if (type < 0) {
        error = QString("unknown area '%1' in '%2'").arg(area, text);
        return false;
    }
    if (!parseNumber(digits, addressBase(type), address)) {
        error = isOctalArea(type)
                    ? QString("'%1': %2 addresses are octal (digits 0-7)").arg(text, area)
                    : QString("'%1': bad address '%2'").arg(text, digits);
        return false;
    }
    return true;
}

bool parseStation(QString &text, bool needStation, int &station, QString &error)
{
    // A station prefix starts with a digit; "D0:float" has a format instead.
    const int colon = text.indexOf(':');
    if (colon < 0 || text.isEmpty() || !text.at(0).isDigit()) {
        if (needStation) {
            error =
                QString("'%1' needs a station prefix (e.g. 1:%1) with --multi-station").arg(text);
            return false;
        }
        station = 0;
        return true;
    }
    bool ok = false;
    station = text.left(colon).toInt(&ok, 10);
    if (!ok || station < 0 || station > 247) {
        error = QString("bad station in '%1' (0..247)").arg(text);
        return false;
    }
    text = text.mid(colon + 1);
    return true;
}

// Splits a trailing ":float" or ":float:cdab" off `text`; false for a
// format name that is not one.
bool splitFormat(QString &text, ValueFormat &format, bool &given, QString &error)
{
    const int colon = text.indexOf(':');
    given = colon >= 0;
    if (!given)
        return true;
    const QString name = text.mid(colon + 1);
    text.truncate(colon);
    return parseFormat(name, format, error);
}

}  // namespace

int areaTypeByName(const QString &name)
{
    for (int t = 0; t < AreaTypeCount; ++t)
        if (name == QLatin1String(kAreas[t].name))
            return t;
    return -1;
}

QString areaNameOf(int areaType)
{
    return isArea(areaType) ? QString(areaName(areaType)) : QString();
}

QString addressTextOf(int areaType, int address)
{
    return QString::number(address, addressBase(areaType));
}

QString elementName(int areaType, int address)
{
    return areaNameOf(areaType) + addressTextOf(areaType, address);
}

bool parseVarSpec(const QString &input, bool needStation, VarSpec &out, QString &error)
{
    QString text = input.trimmed();
    if (!parseStation(text, needStation, out.station, error))
        return false;
    if (!splitFormat(text, out.format, out.hasFormat, error))
        return false;
    const int dash = text.indexOf('-');
    int type = -1, first = 0;
    if (!parseElement(dash < 0 ? text : text.left(dash), type, first, error))
        return false;
    int last = first;
    if (dash >= 0) {
        QString end = text.mid(dash + 1);
        // "D0-19" is read as "D0-D19".
        if (!end.isEmpty() && end.at(0).isDigit())
            end.prepend(areaNameOf(type));
        int endType = -1;
        if (!parseElement(end, endType, last, error))
            return false;
        if (endType != type) {
            error = QString("'%1': a range stays within one area").arg(input);
            return false;
        }
        if (last < first) {
            error = QString("'%1': range ends before it starts").arg(input);
            return false;
        }
    }
    out.areaType = type;
    out.address = first;
    out.count = last - first + 1;
    if (out.hasFormat && !isWordArea(type)) {
        error = QString("'%1': formats are for word areas (D, TD, ...)").arg(input);
        return false;
    }
    if (registersPerValue(out.format) == 2 && out.count % 2) {
        error = QString("'%1': a 32-bit format takes an even number of registers").arg(input);
        return false;
    }
    return true;
}

bool parseVarList(const QString &text, bool needStation, QList<VarSpec> &out, QString &error)
{
    const QStringList lines = text.split('\n');
    for (int l = 0; l < lines.size(); ++l) {
        QString line = lines.at(l);
        const int hash = line.indexOf('#');
        if (hash >= 0)
            line.truncate(hash);
        const QStringList words = line.simplified().split(' ');
        for (int w = 0; w < words.size(); ++w) {
            if (words.at(w).isEmpty())
                continue;
            VarSpec v;
            if (!parseVarSpec(words.at(w), needStation, v, error))
                return false;
            out.append(v);
        }
    }
    return true;
}

bool parseWriteSpec(const QString &input, bool needStation, WriteSpec &out, QString &error,
                    const ValueFormat &format)
{
    const int eq = input.indexOf('=');
    if (eq < 0) {
        error = QString("'%1' is not a write (expected e.g. D100=0x1234 or M5=1)").arg(input);
        return false;
    }
    QString target = input.left(eq).trimmed();
    if (target.contains('-')) {
        error = QString("'%1': write to one element; give several values as D10=1,2,3").arg(input);
        return false;
    }
    if (!parseVarSpec(target, needStation, out.target, error))
        return false;
    const bool bit = isBitArea(out.target.areaType);
    // The format comes after the last colon: "D300=a:b:string" writes "a:b".
    QString value = input.mid(eq + 1);
    ValueFormat f = format;
    QString ignored;
    ValueFormat suffix;
    for (int colon = value.size(), tries = 0; !bit && tries < 2 && colon > 0; ++tries) {
        colon = value.lastIndexOf(':', colon - 1);
        if (colon >= 0 && parseFormat(value.mid(colon + 1), suffix, ignored)) {
            f = suffix;
            value.truncate(colon);  // "3.5:float:cdab" is tried at both colons
            break;
        }
    }
    out.values.clear();
    if (bit) {
        const QStringList parts = value.split(',');
        for (int i = 0; i < parts.size(); ++i) {
            const QString t = parts.at(i).trimmed();
            if (t != "0" && t != "1") {
                error = QString("'%1': a bit takes 0 or 1").arg(input);
                return false;
            }
            out.values.append(t.toInt());
        }
    } else if (!encodeValues(f, value, out.values, error)) {
        if (f.kind <= ValueFormat::Hex)
            error = QString("'%1': a word takes -32768..65535 or 0x0000..0xFFFF").arg(input);
        else
            error = QString("'%1': %2").arg(input, error);
        return false;
    }
    out.target.count = out.values.size();
    out.target.format = f;
    out.text = input.trimmed();
    // Nothing is cut: a write that runs past its area's end is not sent.
    const int capacity = areaCapacity(out.target.areaType);
    if ((long long)out.target.address + out.target.count > capacity) {
        error = QString("'%1': runs past the end of the %2 area, whose last element is %3")
                    .arg(out.text, areaNameOf(out.target.areaType),
                         elementName(out.target.areaType, capacity - 1));
        return false;
    }
    return true;
}

QByteArray writeBytes(const WriteSpec &w)
{
    QByteArray bytes;
    const bool bit = isBitArea(w.target.areaType);
    for (int i = 0; i < w.values.size(); ++i) {
        if (bit) {
            bytes.append(char(w.values.at(i) ? 1 : 0));
        } else {
            bytes.append(char(w.values.at(i) & 0xFF));
            bytes.append(char((w.values.at(i) >> 8) & 0xFF));
        }
    }
    return bytes;
}
