// What the operator types to name controller elements: "D0-D19", "M0-M63",
// "X0-X17" (X and Y in octal, as the controller writes them), "TD5", with a
// station prefix "2:D0-D9" when several stations share the line, and write
// requests "D100=0x1234" or "M5=1".
#ifndef RV_COMMON_VARSPEC_H
#define RV_COMMON_VARSPEC_H

#include <QList>
#include <QString>

#include "localarea/areas.h"  // isOctalArea and the other facts of an area
#include "common/value_format.h"

// Area type for a name ("D" -> 14), or -1 for a name the controller lacks.
int areaTypeByName(const QString &name);
// Name of an area type ("D" for 14), empty for no area.
QString areaNameOf(int areaType);

// The address as the controller writes it: octal for X/Y, decimal otherwise.
QString addressTextOf(int areaType, int address);
// "X17", "D100".
QString elementName(int areaType, int address);

struct VarSpec {
    int station = 0;  // 0 = the default station
    int areaType = -1;
    int address = 0;  // element address (bit number or word number)
    int count = 1;    // elements
    ValueFormat format;
    bool hasFormat = false;  // given with the range: "D100-D101:float"
};

// One element run, "D0-D9", maybe with a format "D100-D101:float". The text
// may (and with `needStation` must) start with a station "N:". Returns false
// and says why in `error`.
bool parseVarSpec(const QString &text, bool needStation, VarSpec &out, QString &error);

// Whitespace-separated specs; "#" starts a comment to the end of the line.
bool parseVarList(const QString &text, bool needStation, QList<VarSpec> &out, QString &error);

struct WriteSpec {
    QString text;       // as given: "D200=3.5:float"
    VarSpec target;     // count = number of values
    QList<int> values;  // 0/1 for bits, 0..65535 for words
};

// "D100=0x1234", "D10=1,2,3" (consecutive words), "M5=1", "2:D0=7",
// "D200=3.5:float", "D300=hello:string"; `format` for values without one.
bool parseWriteSpec(const QString &text, bool needStation, WriteSpec &out, QString &error,
                    const ValueFormat &format = ValueFormat());

// Value bytes as the driver takes them: one byte per bit, words low byte first.
QByteArray writeBytes(const WriteSpec &w);

#endif
