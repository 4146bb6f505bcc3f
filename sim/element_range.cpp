#include "element_range.h"

#include <QString>

#include "frames/address_map.h"
#include "localarea/local_area.h"
#include "varspec.h"

bool parseElementRange(const std::string &text, ElementRange &out, std::string &error)
{
    VarSpec spec;
    QString why;
    if (!parseVarSpec(QString::fromStdString(text), false, spec, why)) {
        error = why.toStdString();
        return false;
    }
    if (spec.station != 0) {
        error = "'" + text + "': every station served shares the same values; drop the station";
        return false;
    }
    int count = spec.count;
    if (!clampToArea(spec.areaType, spec.address, count) || count != spec.count) {
        const int last = areaCapacity(spec.areaType) - 1;
        error = "'" + text + "' runs past the end of area " +
                areaNameOf(spec.areaType).toStdString() + " (last element " +
                elementName(spec.areaType, last).toStdString() + ")";
        return false;
    }
    out.coils = isBitArea(spec.areaType);
    out.addresses.clear();
    for (int i = 0; i < count; ++i) {
        const int element = spec.address + i;
        const int address = out.coils ? BitElementToCoil(spec.areaType, element)
                                      : WordElementToRegister(spec.areaType, element);
        out.addresses.push_back(address & 0xFFFF);  // frames carry the low 16 bits
    }
    return true;
}
