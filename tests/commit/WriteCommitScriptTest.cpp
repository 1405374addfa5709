// The text of the commit script for the fields of the run and the release of the system.
#include <gtest/gtest.h>

#include "commit/ScriptText.h"

using hx_test::Change;
using hx_test::Edit;
using hx_test::Edited;
using hx_test::Edits;
using hx_test::IsText;
using hx_test::ScriptOf;
using hx_test::Section;

namespace {

class WriteCommitScript : public testing::Test {
protected:
    void SetUp() override { HX_REQUIRE_NAMESPACES(); }

    static void ExpectRoot(const Change& change, const Edits& edits,
                           const std::string& release = "ID=debian\n") {
        EXPECT_TRUE(IsText(ScriptOf(hx_test::NewRootRun, change, release),
                           Edited(hx_test::ExpectedRootScript(), edits)));
    }

    static void ExpectUser(const Change& change, const Edits& edits,
                           const std::string& release = "ID=debian\n") {
        Edits all = hx_test::UserEdits();
        all.insert(all.end(), edits.begin(), edits.end());
        EXPECT_TRUE(IsText(ScriptOf(hx_test::NewUserRun, change, release),
                           Edited(hx_test::ExpectedRootScript(), all)));
    }
};

void Unchanged(CInstallBase& /*run*/) {}

template <typename Value>
struct FieldCase {
    Value CInstallBase::*field;
    Value value;
    Edits edits = {};
};

template <typename Value>
Change Setting(const FieldCase<Value>& change) {
    return [&](CInstallBase& run) { run.*change.field = change.value; };
}

using NumberCase = FieldCase<int>;
using TextCase = FieldCase<QString>;

TEST_F(WriteCommitScript, HasAllSectionsAsRoot) {
    ExpectRoot(Unchanged, {});
}

TEST_F(WriteCommitScript, OmitsRootSectionsAsUser) {
    ExpectUser(Unchanged, {});
    ExpectUser([](CInstallBase& run) { run.m_serviceMembers = {QStringLiteral("ada")}; }, {});
    for (const int access : {0, 3, 4, 5, 6, -1})
        ExpectUser([&](CInstallBase& run) { run.m_accessFlags = access; }, {});
}

TEST_F(WriteCommitScript, OmitsWebPagesAndServiceOnComputeNode) {
    ExpectRoot(
        [](CInstallBase& run) {
            run.m_clusterNode = true;
            run.m_serviceMembers.clear();
            run.m_serviceCurrentMembers.clear();
        },
        hx_test::ComputeNodeEdits());
    ExpectUser([](CInstallBase& run) { run.m_clusterNode = true; },
               {hx_test::NoWebPages(), {"CLUSTER_NODE=\"NO\"", "CLUSTER_NODE=\"YES\""}});
}

TEST_F(WriteCommitScript, SetsPackageToolsOfRelease) {
    const std::string debian = "DPKG_CMD=/usr/bin/dpkg\nDPKG_QUERY_CMD=/usr/bin/dpkg-query\n";
    const Edits rpm = {{debian, "RPM_CMD=/bin/rpm\n"}};
    ExpectRoot(Unchanged, rpm, "ID=fedora\n");
    ExpectUser(Unchanged, rpm, "ID=fedora\n");
    ExpectRoot(Unchanged, rpm, "ID=both\nID_LIKE=\"debian fedora\"\n");
    ExpectRoot(Unchanged, {{debian, ""}}, "ID=slackware\n");
}

TEST_F(WriteCommitScript, WritesShellAndNamesForExternalQueueOnly) {
    const std::string type = "QUEUE_TYPE=\"INTERNAL\"";
    const NumberCase cases[] = {{&CInstallBase::m_queueType, 0, {{type, "QUEUE_TYPE=\"\""}}},
                                {&CInstallBase::m_queueType, 1},
                                {&CInstallBase::m_queueType,
                                 2,
                                 {{type, "QUEUE_TYPE=\"EXTERNAL\""},
                                  {"QUEUE_NAME=\"\"", "QUEUE_NAME=\"chemq\""},
                                  {"PARTITION_NAME=\"\"", "PARTITION_NAME=\"compute\""},
                                  {"--shell \"/sbin/nologin\"", "--shell \"/bin/bash\""}}},
                                {&CInstallBase::m_queueType, 3, {{type, "QUEUE_TYPE=\"NONE\""}}},
                                {&CInstallBase::m_queueType, 4, {{type, "QUEUE_TYPE=\"\""}}},
                                {&CInstallBase::m_queueType, -1, {{type, "QUEUE_TYPE=\"\""}}}};
    for (const NumberCase& test : cases)
        ExpectRoot(Setting(test), test.edits);
    ExpectUser([](CInstallBase& run) { run.m_queueType = CInstallBase::QueueInternal; },
               {{"QUEUE_TYPE=\"EXTERNAL\"", "QUEUE_TYPE=\"INTERNAL\""},
                {"QUEUE_NAME=\"chemq\"", "QUEUE_NAME=\"\""},
                {"PARTITION_NAME=\"compute\"", "PARTITION_NAME=\"\""}});
}

TEST_F(WriteCommitScript, WritesTextFields) {
    const TextCase cases[] = {
        {&CInstallBase::m_queueName, "", {{"QUEUE_NAME=\"chemq\"", "QUEUE_NAME=\"\""}}},
        {&CInstallBase::m_partitionName, "long", {{"\"compute\"", "\"long\""}}},
        {&CInstallBase::m_partitionName, "", {{"\"compute\"", "\"\""}}},
        {&CInstallBase::m_scheduler, "SLURM", {{"\"TORQUE\"", "\"SLURM\""}}},
        {&CInstallBase::m_sbatchCmd, "/opt/sbatch", {{"/usr/bin/sbatch", "/opt/sbatch"}}},
        {&CInstallBase::m_scancelCmd, "/opt/scancel", {{"/usr/bin/scancel", "/opt/scancel"}}},
        {&CInstallBase::m_serviceGroup,
         "",
         {{"GROUP=chemgroup", "GROUP="}, {"GROUP=\"chemgroup\"", "GROUP=\"\""}}},
        {&CInstallBase::m_serviceUser,
         "",
         {{"USER=chemuser", "USER="}, {"USER=\"chemuser\"", "USER=\"\""}}},
        {&CInstallBase::m_installDir,
         "",
         {{"INSTALL_DIR=\"/home/ada/corvane\"", "INSTALL_DIR=\"\""}}},
        {&CInstallBase::m_binariesDir,
         "",
         {{"BINARIES_DIR=\"/home/ada/corvane\"", "BINARIES_DIR=\"\""}}},
        {&CInstallBase::m_compSrvcAllow, "", {{"\"HTTP\"", "\"\""}}},
        {&CInstallBase::m_compSrvcHttpAddr, "", {{"\"10.0.0.1\"", "\"\""}}},
        {&CInstallBase::m_compSrvcHttpsAddr, "", {{"\"10.0.0.2\"", "\"\""}}},
        {&CInstallBase::m_compSrvcCert, "", {{"\"cert.pem\"", "\"\""}}},
        {&CInstallBase::m_compSrvcKey, "", {{"\"key.pem\"", "\"\""}}},
        {&CInstallBase::m_compSrvcDh, "", {{"\"dh.pem\"", "\"\""}}},
        {&CInstallBase::m_scratchDir, "", {{"Scratch: /scratch/corvane", "Scratch: "}}}};
    for (const TextCase& test : cases)
        ExpectUser(Setting(test), test.edits);
}

TEST_F(WriteCommitScript, OmitsLinesOfEmptyOptionalFields) {
    const TextCase cases[] = {
        {&CInstallBase::m_scheduler, "", {{"CORV_SCHEDULER=\"TORQUE\"\n", ""}}},
        {&CInstallBase::m_qsubCmd, "", {{"CORV_QSUB_CMD=\"/opt/pbs/bin/qsub\"\n", ""}}},
        {&CInstallBase::m_qdelCmd, "", {{"CORV_QDEL_CMD=\"/opt/pbs/bin/qdel\"\n", ""}}},
        {&CInstallBase::m_qsigCmd, "", {{"CORV_QSIG_CMD=\"/opt/pbs/bin/qsig\"\n", ""}}},
        {&CInstallBase::m_sbatchCmd, "", {{"CORV_SBATCH_CMD=\"/usr/bin/sbatch\"\n", ""}}},
        {&CInstallBase::m_scancelCmd, "", {{"CORV_SCANCEL_CMD=\"/usr/bin/scancel\"\n", ""}}}};
    Edits all;
    for (const TextCase& test : cases) {
        ExpectUser(Setting(test), test.edits);
        all.push_back(test.edits.front());
    }
    ExpectRoot(
        [&](CInstallBase& run) {
            for (const TextCase& test : cases)
                (run.*test.field).clear();
        },
        all);
}

TEST_F(WriteCommitScript, WritesNumbersInDecimal) {
    const NumberCase cases[] = {
        {&CInstallBase::m_compSrvcHttpPort, 0, {{"\"8080\"", "\"0\""}}},
        {&CInstallBase::m_compSrvcHttpsPort, -1, {{"\"8443\"", "\"-1\""}}},
        {&CInstallBase::m_jobLimit, 2147483647, {{"MaxThreads: 12", "MaxThreads: 2147483647"}}},
        {&CInstallBase::m_memoryLimitMB, -5, {{"ThreadMB: 2048", "ThreadMB: -5"}}},
        {&CInstallBase::m_scratchLimitGB, 0, {{"ThreadGB: 50", "ThreadGB: 0"}}}};
    for (const NumberCase& test : cases)
        ExpectUser(Setting(test), test.edits);
}

TEST_F(WriteCommitScript, KeepsThreadsPerMoleculeForSameJobLimitOnly) {
    const Edits none = {{Section("${ECHO_CMD} \"ThreadsPerMolecule", "${CHMOD_CMD} 664"), ""}};
    const NumberCase cases[] = {
        {&CInstallBase::m_prevJobLimit, 11, none},
        {&CInstallBase::m_prevJobLimit, -1, none},
        {&CInstallBase::m_threadsPerMolecule, 0, none},
        {&CInstallBase::m_threadsPerMolecule, -4, none},
        {&CInstallBase::m_threadsPerMolecule, 1, {{"PerMolecule: 4", "PerMolecule: 1"}}}};
    for (const NumberCase& test : cases)
        ExpectRoot(Setting(test), test.edits);
}

TEST_F(WriteCommitScript, WritesChangesOfMembers) {
    const std::string joining = Section("# Add users to", "# Remove users from");
    const std::string leaving = Section("# Remove users from", "${ECHO_CMD} \"\"\nCORV_INSTALL");
    struct {
        QStringList wanted;
        QStringList current;
        Edit edit;
    } const cases[] = {{{"ada", "carol", "dora"}, {"ada"}, {leaving, ""}},
                       {{"ada", "ada", "ada"}, {"ada", "bob", "zoe"}, {joining, ""}},
                       {{"ada", "bob"}, {"ada", "bob"}, hx_test::NoMembers()},
                       {{"ada"}, {"ada", "bob", "zoe"}, hx_test::NoMembers()}};
    for (const auto& test : cases) {
        ExpectRoot(
            [&](CInstallBase& run) {
                run.m_serviceMembers = test.wanted;
                run.m_serviceCurrentMembers = test.current;
            },
            {test.edit});
    }
}

// Values with a meaning to a shell, to sed, or to printf. Rejecting them is the caller's task.
TEST_F(WriteCommitScript, DoesNotQuoteValues) {
    const std::string hostile =
        "/x\" $(touch /owned) `touch /owned` ${IFS}\\ ; rm -rf / # | & ' \n\t* größe 100%s %n %%";
    const QString value = QString::fromStdString(hostile);
    const auto edit = [&](const std::string& before, const std::string& old) {
        return Edits{{before + old, before + hostile}};
    };
    const TextCase cases[] = {
        {&CInstallBase::m_scratchDir, value, edit("Scratch: ", "/scratch/corvane")},
        {&CInstallBase::m_installDir, value, edit("INSTALL_DIR=\"", "/var/corvane")},
        {&CInstallBase::m_binariesDir, value, edit("BINARIES_DIR=\"", "/opt/corvane26")},
        {&CInstallBase::m_scheduler, value, edit("SCHEDULER=\"", "TORQUE")},
        {&CInstallBase::m_qsubCmd, value, edit("QSUB_CMD=\"", "/opt/pbs/bin/qsub")},
        {&CInstallBase::m_scancelCmd, value, edit("SCANCEL_CMD=\"", "/usr/bin/scancel")},
        {&CInstallBase::m_compSrvcAllow, value, edit("ALLOW=\"", "HTTP")},
        {&CInstallBase::m_compSrvcHttpAddr, value, edit("HTTP_ADDR=\"", "10.0.0.1")},
        {&CInstallBase::m_compSrvcKey, value, edit("KEY=\"", "key.pem")},
        {&CInstallBase::m_serviceUser, value, {{"chemuser", hostile, 12}}},
        {&CInstallBase::m_serviceGroup, value, {{"chemgroup", hostile, 12}}}};
    for (const TextCase& test : cases)
        ExpectRoot(Setting(test), test.edits);
    ExpectRoot(
        [&](CInstallBase& run) {
            run.m_serviceMembers[1] = value;
            run.m_serviceCurrentMembers[1] = QStringLiteral("$(touch /owned)");
        },
        {{"MEMBERS=\"carol dora\"", "MEMBERS=\"" + hostile + " dora\""},
         {"MEMBERS=\"bob zoe\"", "MEMBERS=\"$(touch /owned) zoe\""}});
}

}  // namespace
