// The question for the members of the service group.
#include "prompts/PromptTest.h"
#include "prompts/Texts.h"

namespace hx_test {
namespace {

class ComputeServiceMembers : public PromptTest {
protected:
    void Ask(const QStringList& present, const std::string& typed, const QStringList& expected) {
        SCOPED_TRACE(typed);
        const std::string offered = present.join(',').toStdString();
        const std::string closing = MembersClosing(expected.join(',').toStdString());
        // The rest of a long line answers the pause.
        const bool pauses = !typed.ends_with(End) && typed.size() <= 1023;
        std::vector<Turn> turns = {{MembersQuestion(offered), typed},
                                   {closing + Pause, pauses ? "\n" : ""}};
        if (typed.empty())
            turns = {{MembersQuestion(offered) + offered + "\n" + closing}};
        Converse(turns, [=](CInstallBase& run) {
            run.m_serviceCurrentMembers = present;
            run.m_serviceMembers = {"of", "before"};
            run.PromptComputeServiceGroupMembers();
            EXPECT_EQ(run.m_serviceMembers, expected);
            EXPECT_EQ(run.m_serviceCurrentMembers, present);
        });
    }
};
HX_OVER_BOTH_CONSOLES(ComputeServiceMembers);

TEST_P(ComputeServiceMembers, SplitsAnswerAtCommasAndSpaces) {
    const std::pair<std::string, QStringList> answers[] = {
        {"erik\n", {"erik"}},
        {"fred,gina\n", {"fred", "gina"}},
        {"fred, gina\n", {"fred", "gina"}},
        {"fred gina\n", {"fred", "gina"}},
        {" ,, fred , ,gina,  hugo,\n", {"fred", "gina", "hugo"}},
        {"fred\tgina\n", {"fred\tgina"}},
        {"\tfred;gina\t\n", {"fred;gina"}},
        {"fred,fred\n", {"fred", "fred"}},
        {"Fred FRED %s\n", {"Fred", "FRED", "%s"}},
        {"no-such-user,0,björn\n", {"no-such-user", "0", "björn"}},
        {"fred,gina" + End, {"fred", "gina"}},
        {std::string("fred\0,gina\n", 11), {"fred"}},
        {"fred," + std::string(1018, 'g') + "ina,hugo\n", {"fred", QString(1018, 'g')}}};
    for (const auto& [typed, expected] : answers)
        Ask({"dana", "erik"}, typed, expected);
}

TEST_P(ComputeServiceMembers, KeepsPresentMembersWithoutNames) {
    for (const std::string& typed : {std::string("\n"), std::string(",\n"), std::string(" , ,,\n"),
                                     std::string("   \n"), std::string("\t\n"), End}) {
        Ask({"dana", "erik"}, typed, {"dana", "erik"});
        Ask({}, typed, {});
    }
}

TEST_P(ComputeServiceMembers, KeepsPresentMembersWithoutInteraction) {
    m_options = {"--cluster-node"};
    Ask({"dana", "erik"}, "", {"dana", "erik"});
    Ask({}, "", {});
}

}  // namespace
}  // namespace hx_test
