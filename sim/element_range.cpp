#include "element_range.h"

#include <QString>

#include "frames/address_map.h"
#include "localarea/local_area.h"
#include "common/varspec.h"

bool parseElementRange(const std::string &text, ElementRange &out, std::string &error)
{
    VarSpec range;
    QString why;
    if (!parseVarSpec(QString::fromStdString(text), false, range, why)) {
        error = why.toStdString();
        return false;
    }
    if (range.station != 0) {
        error = "'" + text + "': every station served shares the same values; drop the station";
        return false;
    }
    int count = range.count;
    if (!clampToArea(range.areaType, range.address, count) || count != range.count) {
        const int last = areaCapacity(range.areaType) - 1;
        error = "'" + text + "' runs past the end of area " +
                areaNameOf(range.areaType).toStdString() + " (last element " +
                elementName(range.areaType, last).toStdString() + ")";
        return false;
    }
    out.coils = isBitArea(range.areaType);
    out.addresses.clear();
    for (int i = 0; i < count; ++i) {
        const int element = range.address + i;
        const int address = out.coils ? BitElementToCoil(range.areaType, element)
                                      : WordElementToRegister(range.areaType, element);
        out.addresses.push_back(address & 0xFFFF);  // frames carry the low 16 bits
    }
    return true;
}
