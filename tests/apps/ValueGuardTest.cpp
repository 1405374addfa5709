// Values that would change the meaning of the commit script never get into one.
#include <gtest/gtest.h>

#include "apps/UserSetup.h"

namespace {

class ValueGuard : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // What the setup says when it refuses; nothing may have been written then.
    std::string Refusal(const UserSetup& setup, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--setup", "--user-mode", "--yes"});
        const auto result = setup.Run(arguments);
        EXPECT_EQ(result.status, 4) << result.out << result.err;
        EXPECT_TRUE(setup.CommitScripts().empty());
        EXPECT_FALSE(setup.Has("corvanerc"));
        EXPECT_FALSE(setup.Has("qchemrc"));
        return result.err;
    }

    void ExpectFieldRefused(const std::vector<std::string>& arguments, const std::string& field) {
        const UserSetup setup;
        const std::string refusal = Refusal(setup, arguments);
        EXPECT_NE(refusal.find("invalid " + field + " \"" + arguments[1] + "\": "),
                  std::string::npos)
            << refusal;
    }
};

TEST_F(ValueGuard, NamesTheFieldTheValueTheReasonAndTheRemedy) {
    EXPECT_EQ(Refusal(UserSetup(), {"-q", "a$(reboot)"}),
              "cv_install: invalid queue name \"a$(reboot)\": it contains \"$\"\n"
              "    Specify a different queue with --external-queue.\n"
              "    No changes were made.\n");
}

TEST_F(ValueGuard, RefusesWhatChangesAQuotedLine) {
    for (const char* value : {"/a\"b", "/a$b", "/a`b", "/a\\b", "/a\nb", "/a\rb", "/a\x1b[2Jb",
                              "/a\u009b2Jb", "/a\u0085b"}) {
        const UserSetup setup;
        EXPECT_NE(Refusal(setup, {"-d", value}).find("invalid scratch directory"),
                  std::string::npos);
    }
}

TEST_F(ValueGuard, AllowsInAQuotedLineWhatIsHarmlessThere) {
    const UserSetup setup;
    const std::string directory = "/tmp/100% a|b & 'c' ü!";
    const auto result = setup.Run({"--setup", "--user-mode", "--yes", "-d", directory});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(setup.File("QueueLimits").find("Scratch: " + directory + "\n"), std::string::npos);
}

TEST_F(ValueGuard, RefusesWhatChangesASubstitution) {
    for (const char* value : {"a|b", "a&b", "a\\b", "a\"b", "a`b"}) {
        ExpectFieldRefused({"-q", value}, "queue name");
        ExpectFieldRefused({"-p", value}, "partition name");
    }
}

TEST_F(ValueGuard, AccountNamesAreWordsOfTheShell) {
    for (const char* value : {"a b", "a;b", "-a", "a*", "a'b", "a(b", ""}) {
        ExpectFieldRefused({"-g", value}, "service group");
        ExpectFieldRefused({"-u", value}, "service user");
    }
}

TEST_F(ValueGuard, RefusesAProductFolderWithSuchAName) {
    for (const char* name : {"a&b", "a|b", "a$HOME"}) {
        const UserSetup setup(name);
        EXPECT_NE(Refusal(setup, {}).find("Move the product to another directory."),
                  std::string::npos);
    }
}

TEST_F(ValueGuard, RefusesBytesThatAreNotText) {
    const UserSetup setup;
    EXPECT_NE(Refusal(setup, {"-d", "/tmp/\xff"}).find("it is not valid UTF-8"), std::string::npos);
}

TEST_F(ValueGuard, RefusesTheDirectoryOfAHostileQueueLimitsFile) {
    const UserSetup setup;
    hx_test::WriteFile(setup.Outside("QueueLimits"),
                       "MaxThreads: 2\nScratch: /tmp/$(touch /tmp/x)\n");
    const std::string refusal = Refusal(setup, {});
    EXPECT_NE(refusal.find("invalid scratch directory of the previous setup"), std::string::npos);
    EXPECT_NE(refusal.find("Correct \"Scratch\" in QueueLimits"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(setup.Root() + "/x"));
}

TEST_F(ValueGuard, ControlCharactersAreNotShownToTheTerminal) {
    const UserSetup setup;
    EXPECT_EQ(Refusal(setup, {"-d", "/\x1b]0;x"}).find('\x1b'), std::string::npos);
}

}  // namespace
