// The runtime finds the driver by soname and every function by name, so the
// built library must export exactly the set below: a missing name breaks the
// runtime, an extra one leaks a helper into its symbol space.
#include <dlfcn.h>

#include <QString>
#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>

#include "support/exported_names.h"
#include "support/run_command.h"

namespace {

// Exported under their C++ names; a runtime has no need of them.
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

}  // namespace

TEST(ExportedSymbols, ExactlyTheRuntimeInterfaceUnderItsSoname)
{
    // Demangled name -> nm type letters seen for it (constructors and the
    // destructor appear twice, as complete- and base-object aliases).
    std::map<std::string, std::string> got;
    std::istringstream nm(
        runCommand(std::string(RV_NM) + " -D --defined-only -C '" RV_LIBRARY "' 2>&1"));
    for (std::string line; std::getline(nm, line);) {
        const size_t a = line.find(' ');  // "<address> <type> <name with spaces>"
        if (a != std::string::npos && a + 3 <= line.size())
            got[line.substr(a + 3)] += line[a + 1];
    }
    ASSERT_FALSE(got.empty()) << "nm found no symbols in " << RV_LIBRARY;

    std::set<std::string> want(std::begin(kEntryPoints), std::end(kEntryPoints));
    want.insert(std::begin(kData), std::end(kData));
    want.insert(std::begin(kInternal), std::end(kInternal));
    for (const std::string &name : want)
        EXPECT_TRUE(got.count(name)) << "not exported: " << name;
    // Functions live in text, the globals in data or bss; an entry point
    // exported as data (or the reverse) would be found but unusable.
    for (const auto &sym : got) {
        const bool data = std::count(std::begin(kData), std::end(kData), sym.first) > 0;
        EXPECT_TRUE(want.count(sym.first)) << "exported but not in the interface: " << sym.first;
        EXPECT_EQ(sym.second.find_first_not_of(data ? "BD" : "T"), std::string::npos)
            << sym.first << " has type " << sym.second;
    }

    const std::string dynamic = runCommand(std::string(RV_READELF) + " -d '" RV_LIBRARY "' 2>&1");
    EXPECT_NE(dynamic.find("Library soname: [libQuorvel_RV_Series.so.1]"), std::string::npos)
        << dynamic;
    // A call through dlopen and dlsym, with a Qt argument, as the runtime makes it.
    void *lib = dlopen(RV_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    typedef int (*AddressChange)(int, QString);
    AddressChange change = reinterpret_cast<AddressChange>(dlsym(lib, "PLCAddressChangeIntef"));
    ASSERT_NE(change, nullptr);
    EXPECT_EQ(change(0, QString("17")), 15);  // X is octal
    EXPECT_EQ(change(14, QString("17")), 17);
    dlclose(lib);
}
