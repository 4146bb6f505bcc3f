// The main() of every test program. GoogleTest exits 0 when a case skips,
// so ctest would count the program as passed. ctest passes
// --skip-exit-code=N (its SKIP_RETURN_CODE): a run that passed with a case
// skipped then exits N and names each skipped case with its reason. Run
// without it (by hand, under Valgrind, by the mutation runs) a skip still
// exits 0.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    int skipCode = 0;
    const char flag[] = "--skip-exit-code=";
    for (int i = 1; i < argc; ++i)
        if (std::strncmp(argv[i], flag, sizeof flag - 1) == 0)
            skipCode = std::atoi(argv[i] + sizeof flag - 1);
    const int result = RUN_ALL_TESTS();
    const testing::UnitTest &all = *testing::UnitTest::GetInstance();
    if (result != 0 || skipCode == 0 || all.skipped_test_count() == 0)
        return result;
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite &suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            const testing::TestResult &r = *suite.GetTestInfo(j)->result();
            std::string why;
            for (int k = 0; k < r.total_part_count(); ++k)
                if (r.GetTestPartResult(k).skipped())
                    why = r.GetTestPartResult(k).message();
            if (r.Skipped())
                std::printf("skip reason: %s.%s: %s\n", suite.name(), suite.GetTestInfo(j)->name(),
                            why.substr(0, why.find('\n')).c_str());
        }
    }
    return skipCode;
}
