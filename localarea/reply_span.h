// Where the data of a read reply land in an area, cut to the area's bounds.
#ifndef QUORVEL_RV_REPLY_SPAN_H
#define QUORVEL_RV_REPLY_SPAN_H

// A reply carries `units` data units starting at element `address`: bytes of
// 8 bits for a bit area (the address taken down to its multiple of 8), 16-bit
// registers for a word area. The part that lies inside the area starts at
// element `first` (a multiple of 8 for bit areas), holds `units` units, and
// begins with data unit `skip` of the reply.
struct ReplySpan {
    int first;
    int units;
    int skip;
};

// False when no unit of the reply lands inside the area (unknown area type,
// no data, or the whole range before the area's start or past its end).
bool replySpan(int areaType, int address, int units, ReplySpan &span);

#endif
