// The passes that rebuild the cyclic read list, and the rules they share:
// which variables can be read, how far a request may reach, how a length is
// cut into pieces, and how runs are ordered. All of it runs inside
// ReCreatReadVarList with listMutex held; none of it locks.
#ifndef QUORVEL_RV_READ_LIST_PASSES_H
#define QUORVEL_RV_READ_LIST_PASSES_H

#include <climits>
#include <vector>

#include <QList>

#include "../driver/records.h"

// A run of elements taken from the variable at index `item` of the runtime's
// list (or of a request list). The passes sort and merge these small
// records and make a full request only for a block they emit.
struct Span {
    int address;
    int count;
    int item;
};

// Ascending address; equal addresses keep their order. Spans must be made
// with `item` never falling (each pass makes them so).
void sortByAddress(std::vector<Span> &spans);

// The most pieces one run is cut into. A memory guard only: a count in the
// billions with a block size of 1 would otherwise ask for billions of
// requests. It is as many as a 16-bit count can number, far more than the
// largest area has elements (D, 8,000), so every run inside an area, and
// every run a frame's quantity can describe, is cut whole.
const long long MaxPieces = 65536;

// The number of pieces of `size` that `total` units are cut into, by the
// arithmetic of the lists: total / size, one more for a remainder, which the
// last piece holds (`last`; size when there is none). A size of 0 gives one
// piece of total. Below 1 means no piece.
inline long long pieceCount(long long total, long long size, long long &last)
{
    if (size == 0) {
        last = total;
        return 1;
    }
    last = total % size ? total % size : size;
    return total / size + (total % size ? 1 : 0);
}

// Cuts `total` units from `start` into those pieces; piece k starts at
// start + step * k * size. Calls piece(address, count) in order until it
// returns false, a piece would start outside the int range, or MaxPieces
// pieces were made.
template <class Piece>
void cutPieces(long long start, long long step, long long total, long long size, Piece piece)
{
    long long last;
    const long long n = pieceCount(total, size, last);
    for (long long k = 0; k < n && k < MaxPieces; ++k) {
        const long long address = start + step * (k * size);
        if (address < INT_MIN || address > INT_MAX ||
            !piece(int(address), int(k == n - 1 ? last : size)))
            return;
    }
}

// One polled variable as the passes use it, worked out once per rebuild so
// that each address text is parsed once and the runtime's records are read
// again only for the requests a pass emits.
struct Polled {
    int address;    // parsed from the text
    int count;      // the variable's own count, whatever its sign
    bool readable;  // false for an address text giving a negative number
    unsigned char areaType;
    unsigned char station;
    bool bitName;  // named as a bit area ("X", "M", ...)
    bool fsName;   // named "FS"
};

// The variables in list order. The names are looked at only when asked for.
std::vector<Polled> pollVariables(const QList<VarInfo> &vars, bool withNames);

// The block request every pass starts from: owner 0/-1, read, this
// rebuild's link fields, empty value.
RW_VAR blockTemplate(const ComInfo &info);

// Sets a request's station, texts, area and extent from one variable.
void describeRequest(RW_VAR &v, const VarInfo &item, int station, int address, int count);

// The template made into a request for one variable's texts and area.
RW_VAR requestFor(const RW_VAR &tmpl, const VarInfo &item, int station, int address, int count);

// Word variables under the default station, merged and cut to blockUnits.
void groupingPass(const std::vector<Polled> &polled, const QList<VarInfo> &vars, const RW_VAR &tmpl,
                  int defaultStation, int blockUnits);

// Every variable from its own station, cut but not merged, no repeats.
// Returns the number of entries in readList.
int perVariablePass(const std::vector<Polled> &polled, const QList<VarInfo> &vars,
                    const RW_VAR &tmpl, int blockUnits);

// Every variable from the default station, cut, sorted and merged per area.
// Returns what the last append reported, or 0.
int singleStationPass(const std::vector<Polled> &polled, const QList<VarInfo> &vars,
                      const RW_VAR &tmpl, int defaultStation, int blockUnits);

#endif
