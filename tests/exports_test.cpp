// The runtime finds the driver by soname and every function by name, so the
// built library must export exactly the set below: a missing name breaks the
// runtime, an extra one leaks a helper into its symbol space.
#include <dlfcn.h>

#include <QString>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>

namespace {

const char *const kEntryPoints[] = {
    "SetComInfo",      "RegistCallBackFuncIntf", "FlashLocalRegister", "AddListReadVar",
    "QueryFinishFlag", "PLCAddressChangeIntef",  "ComCommunication",   "DataCom",
    "AddListWriteVar", "AddListOnceReadVar",     "ReCreatReadVarList", "GetRegisterData",
    "SetRegisterData",
};

const char *const kData[] = {"PLC_driver", "LB", "LW", "RWI"};

const char *const kInternal[] = {
    "Quorvel_RV_Series::Quorvel_RV_Series()",
    "Quorvel_RV_Series::~Quorvel_RV_Series()",
    "passRetValue(RW_VAR const&, RW_VAR&)",
    "StringAddressToInt(int, QString)",
    "DealDataOfLocalArea(QByteArray*, int)",
    "DealDataOfRemoteArea(QByteArray*, int)",
    "CheckGetData(QByteArray*, int)",
    "GetDriverReturnValue(int)",
    "SwitchErrorReturn(int)",
    "CalCRC(unsigned char*, unsigned short)",
    "CalSUM(unsigned char*, unsigned short)",
    "CalLRC(unsigned char*, unsigned short)",
    "CalXOR(unsigned char*, unsigned short)",
    "DigitalToASCII(int)",
    "ASCIIToDigital(int)",
    "ReadRegister(RW_VAR*)",
    "ReadBool(RW_VAR*)",
    "ReadAnalog(RW_VAR*)",
    "WriteRegister(RW_VAR*)",
    "WriteBool(RW_VAR*)",
    "WriteAnalog(RW_VAR*)",
    "Remote_ReadVar(RW_VAR*)",
    "Remote_WriteVar(RW_VAR*)",
    "Bubble_Sort(QList<RW_VAR>*)",
    "BitVarReCreat(QList<RW_VAR>*, int)",
    "addressAdd(RW_VAR&, int, bool)",
    "WhetherGroup(int, int, RW_VAR*, QList<RW_VAR>*)",
    "GetBit_unsigned_char(QByteArray&, unsigned char*, int, int)",
    "GetBit_unsigned_short(QByteArray&, unsigned short*, int, int)",
    "GetWord_unsigned_short(QByteArray&, unsigned short*, int, int)",
    "GetWord_32Bit(QByteArray&, unsigned short*, int, int)",
    "SetBit_unsigned_char(int, unsigned char*, QByteArray*, int)",
    "SetBit_unsigned_short(int, unsigned short*, QByteArray*, int)",
    "SetValue_unsigned_short(int, unsigned short*, QByteArray*, int)",
    "SetValue_32Bit(int, unsigned short*, QByteArray*, int)",
    "SaveBit_unsigned_char(QByteArray*, unsigned char*)",
    "SaveWord_unsigned_short(QByteArray*, unsigned short*)",
    "SaveToLocalDataErea(QByteArray*)",
    "ExtendFindSameVar(int, int, int)",
    "WriteDataToLocal(RW_VAR*)",
};

std::string run(const std::string &command)
{
    std::string out;
    FILE *p = popen(command.c_str(), "r");
    if (!p)
        return out;
    char buf[512];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        out.append(buf, n);
    pclose(p);
    return out;
}

// Demangled name -> nm type letters seen for it (constructors and the
// destructor appear twice, as complete- and base-object aliases).
std::map<std::string, std::string> exportedSymbols()
{
    std::map<std::string, std::string> symbols;
    const std::string out =
        run(std::string(RV_NM) + " -D --defined-only -C '" + RV_LIBRARY + "' 2>&1");
    size_t pos = 0;
    while (pos < out.size()) {
        size_t end = out.find('\n', pos);
        if (end == std::string::npos)
            end = out.size();
        const std::string line = out.substr(pos, end - pos);
        pos = end + 1;
        // "<address> <type> <name>"; the name may contain spaces.
        const size_t a = line.find(' ');
        if (a == std::string::npos || a + 3 > line.size())
            continue;
        symbols[line.substr(a + 3)] += line[a + 1];
    }
    return symbols;
}

}  // namespace

TEST(ExportedSymbols, ExactlyTheRuntimeInterface)
{
    const std::map<std::string, std::string> got = exportedSymbols();
    ASSERT_FALSE(got.empty()) << "nm found no symbols in " << RV_LIBRARY;

    std::set<std::string> want(std::begin(kEntryPoints), std::end(kEntryPoints));
    want.insert(std::begin(kData), std::end(kData));
    want.insert(std::begin(kInternal), std::end(kInternal));
    for (const std::string &name : want)
        EXPECT_TRUE(got.count(name)) << "not exported: " << name;
    for (const auto &sym : got)
        EXPECT_TRUE(want.count(sym.first))
            << "exported but not part of the interface: " << sym.first << " (" << sym.second << ")";

    // Functions live in text, the globals in data or bss; an entry point
    // exported as data (or the reverse) would be found but unusable.
    for (const char *name : kEntryPoints) {
        if (got.count(name)) {
            EXPECT_EQ(got.at(name), "T") << name;
        }
    }
    for (const char *name : kData) {
        if (got.count(name)) {
            EXPECT_NE(std::string("BD").find(got.at(name)[0]), std::string::npos) << name;
        }
    }
    for (const char *name : kInternal) {
        if (got.count(name)) {
            EXPECT_EQ(got.at(name).find_first_not_of('T'), std::string::npos) << name;
        }
    }
}

TEST(ExportedSymbols, LoadsBySonameAndNameLikeTheRuntime)
{
    const std::string dynamic = run(std::string(RV_READELF) + " -d '" + RV_LIBRARY + "' 2>&1");
    EXPECT_NE(dynamic.find("Library soname: [libQuorvel_RV_Series.so.1]"), std::string::npos)
        << dynamic;

    void *lib = dlopen(RV_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    for (const char *name : kEntryPoints)
        EXPECT_NE(dlsym(lib, name), nullptr) << name;
    for (const char *name : kData)
        EXPECT_NE(dlsym(lib, name), nullptr) << name;

    typedef int (*Query)();
    typedef int (*AddressChange)(int, QString);
    Query query = reinterpret_cast<Query>(dlsym(lib, "QueryFinishFlag"));
    AddressChange change = reinterpret_cast<AddressChange>(dlsym(lib, "PLCAddressChangeIntef"));
    if (query) {
        EXPECT_EQ(query(), 1);
    }
    if (change) {
        EXPECT_EQ(change(0, QString("17")), 15);  // X is octal
        EXPECT_EQ(change(14, QString("17")), 17);
    }
    dlclose(lib);
}
