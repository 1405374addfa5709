// The access decision of the constructor, on real paths.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "Machine.h"

namespace {

// Constructs a run and prints the access flags and the install directory.
void ConstructAndPrint(bool allowNonRoot) {
    Construct(
        {program},
        [](CInstallBase& run) {
            std::printf("%d %s", run.m_accessFlags, qUtf8Printable(run.m_installDir));
        },
        allowNonRoot);
}

// A place for the command link and the install directory, and what is there.
struct Entry {
    const char* path;
    enum { Directory, Link, File } kind;
    const char* target = "";
    mode_t mode = 0755;
};

constexpr Entry ourLink = {"/usr/bin/corvane26", Entry::Link, "/var/corvane/corvane26"};
constexpr Entry ourDirectory = {"/var/corvane", Entry::Directory};

class Constructor : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    void Make(const std::vector<Entry>& entries) {
        for (const char* path : {"/usr/bin/corvane26", "/var/corvane", "/var/elsewhere"})
            m_machine.Remove(path);
        for (const Entry& entry : entries) {
            if (entry.kind == Entry::Directory)
                m_machine.MakeDirectory(entry.path, entry.mode);
            else if (entry.kind == Entry::Link)
                m_machine.MakeLink(entry.path, entry.target);
            else
                m_machine.Write(entry.path, entry.target, entry.mode);
        }
    }

    void ExpectDecision(hx_test::World::Identity identity, const std::vector<Entry>& entries,
                        const std::string& decision) {
        Make(entries);
        const auto result = m_machine.Run(identity, [] { ConstructAndPrint(true); });
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, decision)
            << testing::PrintToString(entries.empty() ? "nothing" : entries.back().target);
    }

    Machine m_machine;
};

TEST_F(Constructor, UsesSharedDirectoryUncheckedAsRoot) {
    for (const bool allowNonRoot : {false, true}) {
        const auto result = m_machine.Run(AsRoot, [=] { ConstructAndPrint(allowNonRoot); });
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "1 /var/corvane");
        EXPECT_EQ(result.err, "");
    }
    ExpectDecision(AsRoot, {ourLink, ourDirectory}, "1 /var/corvane");
}

TEST_F(Constructor, KeepsFirstArgument) {
    for (const bool allowNonRoot : {false, true}) {
        m_machine.Expect(AsRoot, [=] {
            Construct(
                {program}, [=](CInstallBase& run) { EXPECT_EQ(run.m_allowNonRoot, allowNonRoot); },
                allowNonRoot);
        });
    }
}

TEST_F(Constructor, UsesSharedDirectoryIfUserCanWriteIt) {
    ExpectDecision(AsUser, {ourLink, ourDirectory}, "6 /var/corvane");
    ExpectDecision(AsUser, {ourDirectory}, "2 /var/corvane");
    // Write permission alone decides.
    ExpectDecision(AsUser, {{"/var/corvane", Entry::Directory, "", 0200}}, "2 /var/corvane");
    ExpectDecision(
        AsUser,
        {{"/var/elsewhere", Entry::Directory}, {"/var/corvane", Entry::Link, "/var/elsewhere"}},
        "2 /var/corvane");
}

TEST_F(Constructor, UsesPrivateCopyIfUserCannotWriteSharedDirectory) {
    const Entry link = {"/var/corvane", Entry::Link, "/var/elsewhere"};
    const std::vector<Entry> cases[] = {{},
                                        {{"/var/corvane", Entry::Directory, "", 0555}},
                                        {{"/var/corvane", Entry::Directory, "", 0100}},
                                        {{"/var/corvane", Entry::File, "", 0777}},
                                        {link},
                                        {{"/var/elsewhere", Entry::File}, link},
                                        {{"/var/elsewhere", Entry::Directory, "", 0555}, link}};
    for (const auto& entries : cases)
        ExpectDecision(AsUser, entries, "0 /opt/corvane26");
    ExpectDecision(AsUser, {ourLink}, "4 /opt/corvane26");
}

TEST_F(Constructor, ComparesWholeTargetOfCommandLink) {
    const std::string longTarget = "/var/corvane/corvane26" + std::string(3000, '/');
    for (const char* target :
         {"/var/corvane/corvane26x", "/var/corvane/corvane26/", "/var/corvane/corvane26_snapshot",
          "corvane26", "/var/corvane/corvane2", "/var/corvane", "../../var/corvane/corvane26",
          "/VAR/corvane/corvane26", longTarget.c_str()}) {
        ExpectDecision(AsUser, {{"/usr/bin/corvane26", Entry::Link, target}}, "0 /opt/corvane26");
    }
    ExpectDecision(AsUser, {{"/usr/bin/corvane26", Entry::File, "/var/corvane/corvane26"}},
                   "0 /opt/corvane26");
}

TEST_F(Constructor, RefusesUser) {
    const std::vector<Entry> cases[] = {{}, {ourLink}, {ourDirectory}, {ourLink, ourDirectory}};
    for (const auto& entries : cases) {
        Make(entries);
        const auto result = m_machine.Run(AsUser, [] { ConstructAndPrint(false); });
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, refusal);
    }
}

// With the capabilities of a new namespace, only the check for the effective user would succeed.
TEST_F(Constructor, ChecksDirectoryForRealUser) {
    m_machine.MakeDirectory("/var/corvane", 0555);
    const auto result = m_machine.Run(AsUser, [] {
        ASSERT_EQ(unshare(CLONE_NEWUSER), 0);
        hx_test::WriteFile("/proc/self/setgroups", "deny");
        hx_test::WriteFile("/proc/self/uid_map", "1000 1000 1");
        hx_test::WriteFile("/proc/self/gid_map", "1000 1000 1");
        ASSERT_EQ(faccessat(AT_FDCWD, "/var/corvane", W_OK, AT_EACCESS), 0);
        ConstructAndPrint(true);
    });
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "0 /opt/corvane26");
}

TEST(ConstructorRealUser, DecidesOverEffectiveUser) {
    if (getuid() != 0)
        GTEST_SKIP() << "only root can have two different user ids";
    const auto root = hx_test::RunInChild({}, [] {
        ASSERT_EQ(setresuid(0, 1000, 0), 0);
        ConstructAndPrint(false);
        ASSERT_EQ(setresuid(0, 0, 0), 0);
    });
    EXPECT_EQ(root.status, 0) << root.err;
    EXPECT_EQ(root.out, "1 /var/corvane");
    const auto user = hx_test::RunInChild({}, [] {
        ASSERT_EQ(setresuid(1000, 0, 0), 0);
        ConstructAndPrint(false);
    });
    EXPECT_EQ(user.status, 1);
    EXPECT_EQ(user.err, refusal);
}

}  // namespace
