// The question for the scratch directory.
#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

class ScratchDirectory : public PromptTest {
protected:
    // Offers a directory, with a notice if it is from a previous setup.
    void Ask(const std::string& offered, bool notice, const std::string& typed,
             const std::string& expected) {
        SCOPED_TRACE(typed);
        const std::string question = DirectoryIntroduction +
                                     (notice ? DirectoryNotice(offered) : "") +
                                     DirectoryQuestion(offered);
        // The rest of a long line answers the pause.
        const bool pauses = !typed.ends_with(End) && typed.size() <= 1023;
        std::vector<Turn> turns = {{question, typed},
                                   {DirectoryClosing(expected) + Pause, pauses ? "\n" : ""}};
        if (typed.empty())
            turns = {{question + offered + "\n" + DirectoryClosing(expected)}};
        Converse(turns, [=](CInstallBase& run) {
            const QString previous = run.m_prevScratchDir;
            run.PromptScratchDirectory();
            EXPECT_EQ(run.m_scratchDir.toStdString(), expected);
            EXPECT_EQ(run.m_prevScratchDir, previous);
        });
    }
};
HX_OVER_BOTH_CONSOLES(ScratchDirectory);

TEST_P(ScratchDirectory, TakesAnswerUnchecked) {
    const std::string longest = "/" + std::string(1022, 'a');
    const std::pair<std::string, std::string> answers[] = {
        {"\n", "/tmp"},
        {" \t \n", "/tmp"},
        {End, "/tmp"},
        {"/fast\n", "/fast"},
        {"/fast" + End, "/fast"},
        {"  /my  scratch\t\n", "/my  scratch"},
        {"relative/../none/\n", "relative/../none/"},
        {"%s%n\n", "%s%n"},
        {"\"$HOME\"\n", "\"$HOME\""},
        {"/données/Größe/科学\n", "/données/Größe/科学"},
        {std::string("/a\0/b\n", 6), "/a"},
        {longest.substr(0, 1022) + "\n", longest.substr(0, 1022)},
        {longest + "bcd\n", longest}};
    for (const auto& [typed, expected] : answers)
        Ask("/tmp", false, typed, expected);
}

TEST_P(ScratchDirectory, OffersDirectoryOfOption) {
    m_options = {"--scratch-directory", "/données"};
    Ask("/données", false, "\n", "/données");
    Ask("/données", false, "/fast\n", "/fast");
}

TEST_P(ScratchDirectory, OffersPreviousDirectoryInsteadOfOption) {
    PreviousSetup("Scratch: /data/scré\n");
    m_options = {"-d", "/fast"};
    Ask("/data/scré", true, "\n", "/data/scré");
    Ask("/data/scré", true, End, "/data/scré");
    Ask("/data/scré", true, "/other\n", "/other");
}

// A file without a directory sets the default of its class.
TEST_P(ScratchDirectory, OffersTmpWhenPreviousFileHasNoDirectory) {
    m_options = {"-d", "/fast"};
    for (const std::string file : {"", "8", "MaxThreads: 8\n"}) {
        PreviousSetup(file);
        Ask("/tmp", true, "\n", "/tmp");
    }
    PreviousSetup("Scratch:\n");
    Ask("/fast", false, "\n", "/fast");
}

TEST_P(ScratchDirectory, TakesDefaultWithoutInteraction) {
    m_options = {"--cluster-node", "-d", "/fast"};
    Ask("/fast", false, "", "/fast");
    PreviousSetup("Scratch: /data/scr\n");
    Ask("/data/scr", true, "", "/data/scr");
}

}  // namespace
}  // namespace hx_test
