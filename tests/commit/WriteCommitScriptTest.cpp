// The commit script byte for byte, as the fields of the run and the release of the system choose
// it.
#include <gtest/gtest.h>

#include "commit/ScriptText.h"
#include "harness/Child.h"

using hx_test::DebianRelease;
using hx_test::Expected;
using hx_test::IsText;
using hx_test::NewRootRun;
using hx_test::NewUserRun;
using hx_test::Replaced;
using hx_test::RootScript;
using hx_test::ScriptOf;

namespace {

using Change = std::function<void(CInstallBase&)>;

std::string UserScript(const Change& change) {
    return ScriptOf([&]() -> CInstallBase& {
        CInstallBase& run = NewUserRun();
        change(run);
        return run;
    });
}

TEST(WriteCommitScript, ARootRunWithTheInternalQueue) {
    HX_REQUIRE_NAMESPACES();
    EXPECT_TRUE(IsText(ScriptOf(NewRootRun), Expected("commit_root.sh")));
}

TEST(WriteCommitScript, ARootRunOnAClusterNode) {
    HX_REQUIRE_NAMESPACES();
    EXPECT_TRUE(IsText(RootScript([](CInstallBase& run) {
                           run.m_clusterNode = true;
                           run.m_serviceMembers.clear();
                           run.m_serviceCurrentMembers.clear();
                       }),
                       Expected("commit_root_cluster_node.sh")));
}

TEST(WriteCommitScript, AUserRunWithAnExternalQueue) {
    HX_REQUIRE_NAMESPACES();
    EXPECT_TRUE(IsText(ScriptOf(NewUserRun), Expected("commit_user.sh")));
}

TEST(WriteCommitScript, EveryAccessValueButOneIsAUserRun) {
    HX_REQUIRE_NAMESPACES();
    for (const int access : {0, 3, 4, 5, 6, -1}) {
        EXPECT_TRUE(IsText(UserScript([&](CInstallBase& run) { run.m_accessFlags = access; }),
                           Expected("commit_user.sh")))
            << access;
    }
}

TEST(WriteCommitScript, AUserRunOnAClusterNodeLeavesTheServerFilesOut) {
    HX_REQUIRE_NAMESPACES();
    const std::string full = Expected("commit_user.sh");
    const size_t begin = full.find("if [ ! -d \"${CORV_INSTALL_DIR}/corvanerc/corvane26server/res");
    const size_t end = full.find("\n# Write the Corvane'26 run script...");
    ASSERT_LT(begin, end);
    EXPECT_TRUE(
        IsText(UserScript([](CInstallBase& run) { run.m_clusterNode = true; }),
               Replaced(full.substr(0, begin) + full.substr(end), "NODE=\"NO\"", "NODE=\"YES\"")));
}

std::string UserScriptWithQueueLines(const std::string& lines) {
    return Replaced(Expected("commit_user.sh"),
                    "CORV_QUEUE_TYPE=\"EXTERNAL\"\nCORV_QUEUE_NAME=\"chemq\"\n\n"
                    "CORV_PARTITION_NAME=\"compute\"\n\n",
                    lines);
}

TEST(WriteCommitScript, OnlyAnExternalQueueHasNames) {
    HX_REQUIRE_NAMESPACES();
    const std::string noNames = "\nCORV_QUEUE_NAME=\"\"\n\nCORV_PARTITION_NAME=\"\"\n\n";
    const std::pair<int, std::string> types[] = {
        {1, "\"INTERNAL\""}, {3, "\"NONE\""}, {0, "\"\""}, {4, "\"\""}, {-1, "\"\""}};
    for (const auto& [number, name] : types) {
        const int type = number;
        EXPECT_TRUE(IsText(UserScript([&](CInstallBase& run) { run.m_queueType = type; }),
                           UserScriptWithQueueLines("CORV_QUEUE_TYPE=" + name + noNames)))
            << type;
    }
}

TEST(WriteCommitScript, AnExternalQueueWithoutNamesTakesTheEmptyForms) {
    HX_REQUIRE_NAMESPACES();
    EXPECT_TRUE(
        IsText(UserScript([](CInstallBase& run) { run.m_queueName.clear(); }),
               UserScriptWithQueueLines("CORV_QUEUE_TYPE=\"EXTERNAL\"\nCORV_QUEUE_NAME=\"\"\n\n"
                                        "CORV_PARTITION_NAME=\"compute\"\n\n")));
    EXPECT_TRUE(IsText(
        UserScript([](CInstallBase& run) { run.m_partitionName.clear(); }),
        UserScriptWithQueueLines("CORV_QUEUE_TYPE=\"EXTERNAL\"\nCORV_QUEUE_NAME=\"chemq\"\n\n"
                                 "CORV_PARTITION_NAME=\"\"\n\n")));
}

TEST(WriteCommitScript, SlurmWithItsPartition) {
    HX_REQUIRE_NAMESPACES();
    const std::string script = UserScript([](CInstallBase& run) {
        run.m_scheduler = QStringLiteral("SLURM");
        run.m_queueName.clear();
        run.m_partitionName = QStringLiteral("long");
        run.m_sbatchCmd = QStringLiteral("/opt/slurm/bin/sbatch");
        run.m_scancelCmd = QStringLiteral("/opt/slurm/bin/scancel");
    });
    std::string expected = UserScriptWithQueueLines(
        "CORV_QUEUE_TYPE=\"EXTERNAL\"\nCORV_QUEUE_NAME=\"\"\n\nCORV_PARTITION_NAME=\"long\"\n\n");
    expected = Replaced(expected, "\"TORQUE\"", "\"SLURM\"");
    expected = Replaced(expected, "/usr/bin/sbatch", "/opt/slurm/bin/sbatch");
    expected = Replaced(expected, "/usr/bin/scancel", "/opt/slurm/bin/scancel");
    EXPECT_TRUE(IsText(script, expected));
}

// The lines of the six optional fields, in their order.
const std::pair<QString CInstallBase::*, std::string> OptionalLines[] = {
    {&CInstallBase::m_scheduler, "CORV_SCHEDULER=\"TORQUE\"\n"},
    {&CInstallBase::m_qsubCmd, "CORV_QSUB_CMD=\"/opt/pbs/bin/qsub\"\n"},
    {&CInstallBase::m_qdelCmd, "CORV_QDEL_CMD=\"/opt/pbs/bin/qdel\"\n"},
    {&CInstallBase::m_qsigCmd, "CORV_QSIG_CMD=\"/opt/pbs/bin/qsig\"\n"},
    {&CInstallBase::m_sbatchCmd, "CORV_SBATCH_CMD=\"/usr/bin/sbatch\"\n"},
    {&CInstallBase::m_scancelCmd, "CORV_SCANCEL_CMD=\"/usr/bin/scancel\"\n"}};

TEST(WriteCommitScript, AnEmptyOptionalFieldLeavesItsLineOut) {
    HX_REQUIRE_NAMESPACES();
    for (const auto& [member, line] : OptionalLines) {
        const auto field = member;
        EXPECT_TRUE(IsText(UserScript([&](CInstallBase& run) { (run.*field).clear(); }),
                           Replaced(Expected("commit_user.sh"), line, "")))
            << line;
    }
}

TEST(WriteCommitScript, AllOptionalFieldsEmptyWithEveryQueueType) {
    HX_REQUIRE_NAMESPACES();
    for (const int type : {0, 1, 2, 3}) {
        const std::string script = RootScript([&](CInstallBase& run) {
            run.m_queueType = type;
            for (const auto& [field, line] : OptionalLines)
                (run.*field).clear();
        });
        std::string expected = Expected("commit_root.sh");
        for (const auto& [field, line] : OptionalLines)
            expected = Replaced(expected, line, "");
        const std::string names[] = {"", "INTERNAL", "EXTERNAL", "NONE"};
        expected = Replaced(expected, "TYPE=\"INTERNAL\"", "TYPE=\"" + names[type] + "\"");
        if (type == CInstallBase::QueueExternal) {
            expected = Replaced(expected, "QUEUE_NAME=\"\"", "QUEUE_NAME=\"chemq\"");
            expected = Replaced(expected, "PARTITION_NAME=\"\"", "PARTITION_NAME=\"compute\"");
            expected = Replaced(expected, "--shell \"/sbin/nologin\"", "--shell \"/bin/bash\"");
        }
        EXPECT_TRUE(IsText(script, expected)) << type;
    }
}

TEST(WriteCommitScript, ThreadsPerMoleculeNeedsThePreviousJobLimitAndAValueAboveZero) {
    HX_REQUIRE_NAMESPACES();
    const std::string line =
        "${ECHO_CMD} \"ThreadsPerMolecule: 4\" >>\"${CORV_INSTALL_DIR}/QueueLimits\"\n";
    const std::string without = Replaced(Expected("commit_root.sh"), line, "");
    EXPECT_TRUE(IsText(RootScript([](CInstallBase& run) { run.m_prevJobLimit = 11; }), without));
    EXPECT_TRUE(IsText(RootScript([](CInstallBase& run) { run.m_prevJobLimit = -1; }), without));
    EXPECT_TRUE(
        IsText(RootScript([](CInstallBase& run) { run.m_threadsPerMolecule = 0; }), without));
    EXPECT_TRUE(
        IsText(RootScript([](CInstallBase& run) { run.m_threadsPerMolecule = -4; }), without));
    EXPECT_TRUE(IsText(
        RootScript([](CInstallBase& run) { run.m_threadsPerMolecule = 1; }),
        Replaced(Expected("commit_root.sh"), "ThreadsPerMolecule: 4", "ThreadsPerMolecule: 1")));
}

const std::string PackageTools = "DPKG_CMD=/usr/bin/dpkg\nDPKG_QUERY_CMD=/usr/bin/dpkg-query\n";

TEST(WriteCommitScript, AnRpmSystemHasItsOwnPackageTool) {
    HX_REQUIRE_NAMESPACES();
    EXPECT_TRUE(IsText(ScriptOf(NewRootRun, hx_test::RpmRelease),
                       Replaced(Expected("commit_root.sh"), PackageTools, "RPM_CMD=/bin/rpm\n")));
    EXPECT_TRUE(IsText(ScriptOf(NewUserRun, hx_test::RpmRelease),
                       Replaced(Expected("commit_user.sh"), PackageTools, "RPM_CMD=/bin/rpm\n")));
}

TEST(WriteCommitScript, ASystemOfNeitherFamilyHasNoPackageTool) {
    HX_REQUIRE_NAMESPACES();
    EXPECT_TRUE(IsText(ScriptOf(NewRootRun, hx_test::OtherRelease),
                       Replaced(Expected("commit_root.sh"), PackageTools, "")));
}

TEST(WriteCommitScript, RpmIsAskedFirst) {
    HX_REQUIRE_NAMESPACES();
    EXPECT_TRUE(IsText(ScriptOf(NewRootRun, "ID=both\nID_LIKE=\"debian fedora\"\n"),
                       Replaced(Expected("commit_root.sh"), PackageTools, "RPM_CMD=/bin/rpm\n")));
}

TEST(WriteCommitScript, ValuesStandInItAsTheFieldsHoldThem) {
    HX_REQUIRE_NAMESPACES();
    const std::string script = RootScript([](CInstallBase& run) {
        run.m_installDir = QStringLiteral("/var/cor vane 100%s");
        run.m_binariesDir = QStringLiteral("/opt/größe %d%%");
        run.m_scratchDir = QStringLiteral("/scratch/été \"$HOME\" %n");
        run.m_serviceGroup = QStringLiteral("group%s");
        run.m_compSrvcCert = QStringLiteral("cert für %x.pem");
        run.m_qsubCmd = QStringLiteral("/opt/my qsub|&\\");
    });
    std::string expected = Expected("commit_root.sh");
    expected = Replaced(expected, "DIR=\"/var/corvane\"", "DIR=\"/var/cor vane 100%s\"");
    expected = Replaced(expected, "DIR=\"/opt/corvane26\"", "DIR=\"/opt/größe %d%%\"");
    expected = Replaced(expected, "/scratch/corvane", "/scratch/été \"$HOME\" %n");
    expected = Replaced(expected, "SRVC_GROUP=chemgroup", "SRVC_GROUP=group%s");
    expected = Replaced(expected, "SRVC_GROUP=\"chemgroup\"", "SRVC_GROUP=\"group%s\"");
    expected = Replaced(expected, "cert.pem", "cert für %x.pem");
    expected = Replaced(expected, "/opt/pbs/bin/qsub", "/opt/my qsub|&\\");
    for (size_t at = 0; (at = expected.find("chemuser:chemgroup", at)) != std::string::npos;)
        expected.replace(at, 18, "chemuser:group%s");
    EXPECT_TRUE(IsText(script, expected));
}

TEST(WriteCommitScript, EmptyValuesLeaveNothingBetweenTheirQuotes) {
    HX_REQUIRE_NAMESPACES();
    const std::string script = UserScript([](CInstallBase& run) {
        for (QString* field :
             {&run.m_serviceGroup, &run.m_serviceUser, &run.m_installDir, &run.m_binariesDir,
              &run.m_compSrvcAllow, &run.m_compSrvcHttpAddr, &run.m_compSrvcHttpsAddr,
              &run.m_compSrvcCert, &run.m_compSrvcKey, &run.m_compSrvcDh, &run.m_scratchDir})
            field->clear();
    });
    std::string expected = Expected("commit_user.sh");
    const std::string values[] = {"\"chemgroup\"", "\"chemuser\"", "\"HTTP\"",    "\"10.0.0.1\"",
                                  "\"10.0.0.2\"",  "\"cert.pem\"", "\"key.pem\"", "\"dh.pem\""};
    for (const auto& value : values)
        expected = Replaced(expected, value, "\"\"");
    expected = Replaced(expected, "GROUP=chemgroup", "GROUP=");
    expected = Replaced(expected, "USER=chemuser", "USER=");
    expected = Replaced(expected, "INSTALL_DIR=\"/home/ada/corvane\"", "INSTALL_DIR=\"\"");
    expected = Replaced(expected, "BINARIES_DIR=\"/home/ada/corvane\"", "BINARIES_DIR=\"\"");
    expected = Replaced(expected, "Scratch: /scratch/corvane", "Scratch: ");
    EXPECT_TRUE(IsText(script, expected));
}

TEST(WriteCommitScript, NumbersPrintInDecimal) {
    HX_REQUIRE_NAMESPACES();
    const std::string script = UserScript([](CInstallBase& run) {
        run.m_compSrvcHttpPort = 0;
        run.m_compSrvcHttpsPort = -1;
        run.m_jobLimit = 2147483647;
        run.m_memoryLimitMB = -5;
        run.m_scratchLimitGB = 0;
    });
    std::string expected = Expected("commit_user.sh");
    expected = Replaced(expected, "\"8080\"", "\"0\"");
    expected = Replaced(expected, "\"8443\"", "\"-1\"");
    expected = Replaced(expected, "MaxThreads: 12", "MaxThreads: 2147483647");
    expected = Replaced(expected, "ThreadMB: 2048", "ThreadMB: -5");
    expected = Replaced(expected, "ThreadGB: 50", "ThreadGB: 0");
    EXPECT_TRUE(IsText(script, expected));
}

}  // namespace
