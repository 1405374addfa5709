// The titles of sections in the output of the commit script.
#include "apply/Progress.h"

#include <gtest/gtest.h>

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
    EXPECT_EQ(Shown(false, {"Created directory /a\nicons/", "\nend"}, false),
              "Created directory /a\nicons/\nend");
}

TEST(Progress, WritesEachTitleOnceBeforeItsSection) {
    EXPECT_EQ(Shown(true, {"Created directory /a\nCreated directory /b\nother\nresources/\n"
                           "icons/\nicons/favicon.svg\nWrote Corvane'26 run script, x\n"
                           "Created directory /c\n"}),
              "==> Directories\nCreated directory /a\nCreated directory /b\nother\n"
              "==> Web pages\nresources/\nicons/\nicons/favicon.svg\n"
              "==> Run script\nWrote Corvane'26 run script, x\nCreated directory /c\n");
}

TEST(Progress, RecognizesLineThatComesInPieces) {
    EXPECT_EQ(Shown(true, {"Cre", "ated directory", " /a", "\nWrote"}, false),
              "==> Directories\nCreated directory /a\n");
}

TEST(Progress, WritesUnfinishedLastLine) {
    EXPECT_EQ(Shown(true, {"first\nicons/"}), "first\nicons/");
}

}  // namespace
