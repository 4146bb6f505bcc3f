// The plain names the runtime looks up in the driver: its entry points and
// the four data symbols. exports_test holds the built library to them, the
// guide test holds the guide's entry point table to them.
#ifndef RV_TEST_EXPORTED_NAMES_H
#define RV_TEST_EXPORTED_NAMES_H

const char *const kEntryPoints[] = {
    "SetComInfo",      "RegistCallBackFuncIntf", "FlashLocalRegister", "AddListReadVar",
    "QueryFinishFlag", "PLCAddressChangeIntef",  "ComCommunication",   "DataCom",
    "AddListWriteVar", "AddListOnceReadVar",     "ReCreatReadVarList", "GetRegisterData",
    "SetRegisterData",
};

const char *const kData[] = {"PLC_driver", "LB", "LW", "RWI"};

#endif
