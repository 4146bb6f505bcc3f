// The driver as a runtime sees it: a shared object opened with dlopen and
// every entry point looked up by name. rvpoll never links against it.
#ifndef RVPOLL_DRIVER_API_H
#define RVPOLL_DRIVER_API_H

#include <string>

#include "driver/quorvel_rv_series.h"

struct DriverApi {
    decltype(&::SetComInfo) SetComInfo = nullptr;
    decltype(&::RegistCallBackFuncIntf) RegistCallBackFuncIntf = nullptr;
    decltype(&::FlashLocalRegister) FlashLocalRegister = nullptr;
    decltype(&::AddListReadVar) AddListReadVar = nullptr;
    decltype(&::QueryFinishFlag) QueryFinishFlag = nullptr;
    decltype(&::PLCAddressChangeIntef) PLCAddressChangeIntef = nullptr;
    decltype(&::ComCommunication) ComCommunication = nullptr;
    decltype(&::DataCom) DataCom = nullptr;
    decltype(&::AddListWriteVar) AddListWriteVar = nullptr;
    decltype(&::AddListOnceReadVar) AddListOnceReadVar = nullptr;
    decltype(&::ReCreatReadVarList) ReCreatReadVarList = nullptr;
    decltype(&::GetRegisterData) GetRegisterData = nullptr;
    decltype(&::SetRegisterData) SetRegisterData = nullptr;
    void *handle = nullptr;
};

// The soname a runtime asks for; found through rvpoll's RUNPATH.
extern const char *const kDriverSoname;

// Opens `path` (a soname or a file) and resolves every entry point. On
// failure the library is closed again and `error` says what was missing.
bool loadDriver(const std::string &path, DriverApi &api, std::string &error);
void unloadDriver(DriverApi &api);

#endif
