// Values that would change the meaning of the commit script are refused.
#include "answers/ValueGuard.h"

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

constexpr const char* notAName =
    "account names can contain letters, digits, and _.@+- but must start with a letter, digit, "
    "or _";

TEST_F(ValueGuard, RefusesUnsafeValueOfEachOption) {
    const struct {
        const char* option;
        const char* value;
        const char* name;
        std::string reason;
        const char* remedy;
    } cases[] = {
        {"-d", "/a$b", "scratch directory", "it contains \"$\"",
         "Specify another directory with --scratch-directory, or correct \"Scratch\" in "
         "QueueLimits if it is from a previous setup."},
        {"-q", "a|b", "queue name", "it contains \"|\"",
         "Specify another value with --queue-name."},
        {"-p", "a&b", "partition name", "it contains \"&\"",
         "Specify another value with --queue-name."},
        {"--qdel", "/a`b", "qdel command", "it contains \"`\"",
         "Specify another value with --qdel."},
        {"--http-address", "a\xff", "HTTP address", "it is not valid UTF-8",
         "Specify another value with --http-address."},
        {"-g", "a\x1b[2Jb", "service group", notAName,
         "Specify another value with --service-group."},
        {"-u", "", "service user", notAName, "Specify another value with --service-user."},
    };
    const UserSetup setup;
    for (const auto& [option, value, name, reason, remedy] : cases) {
        const std::string refusal = Refusal(setup, {option, value});
        EXPECT_TRUE(refusal.starts_with(std::string("cv_install: invalid ") + name + " \""))
            << refusal;
        EXPECT_TRUE(refusal.ends_with("\": " + reason + "\n    " + remedy +
                                      "\n    No changes were made.\n"))
            << refusal;
        EXPECT_EQ(refusal.find('\x1b'), std::string::npos);
    }
    // The script also contains the name for the other scheduler.
    ExpectHolds(Refusal(setup, {"-q", "a|b", "-p", "gpu"}), "invalid queue name \"a|b\"");
}

TEST(UnsafeValue, HasReasonForItsUse) {
    const std::string control = "it contains a control character";
    const std::initializer_list<AnswerUse> texts = {AnswerUse::Quoted, AnswerUse::Substituted};
    const struct {
        std::initializer_list<AnswerUse> uses;
        std::string reason;
        std::vector<QString> values;
    } cases[] = {
        {texts, "it contains \"\"\"", {"/a\"b"}},
        {texts, "it contains \"$\"", {"/a$b", "a$(reboot)"}},
        {texts, "it contains \"`\"", {"/a`b"}},
        {texts, "it contains \"\\\"", {"/a\\b"}},
        {{AnswerUse::Substituted}, "it contains \"|\"", {"a|b"}},
        {{AnswerUse::Substituted}, "it contains \"&\"", {"a&b"}},
        {{AnswerUse::Quoted}, "", {"a|b", "a&b", "/größe/日本", "/🙂", ""}},
        {texts, control, {"/a\nb", "/a\rb", "/a\x1b[2Jb", "/a\u009b2Jb", "/a\u0085b"}},
        {texts, "it contains format character U+202E", {"/a\u202eb"}},
        {texts, "it contains format character U+200B", {"/a\u200b"}},
        {texts, "it contains format character U+2028", {"\u2028"}},
        {texts, "it contains format character U+E0001", {"/a\U000e0001"}},
        {texts, "it is not valid UTF-8", {QString::fromUtf8("/a\xff")}},
        {{AnswerUse::AccountName},
         notAName,
         {"a b", "a;b", "-a", "a*", "a'b", "a(b", "", "a\u202eb"}},
        {{AnswerUse::AccountName}, "", {"a", "a.b-c_d@e+1"}},
    };
    for (const auto& [uses, reason, values] : cases) {
        for (const AnswerUse use : uses) {
            for (const QString& value : values)
                EXPECT_EQ(ReasonAgainst(value, use).toStdString(), reason) << qPrintable(value);
        }
    }
}

TEST(Printable, HidesCharactersThatChangeOtherText) {
    EXPECT_EQ(Printable("a\x1b[2J\u202e\U000e0001\u2028z/größe🙂"), "a?[2J???z/größe🙂");
}

TEST_F(ValueGuard, RefusesProductDirectoryWithUnsafeName) {
    for (const char* name : {"a&b", "a|b", "a$HOME"})
        ExpectHolds(Refusal(UserSetup(name), {}), "Move the product to another directory.");
}

}  // namespace
