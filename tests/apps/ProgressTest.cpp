// The titles of sections in the output of the commit script.
#include "apply/Progress.h"

#include <gtest/gtest.h>

#include "apply/ScriptMessages.h"
#include "harness/Child.h"

namespace {

// What is written for these pieces of output.
std::string Shown(bool titles, const std::vector<const char*>& pieces, bool finish = true) {
    return hx_test::RunInChild({},
                               [&] {
                                   Progress progress(titles);
                                   for (const char* piece : pieces)
                                       progress.Show(piece);
                                   if (finish)
                                       progress.Finish();
                               })
        .out;
}

TEST(Progress, WritesOutputAsItIsWithoutTitles) {
    EXPECT_EQ(Shown(false, {"Created directory /a\nicons/", "\nend"}),
              "Created directory /a\nicons/\nend");
}

TEST(Progress, WritesEachTitleOnceBeforeItsSection) {
    EXPECT_EQ(Shown(true, {"Created directory /a\n\nCreated directory /b\nother\n\nresources/\n"
                           "\nicons/\nicons/favicon.svg\nWrote Corvane'26 run script, x\n"
                           "Created directory /c\n"}),
              "==> Directories\nCreated directory /a\n\nCreated directory /b\nother\n\n"
              "==> Web pages\nresources/\n\nicons/\nicons/favicon.svg\n"
              "==> Run script\nWrote Corvane'26 run script, x\nCreated directory /c\n");
}

TEST(Progress, WritesTitleBeforeMessagesOfTools) {
    EXPECT_EQ(Shown(true, {"Created directory /a\n\nUpdating /a: 755 -> 775\ntar: no such file\n"
                           "Error, unpacking resources /a/resources\n"}),
              "==> Directories\nCreated directory /a\n\nUpdating /a: 755 -> 775\n"
              "==> Web pages\ntar: no such file\nError, unpacking resources /a/resources\n");
}

TEST(Progress, KeepsClosingLinesBack) {
    const char* closing = "Corvane'26 Installation script completed successfully!\n\n";
    EXPECT_EQ(Shown(true, {"first\n", closing}), "first\n");
    Progress progress(false);
    progress.Show(closing);
    EXPECT_EQ(progress.ClosingLines(), closing);
}

TEST(Progress, RecognizesLineThatComesInPieces) {
    EXPECT_EQ(Shown(true, {"Cre", "ated directory", " /a", "\nWrote"}, false),
              "==> Directories\nCreated directory /a\n");
}

TEST(Progress, WritesUnfinishedLastLine) {
    EXPECT_EQ(Shown(true, {"first\nicons/"}), "first\nicons/");
}

TEST(ScriptMessages, AreErrorAndMessagesOfToolsBefore) {
    const struct {
        const char* output;
        const char* error;
        const char* cause;
    } cases[] = {
        {"", "", ""},
        {"Created directory /a\n", "Created directory /a", ""},
        {"Created directory /a\n\nError, creating /b\n", "Error, creating /b", ""},
        {"tar: a: old\nWrote a\n/bin/tar: b: Cannot open\ntar: exiting\nError, unpacking "
         "/b\nmore\n",
         "Error, unpacking /b", "/bin/tar: b: Cannot open; tar: exiting"},
        {"Error, first\nUpdating /a: 755 -> 775\nError, second", "Error, second", ""},
        {"/tmp/script: line 3: ln: not found\nError, creating /b\n", "Error, creating /b",
         "/tmp/script: line 3: ln: not found"},
    };
    for (const auto& [output, error, cause] : cases) {
        const ScriptMessages messages = FindScriptMessages(output);
        EXPECT_EQ(messages.error, error) << output;
        EXPECT_EQ(messages.cause, cause) << output;
    }
    const ScriptMessages longOnes = FindScriptMessages(QByteArray(5000, 'x'));
    EXPECT_EQ(longOnes.error.size(), 1000);
}

}  // namespace
