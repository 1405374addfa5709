// The C headers compile as C11, and their functions work from C.
#include <gtest/gtest.h>

#include <cstdio>

#include "harness/TempDir.h"

extern "C" const char* FailedCheckInC(FILE* stream);

namespace {

TEST(CHeaders, WorkInC11) {
    const hx_test::TempDir dir;
    hx_test::WriteFile(dir / "file", "first\nsecond\nthird");
    FILE* file = std::fopen((dir / "file").c_str(), "r");
    ASSERT_NE(file, nullptr);
    EXPECT_STREQ(FailedCheckInC(file), nullptr);
    std::fclose(file);
}

}  // namespace
