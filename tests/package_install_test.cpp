// The Debian packages as a panel image maker and a runtime's developer get
// them, once scripts/package has built them with dpkg-buildpackage (in
// RV_PACKAGE_DIR) and installed them: each package's files and control
// fields, the library loaded from an unpacked copy with dlopen the way a
// runtime loads it, the installed pkg-config module, and the example
// compiled with the command docs/integration.md gives (on the installed link).
// Without RV_PACKAGE_DIR (a plain ctest run, dh_auto_test) there are no
// packages yet and the test is skipped.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

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

TEST(PackageInstall, PackagesHoldTheirFilesLoadAndBuildRuntimes)
{
    const char *dir = std::getenv("RV_PACKAGE_DIR");
    if (!dir)
        GTEST_SKIP() << "scripts/package runs this on the packages it built and installed";
    Scratch scratch;
    ASSERT_FALSE(scratch.path.empty());
    const std::string arch = run("dpkg --print-architecture"), root = scratch.path + "/root";
    const std::string version = std::string(RV_VERSION) + "-1";
    const std::string lib = "./" RV_PACKAGE_LIBDIR "/libQuorvel_RV_Series.so";
    auto docs = [](const std::string &pkg) {
        return "-rw-r--r-- ./usr/share/doc/" + pkg +
               "/changelog.Debian.gz\n-rw-r--r-- ./usr/share/doc/" + pkg +
               "/copyright\n-rw-r--r-- ./usr/share/lintian/overrides/" + pkg;
    };
    struct Package {
        std::string name, multiArch, files;
    };
    // The example's files and the link's headers are left to the compile
    // below, which needs them all.
    const std::vector<Package> packages = {
        {"libquorvel-rv-series1", "same",
         "lrwxrwxrwx " + lib + ".1 -> libQuorvel_RV_Series.so." RV_VERSION "\n-rw-r--r-- " + lib +
             "." RV_VERSION "\n" + docs("libquorvel-rv-series1")},
        {"libquorvel-rv-series-dev", "same",
         "-rw-r--r-- ./usr/include/quorvel_rv/export.h\n"
         "-rw-r--r-- ./usr/include/quorvel_rv/quorvel_rv_series.h\n"
         "-rw-r--r-- ./usr/include/quorvel_rv/records.h\n"
         "lrwxrwxrwx " +
             lib +
             " -> libQuorvel_RV_Series.so.1\n"
             "-rw-r--r-- ./" RV_PACKAGE_LIBDIR "/libquorvel_rv_link.a\n"
             "-rw-r--r-- ./" RV_PACKAGE_LIBDIR "/pkgconfig/quorvel-rv-link.pc\n"
             "-rw-r--r-- ./" RV_PACKAGE_LIBDIR "/pkgconfig/quorvel-rv-series.pc\n" +
             docs("libquorvel-rv-series-dev")},
        {"quorvel-rv-tools", "foreign",
         "-rwxr-xr-x ./usr/bin/rvpoll\n-rwxr-xr-x ./usr/bin/rvsim\n" + docs("quorvel-rv-tools") +
             "\n-rw-r--r-- ./usr/share/man/man1/rvpoll.1.gz\n"
             "-rw-r--r-- ./usr/share/man/man1/rvsim.1.gz"},
    };
    for (const Package &p : packages) {
        const std::string deb = dir + ("/" + p.name) + "_" + version + "_" + arch + ".deb";
        EXPECT_EQ(run("dpkg-deb -c '" + deb +
                      "' | awk '$1 !~ /^d/ && $6 !~ /examples|quorvel_rv\\/link/ " +
                      "{ print $1, $6, $7, $8 }' | sed 's/ *$//' | LC_ALL=C sort -k2"),
                  p.files);
        EXPECT_EQ(run("dpkg-deb -f '" + deb + "' Multi-Arch"), p.multiArch) << p.name;
        const std::string depends = run("dpkg-deb -f '" + deb + "' Depends");
        const bool isLibrary = p.name == "libquorvel-rv-series1";
        EXPECT_NE(depends.find(isLibrary ? "libqt5core5a (>= "
                                         : "libquorvel-rv-series1 (= " + version + ")"),
                  std::string::npos)
            << p.name << ": " << depends;
        // What a runtime's developer has: this very package, installed.
        EXPECT_EQ(run("dpkg-query -W -f '${Version} ${db:Status-Status}' " + p.name),
                  version + " installed")
            << p.name;
        ASSERT_EQ(run("dpkg -x '" + deb + "' '" + root + "'; echo $?"), "0");
    }

    // dpkg-shlibdeps takes the library's dependencies from these two files.
    const std::string runtimeDeb =
        dir + std::string("/libquorvel-rv-series1_") + version + "_" + arch + ".deb";
    run("dpkg-deb -e '" + runtimeDeb + "' '" + scratch.path + "/ctl'");
    EXPECT_EQ(run("cat '" + scratch.path + "/ctl/shlibs'"),
              "libQuorvel_RV_Series 1 libquorvel-rv-series1 (>= " RV_VERSION ")");
    EXPECT_EQ(run("head -n 1 '" + scratch.path + "/ctl/symbols'"),
              "libQuorvel_RV_Series.so.1 libquorvel-rv-series1 #MINVER#");

    // The exported set itself is checked on the built library by exports_test
    // and against debian/libquorvel-rv-series1.symbols by dh_makeshlibs.
    void *h = dlopen((root + "/" + lib + ".1").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(h, nullptr) << dlerror();
    void *change = dlsym(h, "PLCAddressChangeIntef");
    Dl_info info;
    ASSERT_TRUE(change && dladdr(change, &info));
    // From the unpacked copy, not from anything already loaded.
    EXPECT_EQ(std::string(info.dli_fname).rfind(root, 0), 0u) << info.dli_fname;
    EXPECT_EQ(reinterpret_cast<int (*)(int, QString)>(change)(0, "17"), 15);  // X is octal
    dlclose(h);

    // The installed module names the system's own folders, as Debian's do.
    EXPECT_EQ(run("pkg-config --variable=prefix quorvel-rv-series"), "/usr");
    EXPECT_EQ(run("pkg-config --variable=libdir quorvel-rv-series"), "/" RV_PACKAGE_LIBDIR);
    EXPECT_EQ(run("pkg-config --modversion quorvel-rv-series"), RV_VERSION);

    // The guide's compile command, run in a copy of the installed example:
    // a runtime built on the installed link.
    const std::string compile = run("grep -m 1 '^g++ ' '" RV_INTEGRATION_DOC "'");
    ASSERT_NE(compile, "");
    EXPECT_EQ(run("cp -r /usr/share/doc/libquorvel-rv-series-dev/examples '" + scratch.path +
                  "/example' && cd '" + scratch.path + "/example' && " + compile +
                  " 2>&1 && test -x minimal_runtime; echo $?"),
              "0");
}
