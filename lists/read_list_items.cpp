// The variables as the rebuild reads them, how a request is made for a
// variable, and the one order of runs by address.
#include "read_list_passes.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "../driver/driver_object.h"
#include "../localarea/local_area.h"

namespace {

bool isBitName(const QString &name)
{
    // Runs once per polled variable: compare the few characters directly
    // with the bit areas' names instead of building fourteen strings.
    const int n = name.size();
    if (n < 1 || n > 3)
        return false;
    char text[4] = {0, 0, 0, 0};
    for (int i = 0; i < n; ++i) {
        const ushort c = name.at(i).unicode();
        if (c == 0 || c > 0x7F)
            return false;
        text[i] = char(c);
    }
    for (int t = 0; t < FirstWordArea; ++t)
        if (std::strcmp(text, kAreas[t].name) == 0)
            return true;
    return false;
}

}  // namespace

std::vector<Polled> pollVariables(const QList<VarInfo> &vars, bool withNames)
{
    std::vector<Polled> polled(std::size_t(vars.size()));
    for (int i = 0; i < vars.size(); ++i) {
        const VarInfo &item = vars.at(i);
        Polled &p = polled[std::size_t(i)];
        p.address = StringAddressToInt(item.areaType, item.addressText);
        p.count = item.count;
        p.readable = p.address >= 0;
        p.areaType = item.areaType;
        p.station = item.station;
        p.bitName = withNames && isBitName(item.areaName);
        p.fsName = withNames && item.areaName == QLatin1String(kAreas[AreaTypeCount - 1].name);
    }
    return polled;
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

void describeRequest(RW_VAR &v, const VarInfo &item, int station, int address, int count)
{
    v.station = station;
    v.areaName = item.areaName;
    v.addressText = item.addressText;
    v.areaType = item.areaType;
    v.address = address;
    v.count = count;
}

RW_VAR requestFor(const RW_VAR &tmpl, const VarInfo &item, int station, int address, int count)
{
    RW_VAR v = tmpl;
    describeRequest(v, item, station, address, count);
    return v;
}

void sortByAddress(std::vector<Span> &spans)
{
    // Spans are made in order of `item`, so a stable sort on the address
    // alone gives the order (address, item). Addresses inside one area span
    // a few thousand values, so a least-significant-digit radix sort over
    // that span costs two linear passes instead of n log n comparisons.
    const std::size_t n = spans.size();
    if (n < 64) {
        std::stable_sort(spans.begin(), spans.end(),
                         [](const Span &a, const Span &b) { return a.address < b.address; });
        return;
    }
    int low = spans[0].address, high = low;
    for (std::size_t i = 1; i < n; ++i) {
        low = std::min(low, spans[i].address);
        high = std::max(high, spans[i].address);
    }
    const unsigned range = unsigned(high) - unsigned(low);
    int bits = 0;
    while (bits < 32 && (range >> bits) != 0)
        ++bits;
    if (bits == 0)
        return;  // one address: already in order
    const int passes = (bits + 10) / 11;
    const int digitBits = (bits + passes - 1) / passes;
    const unsigned mask = (1u << digitBits) - 1;
    std::vector<Span> other(n);
    std::vector<std::size_t> start(std::size_t(mask) + 2);
    std::vector<Span> *from = &spans, *to = &other;
    for (int shift = 0; shift < bits; shift += digitBits) {
        std::fill(start.begin(), start.end(), 0);
        for (std::size_t i = 0; i < n; ++i)
            ++start[(((unsigned((*from)[i].address) - unsigned(low)) >> shift) & mask) + 1];
        for (std::size_t d = 1; d < start.size(); ++d)
            start[d] += start[d - 1];
        for (std::size_t i = 0; i < n; ++i) {
            const Span &s = (*from)[i];
            (*to)[start[((unsigned(s.address) - unsigned(low)) >> shift) & mask]++] = s;
        }
        std::swap(from, to);
    }
    if (from != &spans)
        spans.swap(other);
}
