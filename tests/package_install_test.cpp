// The Debian packages as a panel image maker and a runtime's developer get
// them: each package's files and control fields, then all of them unpacked
// into a scratch root with dpkg -x, the library loaded from there with dlopen
// the way a runtime loads it, and the example compiled from the -dev files
// with the command docs/integration.md gives. Packages come from
// RV_PACKAGE_DIR (scripts/package) or, when it is not set, are made here from
// this build with packaging/make-debs.
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

TEST(PackageInstall, PackagesHoldTheirFilesLoadAndBuildTheExample)
{
#ifdef RV_CROSS_BUILD
    GTEST_SKIP() << "the cross build's packages are checked by scripts/package";
#endif
    Scratch scratch;
    ASSERT_FALSE(scratch.path.empty());
    const char *given = std::getenv("RV_PACKAGE_DIR");
    const std::string dir = given ? given : scratch.path + "/debs";
    if (!given)
        run(RV_MAKE_DEBS " '" + dir + "' >/dev/null 2>&1");
    const std::string arch = run("dpkg --print-architecture"), root = scratch.path + "/root";
    const std::string version = std::string(RV_VERSION) + "-1";
    const std::string lib = "./" RV_PACKAGE_LIBDIR "/libQuorvel_RV_Series.so";
    auto docs = [](const std::string &pkg) {
        return "-rw-r--r-- ./usr/share/doc/" + pkg +
               "/changelog.Debian.gz\n-rw-r--r-- ./usr/share/doc/" + pkg + "/copyright\n";
    };
    auto overrides = [](const std::string &pkg) {
        return "-rw-r--r-- ./usr/share/lintian/overrides/" + pkg;
    };
    struct Package {
        std::string name, multiArch, files;
    };
    // The example's files are left to the compile below, which needs them all.
    const std::vector<Package> packages = {
        {"libquorvel-rv-series1", "same",
         "lrwxrwxrwx " + lib + ".1 -> libQuorvel_RV_Series.so." RV_VERSION "\n-rw-r--r-- " + lib +
             "." RV_VERSION "\n" + docs("libquorvel-rv-series1") +
             overrides("libquorvel-rv-series1")},
        {"libquorvel-rv-series-dev", "same",
         "-rw-r--r-- ./usr/include/quorvel_rv/export.h\n"
         "-rw-r--r-- ./usr/include/quorvel_rv/quorvel_rv_series.h\n"
         "-rw-r--r-- ./usr/include/quorvel_rv/records.h\n"
         "lrwxrwxrwx " +
             lib +
             " -> libQuorvel_RV_Series.so.1\n"
             "-rw-r--r-- ./" RV_PACKAGE_LIBDIR "/pkgconfig/quorvel-rv-series.pc\n" +
             docs("libquorvel-rv-series-dev") + overrides("libquorvel-rv-series-dev")},
        {"quorvel-rv-tools", "foreign",
         "-rwxr-xr-x ./usr/bin/rvpoll\n-rwxr-xr-x ./usr/bin/rvsim\n" + docs("quorvel-rv-tools") +
             overrides("quorvel-rv-tools") +
             "\n-rw-r--r-- ./usr/share/man/man1/rvpoll.1.gz\n"
             "-rw-r--r-- ./usr/share/man/man1/rvsim.1.gz"},
    };
    for (const Package &p : packages) {
        const std::string deb = dir + "/" + p.name + "_" + version + "_" + arch + ".deb";
        // A build without the tools makes no tools package.
        if (p.name == "quorvel-rv-tools" && run("test -f '" + deb + "'; echo $?") != "0")
            continue;
        EXPECT_EQ(run("dpkg-deb -c '" + deb + "' | awk '$1 !~ /^d/ && $6 !~ /examples/ " +
                      "{ print $1, $6, $7, $8 }' | sed 's/ *$//' | LC_ALL=C sort -k2"),
                  p.files);
        EXPECT_EQ(run("dpkg-deb -f '" + deb + "' Multi-Arch"), p.multiArch) << p.name;
        const std::string depends = run("dpkg-deb -f '" + deb + "' Depends");
        const bool isLibrary = p.name == "libquorvel-rv-series1";
        EXPECT_NE(depends.find(isLibrary ? "libqt5core5a (>= "
                                         : "libquorvel-rv-series1 (= " + version + ")"),
                  std::string::npos)
            << p.name << ": " << depends;
        ASSERT_EQ(run("dpkg -x '" + deb + "' '" + root + "'; echo $?"), "0");
    }

    // dpkg-shlibdeps takes the library's dependencies from these two files.
    const std::string runtimeDeb = dir + "/libquorvel-rv-series1_" + version + "_" + arch + ".deb";
    run("dpkg-deb -e '" + runtimeDeb + "' '" + scratch.path + "/ctl'");
    EXPECT_EQ(run("cat '" + scratch.path + "/ctl/shlibs'"),
              "libQuorvel_RV_Series 1 libquorvel-rv-series1 (>= " RV_VERSION ")");
    EXPECT_EQ(run("head -n 1 '" + scratch.path + "/ctl/symbols'"),
              "libQuorvel_RV_Series.so.1 libquorvel-rv-series1 #MINVER#");

    // The exported set itself is checked on the built library by exports_test
    // and against packaging/ by make-debs.
    void *h = dlopen((root + "/" + lib + ".1").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(h, nullptr) << dlerror();
    void *change = dlsym(h, "PLCAddressChangeIntef");
    Dl_info info;
    ASSERT_TRUE(change && dladdr(change, &info));
    // From the unpacked copy, not from anything already loaded.
    EXPECT_EQ(std::string(info.dli_fname).rfind(root, 0), 0u) << info.dli_fname;
    EXPECT_EQ(reinterpret_cast<int (*)(int, QString)>(change)(0, "17"), 15);  // X is octal
    dlclose(h);

    // The guide's compile command, run where the -dev package puts the
    // example, with pkg-config reading the unpacked .pc file.
    const std::string compile = run("grep -m 1 '^g++ ' '" RV_INTEGRATION_DOC "'");
    ASSERT_NE(compile, "");
    const std::string pc =
        "export PKG_CONFIG_PATH='" + root + "/" RV_PACKAGE_LIBDIR "/pkgconfig'; ";
    EXPECT_EQ(run(pc + "pkg-config --modversion quorvel-rv-series"), RV_VERSION);
    EXPECT_EQ(run(pc + "cd '" + root + "/usr/share/doc/libquorvel-rv-series-dev/examples' && " +
                  compile + " 2>&1 && test -x minimal_runtime; echo $?"),
              "0");
}
