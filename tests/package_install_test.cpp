// The Debian packages as a panel image maker gets them: unpacked into a
// scratch root with dpkg -x, the library loaded from there with dlopen the
// way a runtime loads it. Packages come from RV_PACKAGE_DIR (scripts/package)
// or, when it is not set, are made here from this build with cpack.
#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "driver/records.h"

namespace {

std::string run(const std::string &cmd)
{
    std::string out;
    if (FILE *p = popen(cmd.c_str(), "r")) {
        char buf[512];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, p)) > 0)
            out.append(buf, n);
        pclose(p);
    }
    while (!out.empty() && out.back() == '\n')
        out.pop_back();
    return out;
}

// DT_SONAME as the dynamic loader saw it in the loaded object.
std::string loadedSoname(void *handle)
{
    link_map *map = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || !map)
        return "";
    const char *strtab = nullptr;
    ElfW(Xword) soname = 0;
    bool found = false;
    for (const ElfW(Dyn) *d = map->l_ld; d->d_tag != DT_NULL; ++d) {
        if (d->d_tag == DT_STRTAB)
            strtab = reinterpret_cast<const char *>(d->d_un.d_ptr);
        if (d->d_tag == DT_SONAME) {
            soname = d->d_un.d_val;
            found = true;
        }
    }
    return strtab && found ? strtab + soname : "";
}

class PackageInstall : public ::testing::Test {
protected:
    // Packages are made and unpacked once for the whole suite.
    static void SetUpTestSuite()
    {
#ifdef RV_CROSS_BUILD
        return;
#endif
        char tmpl[] = "/tmp/rv-pkg-XXXXXX";
        if (!mkdtemp(tmpl))
            return;
        scratch = tmpl;
        const char *given = std::getenv("RV_PACKAGE_DIR");
        dir = given ? given : scratch + "/debs";
        if (!given)
            run("cpack -G DEB --config '" RV_CPACK_CONFIG "' -B '" + dir + "' >/dev/null 2>&1");
        arch = run("dpkg --print-architecture");
        runtimeDeb = run("ls " + dir + "/libquorvel-rv-series1_*_" + arch + ".deb 2>/dev/null");
        toolsDeb = run("ls " + dir + "/quorvel-rv-tools_*_" + arch + ".deb 2>/dev/null");
        root = scratch + "/root";
        if (!runtimeDeb.empty())
            run("dpkg -x '" + runtimeDeb + "' '" + root + "'");
        libDir = root + "/" RV_PACKAGE_LIBDIR;
    }
    static void TearDownTestSuite()
    {
        if (!scratch.empty())
            run("rm -rf '" + scratch + "'");
    }
    void SetUp() override
    {
#ifdef RV_CROSS_BUILD
        GTEST_SKIP() << "the cross build's packages are checked by scripts/package";
#endif
        ASSERT_FALSE(runtimeDeb.empty()) << "no runtime package in " << dir;
    }
    static std::string field(const std::string &deb, const char *name)
    {
        return run("dpkg-deb -f '" + deb + "' " + name);
    }

    static std::string scratch, dir, arch, runtimeDeb, toolsDeb, root, libDir;
};
std::string PackageInstall::scratch, PackageInstall::dir, PackageInstall::arch,
    PackageInstall::runtimeDeb, PackageInstall::toolsDeb, PackageInstall::root,
    PackageInstall::libDir;

TEST_F(PackageInstall, RuntimePackageHoldsTheLibraryAloneUnderItsSoname)
{
    // The library, its soname link and the two documents Debian asks for;
    // headers and the unversioned link are for building, not for panels.
    const std::string doc = "./usr/share/doc/libquorvel-rv-series1/";
    const std::string lib = "./" RV_PACKAGE_LIBDIR "/libQuorvel_RV_Series.so.1";
    EXPECT_EQ(run("cd '" + root + "' && find . ! -type d | LC_ALL=C sort"),
              lib + "\n" + lib + ".0.0\n" + doc + "changelog.Debian.gz\n" + doc + "copyright");
    EXPECT_EQ(run("readlink '" + libDir + "/libQuorvel_RV_Series.so.1'"),
              "libQuorvel_RV_Series.so.1.0.0");

    EXPECT_EQ(field(runtimeDeb, "Package"), "libquorvel-rv-series1");
    EXPECT_EQ(field(runtimeDeb, "Section"), "libs");
    EXPECT_EQ(field(runtimeDeb, "Architecture"), arch);
    EXPECT_NE(field(runtimeDeb, "Depends").find("libqt5core5a"), std::string::npos);
    const std::string ctl = scratch + "/ctl";
    run("dpkg-deb -e '" + runtimeDeb + "' '" + ctl + "'");
    EXPECT_EQ(run("cut -d' ' -f1-3 '" + ctl + "/shlibs'"),
              "libQuorvel_RV_Series 1 libquorvel-rv-series1");
    EXPECT_EQ(run("cat '" + ctl + "/triggers'"), "activate-noawait ldconfig");
}

TEST_F(PackageInstall, InstalledLibraryLoadsAndAnswersThroughItsEntryPoints)
{
    const std::string path = libDir + "/libQuorvel_RV_Series.so.1";
    void *h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(h, nullptr) << dlerror();
    EXPECT_EQ(loadedSoname(h), "libQuorvel_RV_Series.so.1");

    const char *names[] = {"SetComInfo", "RegistCallBackFuncIntf", "FlashLocalRegister",
                           "AddListReadVar", "QueryFinishFlag", "PLCAddressChangeIntef",
                           "ComCommunication", "DataCom", "AddListWriteVar",
                           "AddListOnceReadVar", "ReCreatReadVarList", "GetRegisterData",
                           "SetRegisterData", "PLC_driver", "LB", "LW", "RWI",
                           "_Z20GetDriverReturnValuei", "_Z6CalCRCPht"};
    for (const char *name : names) {
        void *sym = dlsym(h, name);
        ASSERT_NE(sym, nullptr) << name;
        Dl_info info;
        ASSERT_NE(dladdr(sym, &info), 0) << name;
        // Must come from the unpacked copy, not from anything already loaded.
        EXPECT_EQ(std::string(info.dli_fname).rfind(root, 0), 0u) << name << " " << info.dli_fname;
    }
    EXPECT_EQ(dlsym(h, "_Z11clampToAreaiiRi"), nullptr) << "internal helpers stay hidden";

    typedef int (*Finish)();
    typedef int (*AddressOf)(int, QString);
    typedef void (*Install)(ComInfo *);
    EXPECT_EQ(reinterpret_cast<Finish>(dlsym(h, "QueryFinishFlag"))(), 1);
    EXPECT_EQ(reinterpret_cast<AddressOf>(dlsym(h, "PLCAddressChangeIntef"))(0, "17"), 15);
    ComInfo info;
    info.spareA = 7;
    info.spareB = 9;
    reinterpret_cast<Install>(dlsym(h, "SetComInfo"))(&info);
    EXPECT_EQ(info.spareA, 0);
    EXPECT_EQ(info.spareB, 0);
    dlclose(h);
}

TEST_F(PackageInstall, ToolsPackageBringsBothProgramsAndNeedsThisRuntime)
{
    if (toolsDeb.empty())
        GTEST_SKIP() << "this build made no tools";
    ASSERT_EQ(run("dpkg -x '" + toolsDeb + "' '" + root + "'; echo $?"), "0");
    EXPECT_EQ(run("cd '" + root + "/usr/bin' && ls"), "rvpoll\nrvsim");
    EXPECT_EQ(run("test -x '" + root + "/usr/bin/rvpoll' && echo x"), "x");
    const std::string version = field(runtimeDeb, "Version");
    EXPECT_NE(field(toolsDeb, "Depends").find("libquorvel-rv-series1 (= " + version + ")"),
              std::string::npos);
    EXPECT_EQ(field(toolsDeb, "Version"), version);
}

}  // namespace
