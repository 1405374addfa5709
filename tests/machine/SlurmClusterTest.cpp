// Setups by root on a real cluster: what the run script exports runs and cancels jobs, and a
// roll-out over the nodes.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "harness/TempDir.h"
#include "machine/SlurmCluster.h"
#include "machine/ThrowawayMachine.h"

namespace {

using hx_test::SlurmCluster;
using hx_test::ThrowawayMachine;

// Stands in for the application's program of jobs: submits with what the run script exports.
constexpr const char* jobProgram = R"sh(#!/bin/sh
case "$CORV_QUEUE_TYPE:$CORV_SCHEDULER:$1" in
EXTERNAL:SLURM:-u)
    exec "$CORV_SBATCH_CMD" --parsable --partition="$CORV_PARTITION_NAME" --chdir="$3" "$2";;
EXTERNAL:SLURM:--process-commands) exec "$CORV_SCANCEL_CMD" "$2";;
EXTERNAL:TORQUE:-u) exec "$CORV_QSUB_CMD" -q "$CORV_QUEUE_NAME" -wd "$3" -o torque.out "$2";;
EXTERNAL:TORQUE:--process-commands) exec "$CORV_QDEL_CMD" "$2";;
esac
exit 9
)sh";

// Submits a job as soon as it runs, and stays.
constexpr const char* serviceProgram = R"sh(#!/bin/sh
cd /srv/service || exit
"$CORV_SUBMIT/cv_spd" -u /srv/jobs/short.sh "$PWD" > submitted.new 2>&1
mv submitted.new submitted
exec sleep infinity
)sh";

// The last two lines: as the head exported it, and as the run script of the node does.
constexpr const char* shortJob = R"sh(#!/bin/sh
id -un
echo "$HOME"
echo "$CORV_CLUSTER_NODE"
corvane26 --printenv CORV_CLUSTER_NODE
)sh";

// As the manual shows them.
constexpr const char* serviceGroup = "groupadd --system --gid 626 corvsrvc";
constexpr const char* serviceUser =
    "useradd --system --uid 626 --gid 626 --home-dir /var/corvane --shell /bin/bash corvsrvc";
constexpr const char* rollOut =
    "srun --nodes=3 --ntasks-per-node=1 --exclusive --label "
    "/opt/corvane26/cv_install --setup --cluster-node";
constexpr const char* slurmSetup = "/opt/corvane26/cv_install --setup --yes -p chem";
constexpr const char* answeredSlurmSetup =
    "printf '%s\\n' '' '' '' '' '' '' '' 2 2 chem /usr/bin/sbatch '' '' '' '' y | "
    "/opt/corvane26/cv_install --setup";
constexpr const char* torqueSetup =
    "printf '%s\\n' '' '' '' '' '' '' '' 2 1 chem /usr/bin/qsub '' '' '' '' '' y | "
    "/opt/corvane26/cv_install --setup";
constexpr const char* slurmCheck =
    "\"$(corvane26 --printenv CORV_SBATCH_CMD)\" "
    "--partition=\"$(corvane26 --printenv CORV_PARTITION_NAME)\" "
    "--wrap=\"corvane26 --printenv CORV_CLUSTER_NODE\"";

class SlurmClusterSetup : public testing::Test {
protected:
    static void SetUpTestSuite() {
        if (!Hindrance().empty())
            return;
        s_machine = std::make_unique<ThrowawayMachine>();
        s_cluster = std::make_unique<SlurmCluster>(*s_machine);
        if (!s_machine->Boot())
            return;
        s_machine->CopyIn(HX_PRODUCT_DIR, "/opt/corvane26");
        Write("/opt/corvane26/cv_spd", jobProgram);
        Write("/opt/corvane26/cv_computeservice", serviceProgram);
        Shell("chmod 755 /opt/corvane26/cv_spd /opt/corvane26/cv_computeservice; useradd ann");
        Shell("userdel corvsrvc; groupdel corvsrvc");
        Shell(serviceGroup);
        Shell(serviceUser);
        s_started = s_cluster->Start();
    }
    static void TearDownTestSuite() {
        s_cluster.reset();
        s_machine.reset();
    }

    // The head is as new; the nodes are what the tests before left.
    void SetUp() override {
        const std::string hindrance = Hindrance();
        if (!hindrance.empty())
            GTEST_SKIP() << hindrance;
        ASSERT_TRUE(s_started) << s_machine->Log() << s_cluster->Log();
        Shell(
            "systemctl disable --now corvane26_service; scancel --partition=chem;"
            "rm -rf /var/corvane /usr/bin/corvane26* /etc/systemd/system/corvane2* /srv/*"
            " /var/log/corvane26_setup.log;"
            "systemctl daemon-reload; mkdir --mode=777 /srv/jobs /srv/service");
        Write("/srv/jobs/short.sh", shortJob);
        Write("/srv/jobs/long.sh", "#!/bin/sh\nsleep 1000\n");
    }

    static std::string Hindrance() {
        const std::string hindrance = ThrowawayMachine::Hindrance();
        return hindrance.empty() ? SlurmCluster::Hindrance() : hindrance;
    }

    static void Write(const std::string& path, const std::string& text) {
        hx_test::WriteFile(s_machine->Path(path), text);
    }

    static std::string Shell(const std::string& text) { return s_machine->Output(text); }

    static void SetUpHead(const char* command) {
        const auto result = s_machine->Shell(command);
        ASSERT_EQ(result.status, 0) << result.out << result.err;
    }

    static void RollOut() {
        ASSERT_TRUE(s_cluster->RenewNodes()) << s_cluster->Log();
        const auto result = s_machine->Shell(rollOut);
        ASSERT_EQ(result.status, 0) << result.out << result.err << s_cluster->Log();
    }

    // The number of the job.
    static std::string SubmitAsAnn(const std::string& job) {
        return Shell("runuser -u ann -- corvane26 --submit /srv/jobs/" + job + " /srv/jobs 2>&1");
    }

    static std::string Exported(const std::string& name) {
        return Shell("corvane26 --printenv " + name);
    }

    static inline std::unique_ptr<ThrowawayMachine> s_machine;
    static inline std::unique_ptr<SlurmCluster> s_cluster;
    static inline bool s_started = false;
};

TEST_F(SlurmClusterSetup, ARollOutSetsUpEachNodeByItself) {
    ASSERT_TRUE(s_cluster->RenewNodes()) << s_cluster->Log();
    s_cluster->OnNode("n3", "userdel corvsrvc");
    const auto result = s_machine->Shell(rollOut);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    for (const std::string& node : SlurmCluster::Nodes()) {
        SCOPED_TRACE(node);
        const auto exported = [&](const std::string& name) {
            return s_cluster->OnNode(node, "corvane26 --printenv " + name);
        };
        EXPECT_EQ(exported("CORV_CLUSTER_NODE"), "YES");
        EXPECT_EQ(exported("CORV_QUEUE_TYPE"), "NONE");
        EXPECT_EQ(exported("CORV_QUEUE_NAME") + exported("CORV_PARTITION_NAME"), "");
        EXPECT_EQ(exported("CORV_CORVANERC"), "/var/corvane");
        EXPECT_EQ(s_cluster->OnNode(node, "readlink /usr/bin/corvane26*"),
                  "/var/corvane/corvane26\n/var/corvane/corvane26_snapshot");
        EXPECT_EQ(s_cluster->OnNode(node, "stat -c \"%a %U:%G\" /var/corvane/corvane26"),
                  "775 corvsrvc:corvsrvc");
        EXPECT_EQ(s_cluster->OnNode(node, "ls /var/corvane/corvanerc/corvane26server"), "");
        EXPECT_EQ(s_cluster->OnNode(node, "find /etc/systemd /usr/bin -name corvane26_service\\*"),
                  "");
        EXPECT_EQ(s_cluster->OnNode(node, "grep -c completed /var/log/corvane26_setup.log"), "1");
    }
    EXPECT_EQ(s_cluster->OnNode("n3", "getent passwd corvsrvc | cut -d: -f7"), "/sbin/nologin");
    EXPECT_EQ(Shell("ls -d /var/corvane /usr/bin/corvane26* /var/log/corvane26_setup.log"), "");
}

TEST_F(SlurmClusterSetup, ANodeWhoseSetupFailsFailsTheRollOut) {
    ASSERT_TRUE(s_cluster->RenewNodes()) << s_cluster->Log();
    s_cluster->OnNode("n2", "echo of another package > /usr/bin/corvane26");
    const auto result = s_machine->Shell(rollOut);
    EXPECT_EQ(result.status, 1) << result.out << result.err;
    EXPECT_NE(result.out.find("1: Error, creating /usr/bin/corvane26 symbolic link\n"),
              std::string::npos)
        << result.out;
    EXPECT_EQ(s_cluster->OnNode("n2", "cat /usr/bin/corvane26"), "of another package");
    EXPECT_EQ(s_cluster->OnNode("n1", "corvane26 --printenv CORV_CLUSTER_NODE"), "YES");
    EXPECT_EQ(s_cluster->OnNode("n3", "corvane26 --printenv CORV_CLUSTER_NODE"), "YES");
}

TEST_F(SlurmClusterSetup, AJobRunsOnANodeOfThePartition) {
    RollOut();
    SetUpHead(slurmSetup);
    EXPECT_EQ(Exported("CORV_QUEUE_TYPE"), "EXTERNAL");
    EXPECT_EQ(Exported("CORV_SCHEDULER"), "SLURM");
    EXPECT_EQ(Exported("CORV_PARTITION_NAME"), "chem");
    EXPECT_EQ(Exported("CORV_CLUSTER_NODE"), "NO");
    const std::string job = SubmitAsAnn("short.sh");
    EXPECT_EQ(s_cluster->AwaitState(job, "COMPLETED"), "COMPLETED") << job;
    EXPECT_EQ(s_cluster->JobField(job, "Partition"), "chem");
    EXPECT_EQ(Shell("sed 2d /srv/jobs/slurm-" + job + ".out"), "ann\nNO\nYES");

    const std::string told =
        Shell("cd /srv/jobs && runuser -u ann -- sh -c '" + std::string(slurmCheck) + "'");
    const std::string check = told.substr(told.rfind(' ') + 1);
    EXPECT_EQ(s_cluster->AwaitState(check, "COMPLETED"), "COMPLETED") << told;
    EXPECT_EQ(Shell("cat /srv/jobs/slurm-" + check + ".out"), "YES");
}

TEST_F(SlurmClusterSetup, TheCancelCommandEndsALongJob) {
    SetUpHead(answeredSlurmSetup);
    EXPECT_EQ(Exported("CORV_SCANCEL_CMD"), "/usr/bin/scancel");
    const std::string job = SubmitAsAnn("long.sh");
    EXPECT_EQ(s_cluster->AwaitState(job, "RUNNING"), "RUNNING") << job;
    EXPECT_EQ(s_cluster->JobField(job, "Partition"), "chem");
    EXPECT_EQ(Shell("runuser -u ann -- corvane26 --process-commands " + job), "");
    EXPECT_EQ(s_cluster->AwaitState(job, "CANCELLED"), "CANCELLED");
    EXPECT_EQ(Shell("pgrep --exact --full 'sleep 1000'"), "");
}

TEST_F(SlurmClusterSetup, TheServiceSubmitsAsItsOwnUser) {
    RollOut();
    SetUpHead(slurmSetup);
    const std::string job = Shell(
        "for i in $(seq 100); do [ -e /srv/service/submitted ] && break; sleep 0.1; done;"
        "cat /srv/service/submitted");
    EXPECT_EQ(s_cluster->AwaitState(job, "COMPLETED"), "COMPLETED") << job;
    EXPECT_EQ(s_cluster->JobField(job, "UserId"), "corvsrvc(626)");
    EXPECT_EQ(Shell("cat /srv/service/slurm-" + job + ".out"), "corvsrvc\n/var/corvane\nNO\nYES");
}

TEST_F(SlurmClusterSetup, TheTorqueCommandsSubmitAndDelete) {
    RollOut();
    SetUpHead(torqueSetup);
    EXPECT_EQ(Exported("CORV_SCHEDULER"), "TORQUE");
    EXPECT_EQ(Exported("CORV_QUEUE_NAME"), "chem");
    EXPECT_EQ(Exported("CORV_QDEL_CMD"), "/usr/bin/qdel");
    EXPECT_EQ(Exported("CORV_QSIG_CMD"), "/usr/bin/qsig");
    const std::string finishing = SubmitAsAnn("short.sh");
    EXPECT_EQ(s_cluster->AwaitState(finishing, "COMPLETED"), "COMPLETED") << finishing;
    EXPECT_EQ(s_cluster->JobField(finishing, "Partition"), "chem");
    EXPECT_EQ(Shell("sed 2d /srv/jobs/torque.out"), "ann\nNO\nYES");
    const std::string deleted = SubmitAsAnn("long.sh");
    EXPECT_EQ(s_cluster->AwaitState(deleted, "RUNNING"), "RUNNING") << deleted;
    EXPECT_EQ(Shell("runuser -u ann -- corvane26 --process-commands " + deleted), "");
    EXPECT_EQ(s_cluster->AwaitState(deleted, "CANCELLED"), "CANCELLED");
    EXPECT_EQ(Shell("pgrep --exact --full 'sleep 1000'"), "");
}

TEST(ClusterManual, ShowsTheCommandsThatAreTested) {
    const std::string page = hx_test::ReadFile(HX_DOCS "/cluster.md");
    for (const std::string command : {serviceGroup, serviceUser, rollOut, slurmSetup,
                                      answeredSlurmSetup, torqueSetup, slurmCheck})
        EXPECT_NE(page.find("    " + command + "\n"), std::string::npos) << command;
}

}  // namespace
