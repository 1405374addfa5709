// All prompts in the order of a setup, and with an unreadable console.
#include <fcntl.h>
#include <unistd.h>

#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

void AskAll(CInstallBase& run) {
    run.m_coreCount = 8;
    run.m_ramMB = 32000;
    run.m_serviceCurrentMembers = QStringList{"dana"};
    run.PromptJobLimit();
    run.PromptMemoryLimit();
    run.PromptScratchDirectory();
    run.PromptScratchLimit();
    run.PromptQueueType();
    run.PromptComputeServiceGroupMembers();
}

class AllPrompts : public PromptTest {
protected:
    AllPrompts() {
        Replace("/opt");
        FreeBlocks("524288000");
    }
};
HX_OVER_BOTH_CONSOLES(AllPrompts);

TEST_P(AllPrompts, UseEarlierAnswersAlsoInGraphicalSetup) {
    m_options = {"--gui"};
    PreviousSetup(
        "MaxThreads: 4\nMemoryPerThreadMB: 2000\nScratch: /data\n"
        "DiskPerThreadGB: 40\n");
    Converse(
        {{JobIntroduction(8) + JobQuestion(8), "4\n"},
         {MemoryIntroduction(32000, 4, 8000) + MemoryNotice(2000) + MemoryQuestion(2000), "6000\n"},
         {MemoryClosing(6000) + Pause, "\n"},
         {DirectoryIntroduction + DirectoryNotice("/data") + DirectoryQuestion("/data"), "\n"},
         {DirectoryClosing("/data") + Pause, "\n"},
         {ScratchIntroduction(500, 4, 125) + ScratchNotice(40) + ScratchQuestion(40), "\n"},
         {ScratchClosing(40) + Pause, "\n"},
         {Separator + QueueMenu, "1\n"},
         {InternalSummary + Pause, "\n"},
         {MembersQuestion("dana"), "erik\n"},
         {MembersClosing("erik") + Pause, "\n"}},
        [](CInstallBase& run) {
            g_hx_gui_installer = 1;
            AskAll(run);
        });
    EXPECT_EQ(ReadFile(m_home / "df_arguments"), "-P\n/data\n");
}

TEST_P(AllPrompts, EndProcessWithUnreadableInput) {
    m_status = 2;
    m_error = "Corvane Install: Error\n    [^\n]*type of queue[^\n]*\n";
    const std::string output = JobIntroduction(8) + JobQuestion(8) +
                               MemoryIntroduction(32000, 8, 4000) + MemoryQuestion(4000) +
                               MemoryClosing(4000) + Pause + DirectoryIntroduction +
                               DirectoryQuestion("/tmp") + DirectoryClosing("/tmp") + Pause +
                               ScratchIntroduction(500, 8, 62) + ScratchQuestion(62) +
                               ScratchClosing(62) + Pause + Separator + QueueMenu + Invalid;
    // Reading a directory is an error, not an end of file.
    Converse({{output}}, [](CInstallBase& run) {
        dup2(open("/", O_RDONLY | O_DIRECTORY), 0);
        AskAll(run);
    });
    Converse({{output}}, [](CInstallBase& run) {
        close(0);
        AskAll(run);
    });
}

}  // namespace
}  // namespace hx_test
