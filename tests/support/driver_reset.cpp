#include "driver_reset.h"

#include <cstring>

ComInfo *resetDriver()
{
    static ComInfo info;
    Quorvel_RV_Series &d = PLC_driver;
    d.readList.clear();
    d.writeList.clear();
    d.onceReadList.clear();
    d.sendQueue.clear();
    d.extendList.clear();
    d.extendIndex.clear();
    d.callback = nullptr;
    d.callbackArg = 0;
    d.result = RW_VAR();
    d.currentKind = KindNone;
    d.writeBurst = 0;
    d.onceBurst = 0;
    d.scanCounter = 0;
    d.commError = false;
    std::memset(&d.localArea, 0, sizeof d.localArea);

    info = ComInfo();
    info.blockUnits = 64;
    info.defaultStation = 1;
    info.retryLimit = 2;
    info.writeMode = 2;
    SetComInfo(&info);
    return &info;
}
