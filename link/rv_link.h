// The link of a Quorvel RV runtime, in one include: reading the driver's
// replies off the line, the frames that cross it, its timing, the serial
// port set up and held for one program, the gateways that reach a line
// through the network, and what a listener finds on it and records.
#ifndef RV_LINK_RV_LINK_H
#define RV_LINK_RV_LINK_H

#include "bus_exchange.h"
#include "capture_file.h"
#include "capture_tap.h"
#include "confirm_read.h"
#include "frame_finder.h"
#include "line.h"
#include "line_address.h"
#include "line_tap.h"
#include "line_timing.h"
#include "mbap.h"
#include "port_factory.h"
#include "port_lock.h"
#include "remote_frame.h"
#include "reply_reader.h"
#include "reply_scan.h"
#include "rtu_frame.h"
#include "serial_port.h"
#include "stray_guard.h"
#include "tcp_port.h"
#include "telnet.h"

#endif
