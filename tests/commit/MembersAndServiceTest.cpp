// What only root's commit script has: the account, the members of its group and the service.
#include <gtest/gtest.h>

#include "commit/ScriptText.h"
#include "harness/Child.h"

using hx_test::Expected;
using hx_test::IsText;
using hx_test::RootScript;

namespace {

using Change = std::function<void(CInstallBase&)>;

std::string ScriptOf(CInstallBase& (*make)(), const Change& change) {
    return hx_test::ScriptOf([&]() -> CInstallBase& {
        CInstallBase& run = make();
        change(run);
        return run;
    });
}

// The expected script of a root run with this group of lines in the place of the members' one.
std::string RootScriptWithMembers(const std::string& lines) {
    const std::string full = Expected("commit_root.sh");
    const size_t begin = full.find("${ECHO_CMD} \"Adding/Removing users");
    const size_t end = full.find("CORV_INSTALL_DIR=");
    EXPECT_LT(begin, end);
    return full.substr(0, begin) + lines + full.substr(end);
}

// What stands between the two texts in the expected script of a root run, the first one included.
std::string RootLines(const std::string& from, const std::string& to) {
    const std::string full = Expected("commit_root.sh");
    const size_t begin = full.find(from);
    const size_t end = full.find(to, begin);
    EXPECT_NE(end, std::string::npos);
    return full.substr(begin, end - begin);
}

const std::string MembersTitle =
    "${ECHO_CMD} \"Adding/Removing users from the Corvane Compute Service Group\"\n";
const std::string EmptyLine = "${ECHO_CMD} \"\"\n";

TEST(MembersAndService, MembersWhoOnlyJoin) {
    HX_REQUIRE_NAMESPACES();
    const std::string script = RootScript(
        [](CInstallBase& run) { run.m_serviceCurrentMembers = {QStringLiteral("ada")}; });
    const std::string joining = RootLines("# Add users to", "# Remove users from");
    EXPECT_TRUE(IsText(script, RootScriptWithMembers(MembersTitle + joining + EmptyLine)));
}

TEST(MembersAndService, MembersWhoOnlyLeave) {
    HX_REQUIRE_NAMESPACES();
    const std::string script = RootScript([](CInstallBase& run) {
        run.m_serviceMembers = {QStringLiteral("ada"), QStringLiteral("ada"),
                                QStringLiteral("ada")};
    });
    const std::string leaving = RootLines("# Remove users from", "\n\n${ECHO_CMD} \"\"\n") + "\n\n";
    EXPECT_TRUE(IsText(script, RootScriptWithMembers(MembersTitle + leaving + EmptyLine)));
}

TEST(MembersAndService, WithoutChangesOfMembersTheirSectionIsAbsent) {
    HX_REQUIRE_NAMESPACES();
    EXPECT_TRUE(IsText(
        RootScript([](CInstallBase& run) { run.m_serviceMembers = run.m_serviceCurrentMembers; }),
        RootScriptWithMembers("")));
    // Fewer wanted names than present ones remove nobody.
    EXPECT_TRUE(IsText(
        RootScript([](CInstallBase& run) { run.m_serviceMembers = {QStringLiteral("ada")}; }),
        RootScriptWithMembers("")));
}

TEST(MembersAndService, OnlyAnExternalQueueGivesTheServiceUserALoginShell) {
    HX_REQUIRE_NAMESPACES();
    const auto shellWith = [](int type) {
        const std::string script = RootScript([&](CInstallBase& run) { run.m_queueType = type; });
        const size_t begin = script.find("--shell \"");
        return script.substr(begin, script.find(" ${", begin) - begin);
    };
    EXPECT_EQ(shellWith(2), "--shell \"/bin/bash\"");
    for (const int type : {0, 1, 3, 4, -1})
        EXPECT_EQ(shellWith(type), "--shell \"/sbin/nologin\"") << type;
}

TEST(MembersAndService, AUserRunHasNoAccountNoMembersAndNoService) {
    HX_REQUIRE_NAMESPACES();
    for (const bool clusterNode : {false, true}) {
        const std::string script = ScriptOf(hx_test::NewUserRun, [&](CInstallBase& run) {
            run.m_clusterNode = clusterNode;
            run.m_serviceMembers = {QStringLiteral("ada")};
        });
        EXPECT_TRUE(script.ends_with("\nexit 0\n"));
        for (const char* word : {"USERADD_CMD", "CORV_SERVICE_MEMBERS", "corvane26_service"})
            EXPECT_EQ(script.find(word), std::string::npos) << word;
    }
}

}  // namespace
