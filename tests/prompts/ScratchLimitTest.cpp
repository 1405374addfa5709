// The question for the scratch space of each thread.
#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

const char* const HalfATerabyte = "524288000";  // 500 GB in blocks of 1024 bytes

class ScratchLimit : public PromptTest {
protected:
    ScratchLimit() { FreeBlocks(HalfATerabyte); }

    void Ask(const QString& directory, int jobLimit, int expectedGB,
             const std::vector<Turn>& turns) {
        Converse(turns, [=](CInstallBase& run) {
            run.m_scratchDir = directory;
            run.m_jobLimit = jobLimit;
            run.PromptScratchLimit();
            EXPECT_EQ(run.m_scratchLimitGB, expectedGB);
            EXPECT_EQ(run.m_scratchDir, directory);
            EXPECT_EQ(run.m_jobLimit, jobLimit);
        });
    }

    void ExpectShareOffered(int jobLimit = 8) {
        const int share = 500 / jobLimit;
        Ask("/tmp", jobLimit, share,
            {{ScratchIntroduction(500, jobLimit, share) + ScratchQuestion(share), "\n"},
             {ScratchClosing(share) + Pause, "\n"}});
    }

    void ExpectOneOffered(int jobLimit = 8) {
        Ask("/tmp", jobLimit, 1,
            {{UnmeasuredIntroduction + ScratchQuestion(1), "\n"},
             {ScratchClosing(1) + Pause, "\n"}});
    }

    bool DfWasRun() const { return std::filesystem::exists(m_home / "df_arguments"); }
};
HX_OVER_BOTH_CONSOLES(ScratchLimit);

TEST_P(ScratchLimit, SharesTheFreeSpaceOutAndTruncates) {
    ExpectShareOffered(8);
    ExpectShareOffered(3);
    ExpectShareOffered(500);
}

TEST_P(ScratchLimit, MeasuresTheScratchDirectory) {
    Ask("/my scratch/données", 8, 62,
        {{ScratchIntroduction(500, 8, 62) + ScratchQuestion(62), "\n"},
         {ScratchClosing(62) + Pause, "\n"}});
    EXPECT_EQ(ReadFile(m_home / "df_arguments"), "-P\n/my scratch/données\n");
}

TEST_P(ScratchLimit, ATypedNumberWinsAlsoAboveTheFreeSpace) {
    Ask("/tmp", 8, 9999,
        {{ScratchIntroduction(500, 8, 62) + ScratchQuestion(62), "9999\n"},
         {ScratchClosing(9999) + Pause, "\n"}});
}

TEST_P(ScratchLimit, LessSpaceThanThreadsOffersZeroWhichCannotBeTyped) {
    FreeBlocks("5242880");
    Ask("/tmp", 8, 0,
        {{ScratchIntroduction(5, 8, 0) + ScratchQuestion(0), "0\n"},
         {Complaint + Pause, "\n"},
         {ScratchQuestion(0), "\n"},
         {ScratchClosing(0) + Pause, "\n"}});
}

TEST_P(ScratchLimit, OneGigabyteIsTheLeastThatIsSharedOut) {
    FreeBlocks("1048576");
    Ask("/tmp", 1, 1,
        {{ScratchIntroduction(1, 1, 1) + ScratchQuestion(1), "\n"},
         {ScratchClosing(1) + Pause, "\n"}});
    FreeBlocks("1048575");
    ExpectOneOffered(1);
}

TEST_P(ScratchLimit, AFailedMeasurementOffersOne) {
    for (const std::string blocks : {"-", "-2097152", "2147483648"}) {
        SCOPED_TRACE(blocks);
        FreeBlocks(blocks);
        ExpectOneOffered();
    }
    AddProgram("df", "echo 'df: /tmp: No such file or directory' >&2; exit 1\n");
    ExpectOneOffered();
}

TEST_P(ScratchLimit, AJobLimitOfZeroOrLessOffersOne) {
    ExpectOneOffered(0);
    ExpectOneOffered(-1);
}

TEST_P(ScratchLimit, TheSameJobLimitAndDirectoryPreserveThePreviousLimit) {
    LastInstallation("MaxThreads: 8\nScratch: /data/scr\nDiskPerThreadGB: 40\n");
    Ask("/data/scr", 8, 40,
        {{ScratchIntroduction(500, 8, 62) + ScratchNotice(40) + ScratchQuestion(40), "\n"},
         {ScratchClosing(40) + Pause, "\n"}});
}

TEST_P(ScratchLimit, ThePreviousLimitStandsAlsoWithoutAMeasurement) {
    LastInstallation("MaxThreads: 8\nScratch: /data/scr\nDiskPerThreadGB: 40\n");
    FreeBlocks("0");
    Ask("/data/scr", 8, 40,
        {{UnmeasuredIntroduction + ScratchNotice(40) + ScratchQuestion(40), "\n"},
         {ScratchClosing(40) + Pause, "\n"}});
}

TEST_P(ScratchLimit, AnythingElseThanTheSameTextDiscardsThePreviousLimit) {
    LastInstallation("MaxThreads: 8\nScratch: /data/scr\nDiskPerThreadGB: 40\n");
    for (const QString directory : {"/fast", "/data/scr/", "/data//scr", "/Data/scr", ""}) {
        SCOPED_TRACE(directory.toStdString());
        Ask(directory, 8, 62,
            {{ScratchIntroduction(500, 8, 62) + ScratchQuestion(62), "\n"},
             {ScratchClosing(62) + Pause, "\n"}});
    }
    Ask("/data/scr", 9, 55,
        {{ScratchIntroduction(500, 9, 55) + ScratchQuestion(55), "\n"},
         {ScratchClosing(55) + Pause, "\n"}});
}

TEST_P(ScratchLimit, APreviousLimitOfZeroIsNotOffered) {
    LastInstallation("MaxThreads: 8\nDiskPerThreadGB: none\n");
    ExpectShareOffered();
}

TEST_P(ScratchLimit, ABareJobLimitOfAnEarlierInstallationPreservesItsBuiltInLimit) {
    LastInstallation("8");
    Ask("/tmp", 8, 1,
        {{ScratchIntroduction(500, 8, 62) + ScratchNotice(1) + ScratchQuestion(1), "\n"},
         {ScratchClosing(1) + Pause, "\n"}});
}

TEST_P(ScratchLimit, ADirectoryTypedBeforeDiscardsThePreviousLimit) {
    LastInstallation("MaxThreads: 8\nScratch: /data/scr\nDiskPerThreadGB: 40\n");
    Converse(
        {{DirectoryIntroduction + DirectoryNotice("/data/scr") + DirectoryQuestion("/data/scr"),
          "/fast\n"},
         {DirectoryClosing("/fast") + Pause, "\n"},
         {ScratchIntroduction(500, 8, 62) + ScratchQuestion(62), "\n"},
         {ScratchClosing(62) + Pause, "\n"}},
        [](CInstallBase& run) {
            run.m_jobLimit = 8;
            run.PromptScratchDirectory();
            run.PromptScratchLimit();
            EXPECT_EQ(run.m_scratchDir, "/fast");
            EXPECT_EQ(run.m_scratchLimitGB, 62);
        });
}

TEST_P(ScratchLimit, ARefusedAnswerRepeatsTheNoticeWithTheQuestion) {
    LastInstallation("MaxThreads: 8\nDiskPerThreadGB: 40\n");
    Ask("/tmp", 8, 50,
        {{ScratchIntroduction(500, 8, 62) + ScratchNotice(40) + ScratchQuestion(40), "50GB\n"},
         {Complaint + Pause, "7\n"},
         {ScratchNotice(40) + ScratchQuestion(40), "50\n"},
         {ScratchClosing(50) + Pause, "\n"}});
}

TEST_P(ScratchLimit, TheOptionLeavesTheClosingBlockAndThePauseAndMeasuresNothing) {
    LastInstallation("MaxThreads: 8\nDiskPerThreadGB: 40\n");
    for (const std::string option : {"--scratch-limit", "-s"}) {
        m_options = {option, "100"};
        Ask("/tmp", 8, 100, {{ScratchClosing(100) + Pause, "\n"}});
    }
    EXPECT_FALSE(DfWasRun());
}

TEST_P(ScratchLimit, AnOptionOfZeroOrLessCountsAsNotGiven) {
    for (const std::string value : {"0", "-5"}) {
        m_options = {"--scratch-limit", value};
        ExpectShareOffered();
    }
    EXPECT_TRUE(DfWasRun());
}

TEST_P(ScratchLimit, AnswersItselfInARunWithoutQuestions) {
    m_options = {"--cluster-node"};
    Ask("/tmp", 8, 62,
        {{ScratchIntroduction(500, 8, 62) + ScratchQuestion(62) + "62\n" + ScratchClosing(62)}});
}

TEST_P(ScratchLimit, AnswersItselfWithThePreviousLimit) {
    LastInstallation("MaxThreads: 8\nDiskPerThreadGB: 40\n");
    m_options = {"--cluster-node"};
    Ask("/tmp", 8, 40,
        {{ScratchIntroduction(500, 8, 62) + ScratchNotice(40) + ScratchQuestion(40) + "40\n" +
          ScratchClosing(40)}});
}

TEST_P(ScratchLimit, TheOptionLeavesNoPauseInARunWithoutQuestions) {
    m_options = {"--cluster-node", "--scratch-limit", "100"};
    Ask("/tmp", 8, 100, {{ScratchClosing(100)}});
    EXPECT_FALSE(DfWasRun());
}

}  // namespace
}  // namespace hx_test
