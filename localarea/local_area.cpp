#include "local_area.h"

#include <cstddef>

namespace {

struct AreaInfo {
    std::size_t offset;  // byte offset of the block in LocalArea
    int capacity;        // elements
};

#define BLOCK(field, elements) {offsetof(LocalArea, field), elements}
const AreaInfo areaTable[AreaTypeCount] = {
    BLOCK(localX, 8384),  BLOCK(localY, 8384),  BLOCK(localM, 8000),   BLOCK(localS, 1024),
    BLOCK(localT, 576),   BLOCK(localC, 576),   BLOCK(localET, 32),    BLOCK(localSM, 2048),
    BLOCK(localHM, 960),  BLOCK(localHS, 128),  BLOCK(localHT, 96),    BLOCK(localHC, 96),
    BLOCK(localHSC, 32),  BLOCK(localSEM, 32),  BLOCK(localD, 8000),   BLOCK(localTD, 576),
    BLOCK(localCD, 576),  BLOCK(localFD, 6144), BLOCK(localETD, 32),   BLOCK(localSD, 4096),
    BLOCK(localHD, 1000), BLOCK(localSFD, 2000), BLOCK(localID, 100),  BLOCK(localQD, 100),
    BLOCK(localHSD, 500), BLOCK(localFS, 48),
};
#undef BLOCK

}  // namespace

int areaCapacity(int areaType)
{
    return isArea(areaType) ? areaTable[areaType].capacity : 0;
}

unsigned char *bitBlock(LocalArea &area, int areaType)
{
    if (!isBitArea(areaType))
        return nullptr;
    return reinterpret_cast<unsigned char *>(&area) + areaTable[areaType].offset;
}

unsigned short *wordBlock(LocalArea &area, int areaType)
{
    if (!isWordArea(areaType))
        return nullptr;
    return reinterpret_cast<unsigned short *>(reinterpret_cast<unsigned char *>(&area) +
                                              areaTable[areaType].offset);
}

bool clampToArea(int areaType, int start, int &count)
{
    const int capacity = areaCapacity(areaType);
    if (start < 0 || count < 1 || start >= capacity)
        return false;
    if (count > capacity - start)
        count = capacity - start;
    return true;
}
