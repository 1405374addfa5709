// The question for the directory of temporary files.
#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

class ScratchDirectory : public PromptTest {
protected:
    void Ask(const std::string& expected, const std::vector<Turn>& turns) {
        Converse(turns, [=](CInstallBase& run) {
            const QString previous = run.m_prevScratchDir;
            run.PromptScratchDirectory();
            EXPECT_EQ(run.m_scratchDir.toStdString(), expected);
            EXPECT_EQ(run.m_prevScratchDir, previous);
        });
    }

    // A first installation, which offers /tmp.
    void Type(const std::string& line, const std::string& expected) {
        SCOPED_TRACE(line);
        Ask(expected, {{DirectoryIntroduction + DirectoryQuestion("/tmp"), line},
                       {DirectoryClosing(expected) + Pause, "\n"}});
    }
};
HX_OVER_BOTH_CONSOLES(ScratchDirectory);

TEST_P(ScratchDirectory, EnterKeepsTheBuiltInDirectory) {
    Type("\n", "/tmp");
    Type(" \t \n", "/tmp");
}

TEST_P(ScratchDirectory, TakesWhatIsTypedAsItStands) {
    Type("/fast\n", "/fast");
    Type("/my scratch\n", "/my scratch");
    Type("  /my  scratch\t\n", "/my  scratch");
    Type("relative/../none/\n", "relative/../none/");
    Type("%s%n\n", "%s%n");
    Type("\"$HOME\"\n", "\"$HOME\"");
}

TEST_P(ScratchDirectory, KeepsLettersOfAnyLanguage) {
    Type("/données/Größe/科学\n", "/données/Größe/科学");
}

TEST_P(ScratchDirectory, EndsTheAnswerAtAZeroByte) {
    Type(std::string("/a\0/b\n", 6), "/a");
}

TEST_P(ScratchDirectory, TakesALineThatJustFits) {
    const std::string directory = "/" + std::string(1021, 'a');
    Type(directory + "\n", directory);
}

TEST_P(ScratchDirectory, CutsALongLineWhoseRestGoesToThePause) {
    const std::string directory = "/" + std::string(1022, 'a');
    Ask(directory, {{DirectoryIntroduction + DirectoryQuestion("/tmp"), directory + "bcd\n"},
                    {DirectoryClosing(directory) + Pause}});
}

TEST_P(ScratchDirectory, TheOptionIsOnlyADefault) {
    m_options = {"--scratch-directory", "/données"};
    Ask("/données", {{DirectoryIntroduction + DirectoryQuestion("/données"), "\n"},
                     {DirectoryClosing("/données") + Pause, "\n"}});
    Ask("/fast", {{DirectoryIntroduction + DirectoryQuestion("/données"), "/fast\n"},
                  {DirectoryClosing("/fast") + Pause, "\n"}});
}

TEST_P(ScratchDirectory, ThePreviousDirectoryWinsOverTheOption) {
    LastInstallation("Scratch: /data/scr\n");
    m_options = {"-d", "/fast"};
    Ask("/data/scr",
        {{DirectoryIntroduction + DirectoryNotice("/data/scr") + DirectoryQuestion("/data/scr"),
          "\n"},
         {DirectoryClosing("/data/scr") + Pause, "\n"}});
}

TEST_P(ScratchDirectory, ATypedDirectoryWinsOverThePreviousOne) {
    LastInstallation("Scratch: /données\n");
    Ask("/fast",
        {{DirectoryIntroduction + DirectoryNotice("/données") + DirectoryQuestion("/données"),
          "/fast\n"},
         {DirectoryClosing("/fast") + Pause, "\n"}});
}

TEST_P(ScratchDirectory, AFileWithoutADirectoryIsAnEarlierInstallationInTmp) {
    m_options = {"-d", "/fast"};
    for (const std::string file : {"", "8", "MaxThreads: 8\n"}) {
        LastInstallation(file);
        Ask("/tmp",
            {{DirectoryIntroduction + DirectoryNotice("/tmp") + DirectoryQuestion("/tmp"), "\n"},
             {DirectoryClosing("/tmp") + Pause, "\n"}});
    }
}

TEST_P(ScratchDirectory, AnEmptyPreviousDirectoryIsNone) {
    LastInstallation("Scratch:\n");
    m_options = {"-d", "/fast"};
    Ask("/fast", {{DirectoryIntroduction + DirectoryQuestion("/fast"), "\n"},
                  {DirectoryClosing("/fast") + Pause, "\n"}});
}

TEST_P(ScratchDirectory, AnswersItselfInARunWithoutQuestions) {
    m_options = {"--cluster-node", "-d", "/fast"};
    Ask("/fast", {{DirectoryIntroduction + DirectoryQuestion("/fast") + "/fast\n" +
                   DirectoryClosing("/fast")}});
}

TEST_P(ScratchDirectory, AnswersItselfWithThePreviousDirectory) {
    LastInstallation("Scratch: /data/scr\n");
    m_options = {"--cluster-node", "-d", "/fast"};
    Ask("/data/scr",
        {{DirectoryIntroduction + DirectoryNotice("/data/scr") + DirectoryQuestion("/data/scr") +
          "/data/scr\n" + DirectoryClosing("/data/scr")}});
}

TEST_P(ScratchDirectory, AClosedConsoleKeepsTheOfferedDirectory) {
    Ask("/tmp", {{DirectoryIntroduction + DirectoryQuestion("/tmp"), End},
                 {DirectoryClosing("/tmp") + Pause}});
    LastInstallation("Scratch: /data/scr\n");
    Ask("/data/scr",
        {{DirectoryIntroduction + DirectoryNotice("/data/scr") + DirectoryQuestion("/data/scr"),
          End},
         {DirectoryClosing("/data/scr") + Pause}});
}

TEST_P(ScratchDirectory, TakesALastAnswerWithoutALineEnd) {
    Ask("/fast", {{DirectoryIntroduction + DirectoryQuestion("/tmp"), "/fast" + End},
                  {DirectoryClosing("/fast") + Pause}});
}

}  // namespace
}  // namespace hx_test
