// A call-back owed to the requester of a one-off read. It is noted under
// listMutex and made once the lock is released and the lists are final, so
// that the runtime may read values or queue new work from it.
#ifndef QUORVEL_RV_CALL_BACK_H
#define QUORVEL_RV_CALL_BACK_H

#include "records.h"

struct OwedCallBack {
    bool pending = false;
    int ownerType = 0;
    int ownerId = 0;
    int status = 0;
    HostCallBack callback = nullptr;
    int context = 0;

    void owe(const RW_VAR &request, int withStatus)
    {
        pending = true;
        ownerType = request.ownerType;
        ownerId = request.ownerId;
        status = withStatus;
    }
    // Under the lock: the call-back and its context as they are now.
    void address(HostCallBack to, int withContext)
    {
        callback = to;
        context = withContext;
    }
    // After the unlock.
    void make() const
    {
        if (pending && callback)
            callback(context, ownerType, ownerId, status);
    }
};

#endif
