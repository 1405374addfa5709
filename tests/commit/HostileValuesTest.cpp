// Values that would change the meaning of a script line: refusing them is the caller's part. The
// writer hands each on as the field holds it.
#include <gtest/gtest.h>

#include "commit/ScriptText.h"
#include "harness/Child.h"

using hx_test::Expected;
using hx_test::IsText;
using hx_test::Replaced;
using hx_test::RootScript;

namespace {

// Everything that means something to a shell or to sed.
const std::string Hostile = "/x\" $(touch /owned) `touch /owned` ${IFS}\\ ; rm -rf / # | & ' \n\t*";

TEST(HostileValues, TheScratchDirectory) {
    HX_REQUIRE_NAMESPACES();
    EXPECT_TRUE(IsText(
        RootScript([](CInstallBase& run) { run.m_scratchDir = QString::fromStdString(Hostile); }),
        Replaced(Expected("commit_root.sh"), "Scratch: /scratch/corvane", "Scratch: " + Hostile)));
}

TEST(HostileValues, TheDirectories) {
    HX_REQUIRE_NAMESPACES();
    const std::string script = RootScript([](CInstallBase& run) {
        run.m_installDir = QString::fromStdString(Hostile);
        run.m_binariesDir = QString::fromStdString(Hostile);
    });
    std::string expected = Expected("commit_root.sh");
    expected = Replaced(expected, "INSTALL_DIR=\"/var/corvane\"", "INSTALL_DIR=\"" + Hostile + '"');
    expected =
        Replaced(expected, "BINARIES_DIR=\"/opt/corvane26\"", "BINARIES_DIR=\"" + Hostile + '"');
    EXPECT_TRUE(IsText(script, expected));
}

struct Field {
    QString CInstallBase::*member;
    std::string text;  // where its value stands, as %
};

TEST(HostileValues, TheRunScriptsVariables) {
    HX_REQUIRE_NAMESPACES();
    const std::pair<Field, std::string> fields[] = {
        {{&CInstallBase::m_scheduler, "CORV_SCHEDULER=\"%\"\n"}, "TORQUE"},
        {{&CInstallBase::m_qsubCmd, "CORV_QSUB_CMD=\"%\"\n"}, "/opt/pbs/bin/qsub"},
        {{&CInstallBase::m_scancelCmd, "CORV_SCANCEL_CMD=\"%\"\n"}, "/usr/bin/scancel"},
        {{&CInstallBase::m_compSrvcAllow, "CORV_COMPSRVC_ALLOW=\"%\"\n"}, "HTTP"},
        {{&CInstallBase::m_compSrvcHttpAddr, "CORV_COMPSRVC_HTTP_ADDR=\"%\"\n"}, "10.0.0.1"},
        {{&CInstallBase::m_compSrvcKey, "CORV_COMPSRVC_KEY=\"%\"\n"}, "key.pem"},
    };
    for (const auto& [field, value] : fields) {
        const auto member = field.member;
        const auto line = [text = field.text](const std::string& with) {
            return Replaced(text, "%", with);
        };
        EXPECT_TRUE(IsText(
            RootScript([&](CInstallBase& run) { run.*member = QString::fromStdString(Hostile); }),
            Replaced(Expected("commit_root.sh"), line(value), line(Hostile))))
            << field.text;
    }
}

TEST(HostileValues, TheMembersOfTheGroup) {
    HX_REQUIRE_NAMESPACES();
    const std::string script = RootScript([](CInstallBase& run) {
        run.m_serviceMembers[1] = QString::fromStdString(Hostile);
        run.m_serviceCurrentMembers[1] = QStringLiteral("$(touch /owned)");
    });
    std::string expected = Expected("commit_root.sh");
    expected = Replaced(expected, "MEMBERS=\"carol dora\"", "MEMBERS=\"" + Hostile + " dora\"");
    expected = Replaced(expected, "MEMBERS=\"bob zoe\"", "MEMBERS=\"$(touch /owned) zoe\"");
    EXPECT_TRUE(IsText(script, expected));
}

// The account's names stand unquoted, in their variables and in the owner lines.
TEST(HostileValues, TheServiceAccount) {
    HX_REQUIRE_NAMESPACES();
    const std::string user = "chem;touch /owned";
    const std::string group = "$(touch /owned) \"";
    const std::string script = RootScript([&](CInstallBase& run) {
        run.m_serviceUser = QString::fromStdString(user);
        run.m_serviceGroup = QString::fromStdString(group);
    });
    std::string expected = Expected("commit_root.sh");
    expected = Replaced(expected, "SRVC_USER=chemuser\n", "SRVC_USER=" + user + '\n');
    expected = Replaced(expected, "SRVC_GROUP=chemgroup\n", "SRVC_GROUP=" + group + '\n');
    expected = Replaced(expected, "SRVC_USER=\"chemuser\"", "SRVC_USER=\"" + user + '"');
    expected = Replaced(expected, "SRVC_GROUP=\"chemgroup\"", "SRVC_GROUP=\"" + group + '"');
    const std::string owner = "chemuser:chemgroup";
    for (size_t at = 0; (at = expected.find(owner, at)) != std::string::npos;)
        expected.replace(at, owner.size(), user + ':' + group);
    EXPECT_TRUE(IsText(script, expected));
}

}  // namespace
