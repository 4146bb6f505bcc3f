#include "common/value_format.h"

#include <QStringList>

#include <cstring>

namespace {

const char *const kNames[] = {"uint16", "int16", "hex", "uint32", "int32", "float", "string"};

quint32 joinWords(const ValueFormat &f, int first, int second)
{
    const quint32 a = quint32(first) & 0xFFFF, b = quint32(second) & 0xFFFF;
    return f.cdab ? (b << 16) | a : (a << 16) | b;
}

void splitWords(const ValueFormat &f, quint32 v, QList<int> &words)
{
    const int high = int(v >> 16), low = int(v & 0xFFFF);
    words << (f.cdab ? low : high) << (f.cdab ? high : low);
}

}  // namespace

bool parseFormat(const QString &text, ValueFormat &out, QString &error)
{
    const QStringList parts = text.trimmed().toLower().split(':');
    out = ValueFormat();
    int kind = 0;
    while (kind <= ValueFormat::String && parts.at(0) != QLatin1String(kNames[kind]))
        ++kind;
    const bool wide = kind >= ValueFormat::Uint32 && kind <= ValueFormat::Float;
    const bool order = parts.size() == 2 && (parts.at(1) == "abcd" || parts.at(1) == "cdab");
    if (kind > ValueFormat::String || parts.size() > 2 || (parts.size() == 2 && !(wide && order))) {
        error = QString("unknown format '%1' (uint16, int16, hex, uint32, int32, float, string; "
                        "32-bit ones may add :abcd or :cdab)")
                    .arg(text);
        return false;
    }
    out.kind = ValueFormat::Kind(kind);
    out.cdab = parts.size() == 2 && parts.at(1) == "cdab";
    return true;
}

QString formatName(const ValueFormat &f)
{
    return QString(kNames[f.kind]) + (f.cdab ? ":cdab" : "");
}

int registersPerValue(const ValueFormat &f)
{
    if (f.kind == ValueFormat::String)
        return 0;
    return f.kind >= ValueFormat::Uint32 ? 2 : 1;
}

QString formatValue(const ValueFormat &f, const QList<int> &words)
{
    if (words.isEmpty())
        return QString();
    switch (f.kind) {
    case ValueFormat::Int16: return QString::number(qint16(quint16(words.at(0))));
    case ValueFormat::Hex:
        return "0x" + QString::number(words.at(0), 16).toUpper().rightJustified(4, '0');
    case ValueFormat::Uint32:
    case ValueFormat::Int32:
    case ValueFormat::Float: {
        if (words.size() < 2)
            return QString();
        const quint32 v = joinWords(f, words.at(0), words.at(1));
        if (f.kind == ValueFormat::Uint32)
            return QString::number(v);
        if (f.kind == ValueFormat::Int32)
            return QString::number(qint32(v));
        float x;
        std::memcpy(&x, &v, sizeof x);
        return QString::number(double(x), 'g', 7);
    }
    case ValueFormat::String: {
        QByteArray bytes;
        for (int i = 0; i < words.size(); ++i)
            bytes.append(char(words.at(i) >> 8)).append(char(words.at(i) & 0xFF));
        const int end = bytes.indexOf('\0');
        return QString::fromLatin1(end < 0 ? bytes : bytes.left(end));
    }
    default: return QString::number(words.at(0));
    }
}

bool encodeValues(const ValueFormat &f, const QString &text, QList<int> &words, QString &error)
{
    words.clear();
    if (f.kind == ValueFormat::String) {
        const QByteArray bytes = text.toLatin1();
        for (int i = 0; i < bytes.size(); i += 2)
            words << ((quint8(bytes.at(i)) << 8) |
                      (i + 1 < bytes.size() ? quint8(bytes.at(i + 1)) : 0));
        if (words.isEmpty())
            error = "an empty string writes nothing";
        return !words.isEmpty();
    }
    const QStringList items = text.split(',');
    for (int i = 0; i < items.size(); ++i) {
        const QString t = items.at(i).trimmed();
        bool ok = false;
        if (f.kind == ValueFormat::Float) {
            const float x = t.toFloat(&ok);
            quint32 v;
            std::memcpy(&v, &x, sizeof v);
            if (ok)
                splitWords(f, v, words);
        } else if (registersPerValue(f) == 2) {
            const qlonglong v = t.startsWith("0x", Qt::CaseInsensitive)
                                    ? t.mid(2).toLongLong(&ok, 16)
                                    : t.toLongLong(&ok, 10);
            ok = ok && v >= (f.kind == ValueFormat::Int32 ? -2147483648LL : 0) &&
                 v <= (f.kind == ValueFormat::Int32 ? 2147483647LL : 4294967295LL);
            if (ok)
                splitWords(f, quint32(v), words);
        } else {
            const long v = t.startsWith("0x", Qt::CaseInsensitive) ? t.mid(2).toLong(&ok, 16)
                                                                   : t.toLong(&ok, 10);
            ok = ok && v >= -32768 && v <= 65535;
            if (ok)
                words << int(v & 0xFFFF);
        }
        if (!ok) {
            error = QString("'%1' is no %2 value").arg(t, kNames[f.kind]);
            return false;
        }
    }
    return true;
}
