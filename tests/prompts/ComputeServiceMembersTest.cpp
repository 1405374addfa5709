// The question for the members of the compute service's group.
#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

class ComputeServiceMembers : public PromptTest {
protected:
    void Ask(const QStringList& present, const QStringList& expected,
             const std::vector<Turn>& turns) {
        Converse(turns, [=](CInstallBase& run) {
            run.m_serviceCurrentMembers = present;
            run.m_serviceMembers = {"of", "before"};
            run.PromptComputeServiceGroupMembers();
            EXPECT_EQ(run.m_serviceMembers.join('|').toStdString(),
                      expected.join('|').toStdString());
            EXPECT_EQ(run.m_serviceCurrentMembers, present);
        });
    }

    // Types a line where dana and erik are the present members.
    void Type(const std::string& line, const QStringList& expected) {
        SCOPED_TRACE(line);
        Ask({"dana", "erik"}, expected,
            {{MembersQuestion("dana,erik"), line},
             {MembersClosing(expected.join(',').toStdString()) + Pause, "\n"}});
    }
};
HX_OVER_BOTH_CONSOLES(ComputeServiceMembers);

TEST_P(ComputeServiceMembers, WithoutAGroupEnterLeavesNobody) {
    Ask({}, {}, {{MembersQuestion(""), "\n"}, {MembersClosing("") + Pause, "\n"}});
}

TEST_P(ComputeServiceMembers, OffersTheGroupInTheOrderOfTheDatabase) {
    WriteFile(m_home / "group", "root:x:0:\ncorvsrvc:x:990:zoe,anna,björn\n");
    m_world.binds.emplace_back(m_home / "group", "/etc/group");
    Converse({{MembersQuestion("zoe,anna,björn"), "\n"},
              {MembersClosing("zoe,anna,björn") + Pause, "\n"}},
             [](CInstallBase& run) {
                 run.PromptComputeServiceGroupMembers();
                 EXPECT_EQ(run.m_serviceMembers, run.m_serviceCurrentMembers);
             });
}

TEST_P(ComputeServiceMembers, AnAnswerReplacesTheList) {
    Type("fred\n", {"fred"});
    Type("erik\n", {"erik"});
}

TEST_P(ComputeServiceMembers, CommasAndBlanksSeparateInAnyRun) {
    Type("fred,gina\n", {"fred", "gina"});
    Type("fred, gina\n", {"fred", "gina"});
    Type("fred gina\n", {"fred", "gina"});
    Type(" ,, fred , ,gina,  hugo,\n", {"fred", "gina", "hugo"});
}

TEST_P(ComputeServiceMembers, NothingElseSeparates) {
    Type("fred\tgina\n", {"fred\tgina"});
    Type("\tfred;gina\t\n", {"fred;gina"});
}

TEST_P(ComputeServiceMembers, SeparatorsAloneKeepThePresentMembers) {
    for (const std::string line : {"\n", ",\n", " , ,,\n", "   \n", "\t\n"})
        Type(line, {"dana", "erik"});
}

TEST_P(ComputeServiceMembers, NamesAreTakenOnTrust) {
    Type("fred,fred\n", {"fred", "fred"});
    Type("Fred FRED %s\n", {"Fred", "FRED", "%s"});
    Type("no-such-user,0,björn\n", {"no-such-user", "0", "björn"});
}

TEST_P(ComputeServiceMembers, AZeroByteEndsTheAnswer) {
    Type(std::string("fred\0,gina\n", 11), {"fred"});
}

TEST_P(ComputeServiceMembers, TheRestOfALongLineGoesToThePause) {
    const std::string line = "fred," + std::string(1018, 'g');
    Ask({}, {"fred", QString(1018, 'g')},
        {{MembersQuestion(""), line + "ina,hugo\n"}, {MembersClosing(line) + Pause}});
}

TEST_P(ComputeServiceMembers, AnswersItselfInARunWithoutQuestions) {
    m_options = {"--cluster-node"};
    Ask({"dana", "erik"}, {"dana", "erik"},
        {{MembersQuestion("dana,erik") + "dana,erik\n" + MembersClosing("dana,erik")}});
    Ask({}, {}, {{MembersQuestion("") + "\n" + MembersClosing("")}});
}

TEST_P(ComputeServiceMembers, AClosedConsoleKeepsThePresentMembers) {
    Ask({"dana"}, {"dana"}, {{MembersQuestion("dana"), End}, {MembersClosing("dana") + Pause}});
}

TEST_P(ComputeServiceMembers, TakesALastAnswerWithoutALineEnd) {
    Ask({"dana"}, {"fred", "gina"},
        {{MembersQuestion("dana"), "fred,gina" + End}, {MembersClosing("fred,gina") + Pause}});
}

}  // namespace
}  // namespace hx_test
