// Which variables the rebuild can read, how far a request may reach, how
// a request is made for a variable, and the one order of runs by address.
#include "read_list_passes.h"

#include <algorithm>

#include "../driver/driver_object.h"
#include "../localarea/local_area.h"

bool readableVariable(const VarInfo &item, int &address, int &count)
{
    address = StringAddressToInt(item.areaType, item.addressText);
    count = item.count;
    // Past the area's end there is no element on the controller to read and
    // no room in the mirror to keep it.
    return clampToArea(item.areaType, address, count);
}

bool fitRequestToArea(RW_VAR &request)
{
    const long long capacity = areaCapacity(request.areaType);
    const long long start = request.address;
    if (start < 0 || request.count < 1 || start >= capacity)
        return false;
    // A bit request counts bytes of 8 elements from its start.
    const long long room = isBitArea(request.areaType) ? (capacity - start) / 8 : capacity - start;
    if (room < 1)
        return false;
    if (request.count > room)
        request.count = int(room);
    return true;
}

RW_VAR blockTemplate(const ComInfo &info)
{
    RW_VAR tmpl;
    tmpl.ownerType = 0;
    tmpl.ownerId = -1;
    tmpl.rwMode = 0;
    tmpl.remoteLink = info.remoteLink;
    tmpl.linkNo = info.localLinkNo;
    tmpl.result = 0;
    return tmpl;
}

RW_VAR requestFor(const RW_VAR &tmpl, const VarInfo &item, int station, int address, int count)
{
    RW_VAR v = tmpl;
    v.station = station;
    v.areaName = item.areaName;
    v.addressText = item.addressText;
    v.areaType = item.areaType;
    v.address = address;
    v.count = count;
    return v;
}

void sortByAddress(std::vector<Span> &spans)
{
    // Spans are made in order of `item`, so ordering equal addresses by it
    // keeps their order without the cost of a stable sort.
    struct ByAddress {
        bool operator()(const Span &a, const Span &b) const
        {
            return a.address < b.address || (a.address == b.address && a.item < b.item);
        }
    };
    std::sort(spans.begin(), spans.end(), ByAddress());
}
