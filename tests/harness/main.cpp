// Runs all tests, and returns HX_SKIPPED if all that ran passed but some were skipped.
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const int status = RUN_ALL_TESTS();
    const bool skipped = testing::UnitTest::GetInstance()->skipped_test_count() > 0;
    return status == 0 && skipped ? HX_SKIPPED : status;
}
