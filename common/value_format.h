// How a run of 16-bit registers is shown and written: uint16 (the default),
// int16, hex, uint32, int32 and float over two registers in word order abcd
// (first register high) or cdab, and string (two characters a register,
// the first in the high byte). Named as "float", "float:cdab", "string".
#ifndef RV_COMMON_VALUE_FORMAT_H
#define RV_COMMON_VALUE_FORMAT_H

#include <QList>
#include <QString>

struct ValueFormat {
    enum Kind { Uint16, Int16, Hex, Uint32, Int32, Float, String };
    Kind kind = Uint16;
    bool cdab = false;  // 32-bit values: low word in the first register
};

// "int16", "float:cdab", ...; false with a reason for an unknown name.
bool parseFormat(const QString &text, ValueFormat &out, QString &error);
// "float:cdab", "uint16": the name parseFormat reads.
QString formatName(const ValueFormat &f);
// Registers one value takes: 1, 2, or 0 for string (the whole range).
int registersPerValue(const ValueFormat &f);
// The value of `words` (registers, 0..65535 each) as text.
QString formatValue(const ValueFormat &f, const QList<int> &words);
// Registers for a written value: "-1" (int16), "3.5" (float), "hello"
// (string), "1,2,3" for several values; false with a reason.
bool encodeValues(const ValueFormat &f, const QString &text, QList<int> &words, QString &error);

#endif
