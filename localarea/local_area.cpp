#include "local_area.h"

#include <cstddef>

namespace {

// Byte offset of each area's block in LocalArea; the capacities are the
// area table's.
#define BLOCK(field) offsetof(LocalArea, field)
const std::size_t blockOffset[AreaTypeCount] = {
    BLOCK(localX),  BLOCK(localY),   BLOCK(localM),   BLOCK(localS),   BLOCK(localT),
    BLOCK(localC),  BLOCK(localET),  BLOCK(localSM),  BLOCK(localHM),  BLOCK(localHS),
    BLOCK(localHT), BLOCK(localHC),  BLOCK(localHSC), BLOCK(localSEM), BLOCK(localD),
    BLOCK(localTD), BLOCK(localCD),  BLOCK(localFD),  BLOCK(localETD), BLOCK(localSD),
    BLOCK(localHD), BLOCK(localSFD), BLOCK(localID),  BLOCK(localQD),  BLOCK(localHSD),
    BLOCK(localFS),
};
#undef BLOCK

// Each block holds exactly its area's capacity: 8 bits a byte, or one word.
constexpr bool blocksFitTable()
{
    const std::size_t sizes[AreaTypeCount] = {
        sizeof(LocalArea::localX),   sizeof(LocalArea::localY),   sizeof(LocalArea::localM),
        sizeof(LocalArea::localS),   sizeof(LocalArea::localT),   sizeof(LocalArea::localC),
        sizeof(LocalArea::localET),  sizeof(LocalArea::localSM),  sizeof(LocalArea::localHM),
        sizeof(LocalArea::localHS),  sizeof(LocalArea::localHT),  sizeof(LocalArea::localHC),
        sizeof(LocalArea::localHSC), sizeof(LocalArea::localSEM), sizeof(LocalArea::localD),
        sizeof(LocalArea::localTD),  sizeof(LocalArea::localCD),  sizeof(LocalArea::localFD),
        sizeof(LocalArea::localETD), sizeof(LocalArea::localSD),  sizeof(LocalArea::localHD),
        sizeof(LocalArea::localSFD), sizeof(LocalArea::localID),  sizeof(LocalArea::localQD),
        sizeof(LocalArea::localHSD), sizeof(LocalArea::localFS),
    };
    for (int t = 0; t < AreaTypeCount; ++t) {
        const std::size_t capacity = std::size_t(kAreas[t].capacity);
        if (sizes[t] != (t < FirstWordArea ? (capacity + 7) / 8 : 2 * capacity))
            return false;
    }
    return true;
}
static_assert(blocksFitTable(), "every block holds its area's capacity");

}  // namespace

unsigned char *bitBlock(LocalArea &area, int areaType)
{
    if (!isBitArea(areaType))
        return nullptr;
    return reinterpret_cast<unsigned char *>(&area) + blockOffset[areaType];
}

unsigned short *wordBlock(LocalArea &area, int areaType)
{
    if (!isWordArea(areaType))
        return nullptr;
    return reinterpret_cast<unsigned short *>(reinterpret_cast<unsigned char *>(&area) +
                                              blockOffset[areaType]);
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
