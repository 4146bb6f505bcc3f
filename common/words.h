// Text both tools write the same way: JSON strings and lists (plain ASCII
// whatever the locale), and counts with their noun ("1 reply", "2 replies").
#ifndef RV_COMMON_WORDS_H
#define RV_COMMON_WORDS_H

#include <QString>
#include <QStringList>

QString jsonString(const QString &text);
QString jsonList(const QStringList &items);
// "1 reply", "3 replies".
QString counted(long long n, const char *one, const char *many);

#endif
