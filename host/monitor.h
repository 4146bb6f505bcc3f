// rvpoll --monitor: listens to a line that a panel polls (or replays a
// capture of one) and shows every exchange in element names; it opens the
// port for reading alone and never sends.
#ifndef RVPOLL_MONITOR_H
#define RVPOLL_MONITOR_H

#include <atomic>

#include "options.h"

// Runs until --duration, the end of the replayed capture or `stop`.
// Exit status: 0 when an exchange was heard, 1 when none was, 2 when the
// port or a file could not be used, 128 + `signal` when `stop` was set by one.
int runMonitor(const PollOptions &o, const std::atomic<bool> &stop, const std::atomic<int> &signal);

#endif
