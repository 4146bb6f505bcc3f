// The driver object, its life from load to unload, and the small set-up
// entry points of the runtime interface.
#include "driver_object.h"

#include <cstring>

Quorvel_RV_Series PLC_driver;
void *LB = nullptr;
void *LW = nullptr;
void *RWI = nullptr;

Quorvel_RV_Series::Quorvel_RV_Series()
    : comInfo(nullptr),
      callback(nullptr),
      callbackArg(0),
      currentKind(KindNone),
      writeBurst(0),
      onceBurst(0),
      scanCounter(0),
      commError(false)
{
    std::memset(&localArea, 0, sizeof localArea);
}

// Members go in reverse order of declaration: the result record, the two
// mutexes, the store and then the lists, each with its elements.
Quorvel_RV_Series::~Quorvel_RV_Series() {}

void passRetValue(const RW_VAR &source, RW_VAR &destination)
{
    const QByteArray keep;  // the result record never carries value bytes
    destination = source;
    destination.value = keep;
}

int StringAddressToInt(int areaType, QString addressText)
{
    return addressText.toInt(nullptr, addressBase(areaType));
}

extern "C" {

void SetComInfo(ComInfo *info)
{
    if (!info)
        return;
    info->spareB = 0;
    info->spareA = 0;
    PLC_driver.comInfo = info;
}

void RegistCallBackFuncIntf(HostCallBack callback, int arg)
{
    PLC_driver.callback = callback;
    PLC_driver.callbackArg = arg;
}

void FlashLocalRegister(void *lb, void *lw, void *rwi)
{
    LB = lb;
    LW = lw;
    RWI = rwi;
}

int AddListReadVar(RW_VAR *var)
{
    if (var)
        PLC_driver.readList.append(*var);
    return PLC_driver.readList.size();
}

int QueryFinishFlag()
{
    return 1;
}

int PLCAddressChangeIntef(int areaType, QString addressText)
{
    return StringAddressToInt(areaType, addressText);
}

}  // extern "C"
