#include "common/words.h"

QString jsonString(const QString &text)
{
    QString out = "\"";
    for (int i = 0; i < text.size(); ++i) {
        const ushort c = text.at(i).unicode();
        if (c == '"' || c == '\\')
            out += QString('\\') + text.at(i);
        else if (c < 0x20 || c >= 0x7F)  // plain ASCII whatever the locale
            out += QString("\\u%1").arg(c, 4, 16, QChar('0'));
        else
            out += text.at(i);
    }
    return out + '"';
}

QString jsonList(const QStringList &items)
{
    QStringList quoted;
    for (int i = 0; i < items.size(); ++i)
        quoted << jsonString(items.at(i));
    return '[' + quoted.join(",") + ']';
}

QString counted(long long n, const char *one, const char *many)
{
    return QString("%1 %2").arg(n).arg(n == 1 ? one : many);
}
