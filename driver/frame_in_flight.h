// The frame being answered: the head of sendQueue. DataCom looks it up once
// and passes it on; only the exported functions of the runtime's layout,
// which take no frame, look it up here (their wrappers for the reply
// accessors are in frame_in_flight.cpp).
#ifndef QUORVEL_RV_FRAME_IN_FLIGHT_H
#define QUORVEL_RV_FRAME_IN_FLIGHT_H

#include "records.h"

// The head of sendQueue, or null when nothing is in flight.
const Protocol *frameInFlight();

#endif
