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
        return WithoutLogPath(result.err);
    }
};

TEST_F(ValueGuard, RefusesUnsafeValuesOfEachUse) {
    struct Field {
        const char* option;
        const char* name;
        const char* remedy;
    };
    const Field scratch = {"-d", "scratch directory",
                           "Specify another directory with --scratch-directory, or correct "
                           "\"Scratch\" in QueueLimits if it is from a previous setup."};
    const Field queue = {"-q", "queue name", "Specify a different queue."};
    const Field partition = {"-p", "partition name", "Specify a different partition."};
    const Field group = {"-g", "service group", "Specify a different group with --service-group."};
    const Field user = {"-u", "service user", "Specify a different user with --service-user."};
    const char* const notAName =
        "account names can contain letters, digits, and _.@+- but must start with a letter, "
        "digit, or _";
    const struct {
        std::vector<Field> fields;
        std::string reason;
        std::vector<const char*> values;
    } cases[] = {
        {{scratch, queue, partition}, "it contains \"\"\"", {"/a\"b"}},
        {{scratch, queue, partition}, "it contains \"$\"", {"/a$b", "a$(reboot)"}},
        {{scratch, queue, partition}, "it contains \"`\"", {"/a`b"}},
        {{scratch, queue, partition}, "it contains \"\\\"", {"/a\\b"}},
        {{queue, partition}, "it contains \"|\"", {"a|b"}},
        {{queue, partition}, "it contains \"&\"", {"a&b"}},
        {{scratch},
         "it contains a control character",
         {"/a\nb", "/a\rb", "/a\x1b[2Jb", "/a\u009b2Jb", "/a\u0085b"}},
        {{scratch}, "it is not valid UTF-8", {"/a\xff"}},
        {{group, user}, notAName, {"a b", "a;b", "-a", "a*", "a'b", "a(b", ""}},
    };
    const UserSetup setup;
    for (const auto& [fields, reason, values] : cases) {
        for (const auto& [option, name, remedy] : fields) {
            for (const char* value : values) {
                const std::string refusal = Refusal(setup, {option, value});
                EXPECT_TRUE(refusal.starts_with(std::string("cv_install: invalid ") + name + " \""))
                    << refusal;
                EXPECT_TRUE(refusal.ends_with("\": " + reason + "\n    " + remedy +
                                              "\n    No changes were made.\n"))
                    << refusal;
                EXPECT_EQ(refusal.find_first_of("\r\x1b\x85\x9b"), std::string::npos);
            }
        }
    }
}

TEST_F(ValueGuard, RefusesProductDirectoryWithUnsafeName) {
    for (const char* name : {"a&b", "a|b", "a$HOME"})
        ExpectHolds(Refusal(UserSetup(name), {}), "Move the product to another directory.");
}

}  // namespace
