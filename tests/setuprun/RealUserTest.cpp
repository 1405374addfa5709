// The real user id decides, not the effective one.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

#include "Machine.h"
#include "setuprun/CInstallBase.h"

namespace {

// Only a process that is really root can have two different ids.
class RealUser : public testing::Test {
protected:
    void SetUp() override {
        if (getuid() != 0)
            GTEST_SKIP() << "only root can take a real and an effective id that differ";
    }
};

void Construct() {
    Arguments arguments({"/opt/corvane26/cv_install"});
    const CInstallBase run(false, arguments.argc(), arguments.argv());
    std::printf("%d", run.m_accessFlags);
}

TEST_F(RealUser, RootWithTheEffectiveIdOfAUserIsRoot) {
    const auto result = hx_test::RunInChild({}, [] {
        ASSERT_EQ(setresuid(0, 1000, 0), 0);
        Construct();
        ASSERT_EQ(setresuid(0, 0, 0), 0);
    });
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "1");
}

TEST_F(RealUser, AUserWithTheEffectiveIdOfRootIsRefused) {
    const auto result = hx_test::RunInChild({}, [] {
        ASSERT_EQ(setresuid(1000, 0, 0), 0);
        Construct();
    });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "Corvane Install: Error\n    Installation must be run as root user.  Aborting\n");
}

}  // namespace
