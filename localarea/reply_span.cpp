#include "reply_span.h"

#include <climits>

#include "local_area.h"

bool replySpan(int areaType, int address, int units, ReplySpan &span)
{
    if (units < 1 || !isArea(areaType))
        return false;
    const long long perUnit = isBitArea(areaType) ? 8 : 1;

    // A bit reply is stored whole bytes at a time, so it starts at the
    // multiple of 8 at or below its address (below, also for negatives).
    long long first = address;
    if (perUnit == 8)
        first = (first >= 0 ? first / 8 : -((-first + 7) / 8)) * 8;

    // Units before element 0 are dropped; the rest keep their place.
    long long skip = 0;
    if (first < 0) {
        skip = (-first + perUnit - 1) / perUnit;
        first += skip * perUnit;
    }
    const long long left = units - skip;
    if (left < 1)
        return false;

    long long elements = left * perUnit;
    int count = elements > INT_MAX ? INT_MAX : int(elements);
    if (!clampToArea(areaType, int(first), count))
        return false;
    // Bit capacities are whole bytes, so the cut count is too.
    span.first = int(first);
    span.units = int(count / perUnit);
    span.skip = int(skip);
    return span.units > 0;
}
