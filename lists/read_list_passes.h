// The passes that rebuild the cyclic read list, and the rules they share:
// which variables can be read, how far a request may reach and how runs are
// ordered (lists/pieces.h cuts lengths into pieces). All of it runs inside
// ReCreatReadVarList with listMutex held; none of it locks.
#ifndef QUORVEL_RV_READ_LIST_PASSES_H
#define QUORVEL_RV_READ_LIST_PASSES_H

#include <vector>

#include <QList>

#include "../driver/records.h"
#include "pieces.h"

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
