// Who may run and into which directory, for root and for other users, on real paths.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "Machine.h"
#include "setuprun/CInstallBase.h"

namespace {

// Constructs a setup run from "/opt/corvane26/cv_install" and prints what it decided.
void ConstructAndPrint(bool allowNonRoot) {
    Arguments arguments({"/opt/corvane26/cv_install"});
    const CInstallBase run(allowNonRoot, arguments.argc(), arguments.argv());
    std::printf("%d %s", run.m_accessFlags, qUtf8Printable(run.m_installDir));
}

class Constructor : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    std::string DecisionFor(hx_test::World::Identity identity) const {
        const auto result = m_machine.Run(identity, [] { ConstructAndPrint(true); });
        EXPECT_EQ(result.status, 0) << result.err;
        return result.out;
    }

    void MakeOurLink() { m_machine.MakeLink("/usr/bin/corvane26", "/var/corvane/corvane26"); }

    Machine m_machine;
};

TEST_F(Constructor, RootGetsTheSharedDirectoryUnchecked) {
    for (const bool allowNonRoot : {false, true}) {
        const auto result = m_machine.Run(AsRoot, [=] { ConstructAndPrint(allowNonRoot); });
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "1 /var/corvane");
        EXPECT_EQ(result.err, "");
    }
}

TEST_F(Constructor, RootIsNotTestedForLinkAndDirectory) {
    MakeOurLink();
    m_machine.MakeDirectory("/var/corvane");
    EXPECT_EQ(DecisionFor(AsRoot), "1 /var/corvane");
}

TEST_F(Constructor, RootKeepsTheFirstArgument) {
    for (const bool allowNonRoot : {false, true}) {
        m_machine.Expect(AsRoot, [=] {
            Arguments arguments({"cv_install"});
            const CInstallBase run(allowNonRoot, arguments.argc(), arguments.argv());
            EXPECT_EQ(run.m_allowNonRoot, allowNonRoot);
            EXPECT_EQ(run.m_accessFlags, CInstallBase::RootAccess);
        });
    }
}

TEST_F(Constructor, AUserWithLinkAndDirectoryGetsTheSharedDirectory) {
    MakeOurLink();
    m_machine.MakeDirectory("/var/corvane");
    EXPECT_EQ(DecisionFor(AsUser), "6 /var/corvane");
}

TEST_F(Constructor, AUserWithTheDirectoryAloneGetsTheSharedDirectory) {
    m_machine.MakeDirectory("/var/corvane");
    EXPECT_EQ(DecisionFor(AsUser), "2 /var/corvane");
}

TEST_F(Constructor, AUserWithTheLinkAloneGetsAPrivateCopy) {
    MakeOurLink();
    EXPECT_EQ(DecisionFor(AsUser), "4 /opt/corvane26");
}

TEST_F(Constructor, AUserWithNeitherGetsAPrivateCopy) {
    EXPECT_EQ(DecisionFor(AsUser), "0 /opt/corvane26");
}

TEST_F(Constructor, RefusesAUserWhateverTheTestsFound) {
    const auto expectRefusal = [this](const char* found) {
        const auto result = m_machine.Run(AsUser, [] { ConstructAndPrint(false); });
        EXPECT_EQ(result.status, 1) << found;
        EXPECT_EQ(result.out, "") << found;
        EXPECT_EQ(result.err, Refusal) << found;
    };
    expectRefusal("neither");
    MakeOurLink();
    expectRefusal("link");
    m_machine.MakeDirectory("/var/corvane");
    expectRefusal("both");
}

TEST_F(Constructor, RefusesAUserWithTheDirectoryAlone) {
    m_machine.MakeDirectory("/var/corvane");
    const auto result = m_machine.Run(AsUser, [] { ConstructAndPrint(false); });
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, Refusal);
}

class CommandLink : public Constructor, public testing::WithParamInterface<const char*> {};

TEST_P(CommandLink, WithAnotherTargetIsNotOurs) {
    m_machine.MakeLink("/usr/bin/corvane26", GetParam());
    EXPECT_EQ(DecisionFor(AsUser), "0 /opt/corvane26");
}

INSTANTIATE_TEST_SUITE_P(Targets, CommandLink,
                         testing::Values("/var/corvane/corvane26x", "/var/corvane/corvane26/",
                                         "/var/corvane/corvane26_snapshot", "corvane26",
                                         "/var/corvane/corvane2", "/var/corvane",
                                         "../../var/corvane/corvane26", "/VAR/corvane/corvane26"));

TEST_F(Constructor, ALongTargetThatBeginsLikeOursIsNotOurs) {
    m_machine.MakeLink("/usr/bin/corvane26", "/var/corvane/corvane26" + std::string(3000, '/'));
    EXPECT_EQ(DecisionFor(AsUser), "0 /opt/corvane26");
}

TEST_F(Constructor, AFileInPlaceOfTheLinkIsNotOurs) {
    m_machine.Write("/usr/bin/corvane26", "/var/corvane/corvane26");
    EXPECT_EQ(DecisionFor(AsUser), "0 /opt/corvane26");
}

TEST_F(Constructor, ADirectoryThatIsNotWritableFails) {
    m_machine.MakeDirectory("/var/corvane", 0555);
    EXPECT_EQ(DecisionFor(AsUser), "0 /opt/corvane26");
}

TEST_F(Constructor, AFileInPlaceOfTheDirectoryFails) {
    m_machine.Write("/var/corvane", "", 0777);
    EXPECT_EQ(DecisionFor(AsUser), "0 /opt/corvane26");
}

TEST_F(Constructor, ALinkToAWritableDirectoryPassesTheDirectoryTest) {
    m_machine.MakeDirectory("/var/elsewhere");
    m_machine.MakeLink("/var/corvane", "/var/elsewhere");
    EXPECT_EQ(DecisionFor(AsUser), "2 /var/corvane");
}

TEST_F(Constructor, ALinkToAnythingElseFailsTheDirectoryTest) {
    m_machine.MakeLink("/var/corvane", "/var/elsewhere");
    EXPECT_EQ(DecisionFor(AsUser), "0 /opt/corvane26") << "nothing there";
    m_machine.Write("/var/elsewhere", "");
    EXPECT_EQ(DecisionFor(AsUser), "0 /opt/corvane26") << "a file";
}

TEST_F(Constructor, ALinkToADirectoryThatIsNotWritableFails) {
    m_machine.MakeDirectory("/var/elsewhere", 0555);
    m_machine.MakeLink("/var/corvane", "/var/elsewhere");
    EXPECT_EQ(DecisionFor(AsUser), "0 /opt/corvane26");
}

}  // namespace
