// SPDX-License-Identifier: MIT
//
// The main function of test programs whose cases connect to a bus, which a process does once and
// for good: without a filter the program runs itself for each case.
#include <cstdlib>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    char itself[] = ZAV_ITSELF; // what a death test starts, too
    argv[0] = itself;
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(filter) != "*" || GTEST_FLAG_GET(list_tests)) {
        return RUN_ALL_TESTS();
    }
    bool failed = false;
    const testing::UnitTest& all = *testing::UnitTest::GetInstance();
    for (int i = 0; i < all.total_test_suite_count(); ++i) {
        const testing::TestSuite& suite = *all.GetTestSuite(i);
        for (int j = 0; j < suite.total_test_count(); ++j) {
            failed |= system((std::string(itself) + " --gtest_filter=" + suite.name() + "." +
                              suite.GetTestInfo(j)->name())
                                 .c_str()) != 0;
        }
    }
    return failed ? 1 : 0;
}
