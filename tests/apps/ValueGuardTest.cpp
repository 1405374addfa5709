// Values that would change the meaning of the commit script are refused.
#include <gtest/gtest.h>

#include "apps/UserSetup.h"
#include "harness/Expect.h"

namespace {

using hx_test::ExpectHolds;

class ValueGuard : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    // The messages of a refused setup.
    static std::string Refusal(const UserSetup& setup, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--setup", "--user-mode", "--yes"});
        const auto result = setup.Run(arguments);
        EXPECT_EQ(result.status, 4) << result.out << result.err;
        EXPECT_TRUE(setup.CommitScripts().empty());
        EXPECT_FALSE(setup.Has("corvanerc"));
        EXPECT_FALSE(setup.Has("qchemrc"));
        return result.err;
    }
};

TEST_F(ValueGuard, PrintsFieldValueReasonAndRemedy) {
    EXPECT_EQ(Refusal(UserSetup(), {"-q", "a$(reboot)"}),
              "cv_install: invalid queue name \"a$(reboot)\": it contains \"$\"\n"
              "    Specify a different queue with --external-queue.\n"
              "    No changes were made.\n");
}

TEST_F(ValueGuard, RefusesUnsafeValuesOfEachUse) {
    const struct {
        std::vector<std::pair<const char*, const char*>> fields;  // option, name in the message
        const char* reason;
        std::vector<const char*> values;
    } cases[] = {
        {{{"-d", "scratch directory"}}, "it contains \"", {"/a\"b", "/a$b", "/a`b", "/a\\b"}},
        {{{"-d", "scratch directory"}},
         "it contains a control character",
         {"/a\nb", "/a\rb", "/a\x1b[2Jb", "/a\u009b2Jb", "/a\u0085b"}},
        {{{"-d", "scratch directory"}}, "it is not valid UTF-8", {"/a\xff"}},
        {{{"-q", "queue name"}, {"-p", "partition name"}},
         "it contains \"",
         {"a|b", "a&b", "a\\b", "a\"b", "a`b"}},
        {{{"-g", "service group"}, {"-u", "service user"}},
         "account names can contain letters, digits, and _.@+- but must start with",
         {"a b", "a;b", "-a", "a*", "a'b", "a(b", ""}},
    };
    const UserSetup setup;
    for (const auto& [fields, reason, values] : cases) {
        for (const auto& [option, field] : fields) {
            for (const char* value : values) {
                const std::string refusal = Refusal(setup, {option, value});
                ExpectHolds(refusal, std::string("invalid ") + field + " \"");
                ExpectHolds(refusal, std::string("\": ") + reason);
                EXPECT_EQ(refusal.find_first_of("\r\x1b\x85\x9b"), std::string::npos);
            }
        }
    }
}

TEST_F(ValueGuard, AcceptsHarmlessCharactersInQuotedLines) {
    const UserSetup setup;
    const std::string directory = "/tmp/100% a|b & 'c' ü!";
    const auto result = setup.Run({"--setup", "--user-mode", "--yes", "-d", directory});
    ASSERT_EQ(result.status, 0) << result.err;
    ExpectHolds(setup.File("QueueLimits"), "Scratch: " + directory + "\n");
}

TEST_F(ValueGuard, RefusesProductDirectoryWithUnsafeName) {
    for (const char* name : {"a&b", "a|b", "a$HOME"})
        ExpectHolds(Refusal(UserSetup(name), {}), "Move the product to another directory.");
}

}  // namespace
