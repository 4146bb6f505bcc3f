// A remote link's request description in words, for traces and logs:
// "remote write, owner 2, link 0, station 1, D100, count 1, values 34 12".
#ifndef RV_COMMON_REMOTE_TEXT_H
#define RV_COMMON_REMOTE_TEXT_H

#include <QString>

#include "link/remote_frame.h"

QString describeRemoteRequest(const rvlink::RemoteRequest &f);

#endif
