// The Debian packages as a panel image maker gets them: unpacked into a
// scratch root with dpkg -x, the library loaded from there with dlopen the
// way a runtime loads it. Packages come from RV_PACKAGE_DIR (scripts/package)
// or, when it is not set, are made here from this build with cpack.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <cstdlib>

#include "driver/records.h"
#include "support/run_command.h"

namespace {

std::string run(const std::string &cmd)
{
    std::string out = runCommand(cmd);
    while (!out.empty() && out.back() == '\n')
        out.pop_back();
    return out;
}

// Every file under `root` as "mode path", links with " -> target", sorted.
std::string files(const std::string &root)
{
    return run("cd '" + root + "' && find . ! -type d -printf '%M %p -> %l\\n' | " +
               "sed 's/ -> $//' | LC_ALL=C sort -k2");
}

struct Scratch {
    std::string path;
    Scratch()
    {
        char tmpl[] = "/tmp/rv-pkg-XXXXXX";
        path = mkdtemp(tmpl) ? tmpl : "";
    }
    ~Scratch() { run("rm -rf '" + path + "'"); }
};

}  // namespace

TEST(PackageInstall, PackagesUnpackLoadAndHoldExactlyTheirFiles)
{
#ifdef RV_CROSS_BUILD
    GTEST_SKIP() << "the cross build's packages are checked by scripts/package";
#endif
    Scratch scratch;
    ASSERT_FALSE(scratch.path.empty());
    const char *given = std::getenv("RV_PACKAGE_DIR");
    const std::string dir = given ? given : scratch.path + "/debs";
    if (!given)
        run("cpack -G DEB --config '" RV_CPACK_CONFIG "' -B '" + dir + "' >/dev/null 2>&1");
    const std::string arch = run("dpkg --print-architecture"), root = scratch.path + "/root";
    const std::string runtimeDeb = run("ls " + dir + "/libquorvel-rv-series1_*_" + arch + ".deb");
    const std::string toolsDeb = run("ls " + dir + "/quorvel-rv-tools_*_" + arch + ".deb 2>&-");
    ASSERT_FALSE(runtimeDeb.empty()) << "no runtime package in " << dir;
    ASSERT_EQ(run("dpkg -x '" + runtimeDeb + "' '" + root + "'; echo $?"), "0");

    // The library under its soname and Debian's two documents; headers and
    // the unversioned link are for building, not for panels.
    const std::string lib = "./" RV_PACKAGE_LIBDIR "/libQuorvel_RV_Series.so.1";
    const std::string doc = "-rw-r--r-- ./usr/share/doc/libquorvel-rv-series1/";
    EXPECT_EQ(files(root), "lrwxrwxrwx " + lib + " -> libQuorvel_RV_Series.so.1.0.0\n" +
                               "-rw-r--r-- " + lib + ".0.0\n" + doc + "changelog.Debian.gz\n" +
                               doc + "copyright");
    const std::string version = run("dpkg-deb -f '" + runtimeDeb + "' Version");
    EXPECT_NE(run("dpkg-deb -f '" + runtimeDeb + "' Depends").find("libqt5core5a"),
              std::string::npos);
    run("dpkg-deb -e '" + runtimeDeb + "' '" + scratch.path + "/ctl'");
    EXPECT_EQ(run("cut -d' ' -f1-3 '" + scratch.path + "/ctl/shlibs'"),
              "libQuorvel_RV_Series 1 libquorvel-rv-series1");

    // The soname is checked by the shlibs line above (made from it), the
    // exported set on the built library by exports_test.
    void *h = dlopen((root + "/" + lib).c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(h, nullptr) << dlerror();
    void *change = dlsym(h, "PLCAddressChangeIntef");
    Dl_info info;
    ASSERT_TRUE(change && dladdr(change, &info));
    // From the unpacked copy, not from anything already loaded.
    EXPECT_EQ(std::string(info.dli_fname).rfind(root, 0), 0u) << info.dli_fname;
    EXPECT_EQ(reinterpret_cast<int (*)(int, QString)>(change)(0, "17"), 15);  // X is octal
    dlclose(h);

    // A build without the tools makes the runtime package only.
    if (toolsDeb.empty())
        return;
    const std::string tools = scratch.path + "/tools";
    ASSERT_EQ(run("dpkg -x '" + toolsDeb + "' '" + tools + "'; echo $?"), "0");
    const std::string toolsDoc = "-rw-r--r-- ./usr/share/doc/quorvel-rv-tools/";
    EXPECT_EQ(files(tools), "-rwxr-xr-x ./usr/bin/rvpoll\n-rwxr-xr-x ./usr/bin/rvsim\n" + toolsDoc +
                                "changelog.Debian.gz\n" + toolsDoc + "copyright");
    EXPECT_NE(run("dpkg-deb -f '" + toolsDeb + "' Depends")
                  .find("libquorvel-rv-series1 (= " + version + ")"),
              std::string::npos);
}
