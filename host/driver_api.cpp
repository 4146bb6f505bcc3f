#include "driver_api.h"

#include <dlfcn.h>

#include "qt_match.h"

const char *const kDriverSoname = "libQuorvel_RV_Series.so.1";

namespace {

struct Entry {
    const char *name;
    void **slot;
};

}  // namespace

bool loadDriver(const std::string &path, DriverApi &api, std::string &error)
{
    api = DriverApi();
    error = qtMismatch(path);
    if (!error.empty())
        return false;
    // RTLD_NOW: a library with unresolved symbols fails here, not mid-poll.
    api.handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!api.handle) {
        const char *why = dlerror();
        error = "cannot load driver " + path + ": " + (why ? why : "unknown error");
        return false;
    }
    const Entry entries[] = {
        {"SetComInfo", reinterpret_cast<void **>(&api.SetComInfo)},
        {"RegistCallBackFuncIntf", reinterpret_cast<void **>(&api.RegistCallBackFuncIntf)},
        {"FlashLocalRegister", reinterpret_cast<void **>(&api.FlashLocalRegister)},
        {"AddListReadVar", reinterpret_cast<void **>(&api.AddListReadVar)},
        {"QueryFinishFlag", reinterpret_cast<void **>(&api.QueryFinishFlag)},
        {"PLCAddressChangeIntef", reinterpret_cast<void **>(&api.PLCAddressChangeIntef)},
        {"ComCommunication", reinterpret_cast<void **>(&api.ComCommunication)},
        {"DataCom", reinterpret_cast<void **>(&api.DataCom)},
        {"AddListWriteVar", reinterpret_cast<void **>(&api.AddListWriteVar)},
        {"AddListOnceReadVar", reinterpret_cast<void **>(&api.AddListOnceReadVar)},
        {"ReCreatReadVarList", reinterpret_cast<void **>(&api.ReCreatReadVarList)},
        {"GetRegisterData", reinterpret_cast<void **>(&api.GetRegisterData)},
        {"SetRegisterData", reinterpret_cast<void **>(&api.SetRegisterData)},
    };
    for (const Entry &e : entries) {
        dlerror();
        *e.slot = dlsym(api.handle, e.name);
        if (!*e.slot) {
            error = "driver " + path + " lacks the entry point " + e.name;
            unloadDriver(api);
            return false;
        }
    }
    return true;
}

void unloadDriver(DriverApi &api)
{
    if (api.handle)
        dlclose(api.handle);
    api = DriverApi();
}
